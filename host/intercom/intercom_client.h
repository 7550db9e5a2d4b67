// A party of the intercom, and what it can do. The server that knows all parties is in
// host/intercom/intercom.h.
//
// Everything here happens under the main-thread lock unless a line says otherwise: clients come and go under
// it, so a CIntercomClient* is good for as long as it is held. Who keeps one longer registers a CIntercomSink.
#pragma once

#include "host/base/gxstring.h"

#include <atomic>

class CAudioStreamTarget;
class CIntercomClient;
class CRTSPProfile;
class CSystemComponent;
class CVideoSystem;
struct GXT_RTP_PATH_DESCRIPTOR;

enum CALL_TYPE : int { CALL_TYPE_NONE = 0, CALL_TYPE_TWO_WAY = 1 };
enum INCOMING_CALL_CTX : int { INCOMING_CALL_RING = 0 };
enum STREAM_CTX : int { STREAM_CTX_DIRECT = 0, STREAM_CTX_RELAYED = 1 };
enum ICOM_CLIENT_STATE : int {
  ICOM_CLIENT_IDLE = 0,
  ICOM_CLIENT_CALLING = 1,
  ICOM_CLIENT_RINGING = 2,
  ICOM_CLIENT_TALKING = 3
};

// Answers of AnswerMode.
inline constexpr int ICOM_ANSWER_BY_USER = 0;  // it rings until CIntercomServer::AcceptCall or DeclineCall
inline constexpr int ICOM_ANSWER_BY_ITSELF = 3;

// Kinds of IcomHardwareType; 0: anything else.
inline constexpr int ICOM_HARDWARE_DOOR_STATION = 3;
inline constexpr int ICOM_HARDWARE_CAMERA = 5;

struct GXT_ICOM_STATE {
  ICOM_CLIENT_STATE State = ICOM_CLIENT_IDLE;
  CIntercomClient* Peer = nullptr;  // whom it rings for or talks with; null: several, or nobody
};

// Told what became of a call that its owner placed; in a main-thread pass, never from within InitiateCall.
class CIcomCallDelegate {
 public:
  virtual ~CIcomCallDelegate();
  // `client` is the first to accept; `delegate` is its own, null when it has none. The sound begins afterwards.
  virtual void CallAccepted(CIntercomClient* client, CIcomCallDelegate* delegate, CALL_TYPE type) = 0;
  virtual void CallDeclined(CIntercomClient* client) = 0;  // or it has left the intercom
};

// A panel, an app, a camera. Its owner registers it with the server, and takes it out before it destroys any
// part of it that the operations below need.
class CIntercomClient {
 public:
  CIntercomClient();
  virtual ~CIntercomClient();  // takes itself out of the server
  CIntercomClient(const CIntercomClient&) = delete;
  CIntercomClient& operator=(const CIntercomClient&) = delete;

  // ---- What it is ----
  virtual CSystemComponent* IcomBindingObject();  // the component that it belongs to; null when none
  virtual CVideoSystem* GetVideoSystem();         // what shows who speaks; null when it has no picture
  virtual CGXString IcomName();
  virtual int IcomHardwareType();    // ICOM_HARDWARE_...
  virtual unsigned GetIP();          // where its sound comes from and goes to, network order
  virtual bool UsesRelay();          // it is not reached directly: attach to it with STREAM_CTX_RELAYED
  virtual bool TakesDefaultCalls();  // whether a door station's button rings it
  virtual int AnswerMode();          // ICOM_ANSWER_...
  virtual int AnnounceVolume();      // percent

  // ---- A call that it places: a door station's button, numbered from 0 ----
  virtual int InitiateCall(int button);  // non-zero when it was placed
  virtual int CancelCall(int button);

  // ---- A call that it gets ----
  // `caller` rings it (or, with ICOM_ANSWER_BY_ITSELF, talks to it from now on). The types say what the caller
  // and the client send. 0: it cannot, which counts as declined.
  virtual int HandleBeginSession(CIntercomClient* caller, CALL_TYPE callerType, CALL_TYPE type,
                                 INCOMING_CALL_CTX ctx);
  virtual int HandleCancelSession();  // the ringing, or the talk, is over
  // What a client that only wants to know of it overrides; the two above call them where they do more.
  virtual void OnSessionBegun(CIntercomClient* caller, CALL_TYPE callerType, CALL_TYPE type,
                              INCOMING_CALL_CTX ctx);
  virtual void OnSessionCancelled();

  // ---- Its ears: playing what another client says ----
  virtual bool HasAudioRX();
  // From now on it plays `client`: it attaches a target of its own to it, until StopReceiveAudio. Non-zero when
  // it does. StopReceiveAudio may be called when nothing plays.
  virtual int BeginReceiveAudioFrom(CIntercomClient* client);
  virtual int StopReceiveAudio();
  virtual int SetIcomAudioRXState(CIntercomClient* client, int on);  // 0: silence instead of `client`; 1: play
  virtual int StreamAudioFromRTSP(CRTSPProfile* profile, CIntercomClient* client, int volume);
  virtual int StopAudioStream();

  // ---- Its mouth: handing what it says to targets ----
  // Sends its sound to `target` until it is detached: a camera as G.711 mu-law RTP at 8 kHz, a panel as Opus
  // RTP. Non-zero when it does.
  //   STREAM_CTX_DIRECT: `path` is the target's end. When its port is 0, the source chooses the port and tells
  //   it with target->AudioSourcePort(port), in host order. The source sends from that port + 9500
  //   (AUDIO_SOURCE_PORT_OFFSET), where it takes the target's hellos.
  //   STREAM_CTX_RELAYED: when `path` has an address, it is the source's leg of a relay that the listener has
  //   opened. When it has none, the source opens one and tells the listener's leg with
  //   target->ProcessAudioSourceAddressInfo, now or later. See host/intercom/audio_relay.h.
  virtual int HandleAudioStreamTargetAttach(CAudioStreamTarget* target, GXT_RTP_PATH_DESCRIPTOR* path,
                                            STREAM_CTX ctx);
  virtual int HandleAudioStreamTargetDetach(CAudioStreamTarget* target);  // an unknown one is ignored

  // What listeners call for the two above: 0 without asking it when the client is not registered (any more),
  // so a pointer that was kept too long does no harm.
  static int AttachAudioStreamTarget(CIntercomClient* client, CAudioStreamTarget* target,
                                     GXT_RTP_PATH_DESCRIPTOR* path, STREAM_CTX ctx);
  static int DetachAudioStreamTarget(CIntercomClient* client, CAudioStreamTarget* target);

  // Writes an end of a direct path: this client's address and `port` (host order).
  void AudioPathAt(unsigned short port, GXT_RTP_PATH_DESCRIPTOR* path);

  // `count` successive ports of this machine for sound, 2 at most: the even base, 0 when none is left. They are
  // used at base + 100 (the listener's) and base + 9600 (the source's). Any thread, like the next.
  unsigned short AllocRTSPPort(int count);
  void FreeRTSPPort(unsigned short base);  // an unknown one is ignored

  // ---- State: set by the server and by those who place calls; a change is told to the sinks ----
  void RegisterIcomState(const GXT_ICOM_STATE* state);      // null: idle
  ICOM_CLIENT_STATE IcomState() const { return m_eState; }  // any thread
  CIntercomClient* IcomPeer() const { return m_pPeer; }     // to be used under the main-thread lock

 private:
  std::atomic<ICOM_CLIENT_STATE> m_eState{ICOM_CLIENT_IDLE};
  std::atomic<CIntercomClient*> m_pPeer{nullptr};
};
