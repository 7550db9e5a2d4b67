// Plays what an intercom client says on the speaker of a Vivotek camera, inside a SIP call that it places
// there.
//
// The client's sound comes as Opus in RTP to a socket of ours, straight or along a relayed path. Source files:
// vivotek_audio_out.cpp its life and where the sound comes from, vivotek_call.cpp the call.
#pragma once

#include "audio/audio_out.h"
#include "audio/rtp_packet.h"
#include "audio/sip_call.h"
#include "audio/speech_transcoder.h"
#include "audio/volume_queue.h"
#include "host/base/gxthread.h"
#include "host/intercom/audio_stream.h"
#include "host/intercom/intercom.h"
#include "host/intercom/rtp_path.h"
#include "host/net/socket.h"
#include "util/gxtimer.h"
#include "util/owned_socket.h"

#include <netinet/in.h>

// One talker: made by the camera, started, stopped and deleted on the main thread. Once its thread has ended it
// has left the client, and another talker takes another object.
class CVivotek_AudioOut : public CONVIF_AudioOut, public CAudioStreamTarget, public CIntercomSink {
 public:
  // Attaches to the client's sound at once and says hello along its path.
  CVivotek_AudioOut(CAudioCamera* camera, CIntercomClient* client);
  ~CVivotek_AudioOut() override;  // ends a call in any phase within milliseconds

  void Start() override;
  void Stop() override;  // the thread then says BYE and ends by itself
  bool IsRunning() override;
  void PushVolumeSample(int level, int samples) override;
  int PopVolumeSample(int samples) override;  // any thread

  // The relayed path, when the relay knows it; copied. Any thread.
  void ProcessAudioSourceAddressInfo(GXT_RTP_PATH_DESCRIPTOR* path) override;
  CIntercomClient* IntercomClient() override;  // who talks; null once detached
  // Main thread.
  void OnClientAdded(CIntercomClient* client) override;
  void OnClientRemoved(CIntercomClient* client) override;  // the talker: it is forgotten and the call ends
  void OnClientState(CIntercomClient* client, ICOM_CLIENT_STATE state) override;

  void SendAudioHello();  // opens the relayed path, or keeps it open; any thread

  // Sends one RTP packet; true when all of it went out.
  bool TXData(int socket, const sockaddr_in* to, const unsigned char* ulaw, int length);

  // Sends one request and, but for ACK and INFO, waits for any complete message: 1, or 0 on failure.
  static int DoSIPExchange(int socket, const CSIPDialogue& dialogue, const sockaddr_in* to, const char* method,
                           int cseq, const CGXString& body);
  // Answers an INFO request that came from that address.
  static void TXInfo(int socket, const sockaddr_in* from, const char* request, const CGXString& cameraURI,
                     const CGXString& systemURI);

 private:
  static constexpr unsigned RUNNING = 1;  // of the run flags

  // ---- Life and source (vivotek_audio_out.cpp) ----
  static unsigned short TakePort();
  static COwnedSocket BindUDP(int port);  // at any address; 0: a port that is free
  static unsigned ThreadProc(void* self);
  void AttachDirect(CIntercomClient* client);
  void AttachRelayed(CIntercomClient* client);
  int AudioSource();
  bool AwaitSource();
  void Run();
  void Detach();
  unsigned Identity() const;  // 32 bits that name this object to cameras

  // ---- The call (vivotek_call.cpp); worker thread ----
  sockaddr_in CameraAddress() const;  // with its SIP port
  void AwaitFarewell();
  int RunLoop();
  bool SetUpCall(unsigned short* rtpPort);
  bool AwaitAnswer(unsigned short* rtpPort, CGXString* toTag);
  void DrainSource();
  bool Stream(const sockaddr_in& destination);
  bool ReceiveSpeech(const sockaddr_in& destination, bool* arrived);
  void PlaySpeech(const sockaddr_in& destination, std::span<const unsigned char> opus);
  void ReceiveSIP();
  void Trace(const char* text);

  static CGXCritical g_PortLock;
  static unsigned short g_NextPort GUARDED_BY(g_PortLock);

  std::atomic<unsigned> m_dwRunFlags{0};
  CVolumeQueue m_Volume;

  // Where the sound comes from: written by whoever attaches and by the relay. The socket is opened once and
  // stays open for the life of the object.
  CGXCritical m_SourceLock;
  COwnedSocket m_AudioSource GUARDED_BY(m_SourceLock);
  GXT_RTP_PATH_DESCRIPTOR m_PathA GUARDED_BY(m_SourceLock){}, m_PathB GUARDED_BY(m_SourceLock){};
  const bool m_bRelayed;
  CGXSemaphore m_SourceChanged;  // wakes a thread that waits for the relayed path

  // Of the worker thread; of Start while there is none.
  CSpeechTranscoder m_Transcoder;
  CPCMUPacketBuilder m_Packets;
  const CGXTimer m_RTPTimer;
  // They stay open when a call breaks off for want of a decoder, and are closed before the next one begins.
  CSIPCall m_Call;
  COwnedSocket m_RTP;

  CGXThread m_Thread;
};
