// The call: a SIP dialogue with the camera, and the sound that goes through it.
#include "audio/audio_camera.h"
#include "audio/sip_farewells.h"
#include "audio/vivotek_audio_out.h"
#include "host/base/gxwait.h"
#include "host/base/trace.h"
#include "host/net/netinterface.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstring>
#include <iterator>

namespace {

constexpr int FIRST_SIP_PORT = 30000, SIP_PORTS = 1000;
constexpr int LOCAL_RTP_PORT = 5556;

constexpr unsigned ANSWER_MS = 10000;
constexpr unsigned FAREWELL_MS = ANSWER_MS;  // what a call to a camera that is busy would lose
constexpr unsigned FAREWELL_POLL_MS = 20;
constexpr int POLL_MS = 250;
constexpr unsigned HELLO_OPENING_MS = 250;  // until the first sound has come through
constexpr unsigned HELLO_MS = 5000;

constexpr size_t SOURCE_PACKET_BYTES = 2048;
constexpr int MAX_STALE_PACKETS = 1000;

bool Send(int socket, const sockaddr_in* to, const void* data, size_t length) {
  return sendto(socket, data, length, MSG_NOSIGNAL | MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(to),
                sizeof *to) == static_cast<ssize_t>(length);
}

bool Send(int socket, const sockaddr_in* to, const CGXString& text) {
  return Send(socket, to, text.Str().data(), text.Str().size());
}

// One datagram that is there already: its bytes, 0 when there is none.
size_t Receive(int socket, void* room, size_t size, sockaddr_in* from = nullptr) {
  socklen_t length = sizeof *from;
  const ssize_t received = recvfrom(socket, room, size, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(from),
                                    from != nullptr ? &length : nullptr);
  return received > 0 ? static_cast<size_t>(received) : 0;
}

struct CReady {
  bool Audio = false, SIP = false;
};

// Waits for either socket; at most a quarter of a second, and not at all on a cancelled thread.
CReady WaitEither(int audio, int sip) {
  pollfd waits[] = {{audio, POLLIN, 0}, {sip, POLLIN, 0}, {CGXThread::CurrentCancelDescriptor(), POLLIN, 0}};
  if (poll(waits, std::size(waits), POLL_MS) <= 0) return {};
  return {waits[0].revents != 0, waits[1].revents != 0};
}

}  // namespace

// Some lines of a call begin with AudiOut, most with AudioOut: support searches old and new logs for them so.
void CVivotek_AudioOut::Trace(const char* text) {
  Camera()->TraceProducer()->Trace(text);
}

int CVivotek_AudioOut::RunLoop() {
  if (AudioSource() == -1) return 0;
  m_RTP.Close();
  sockaddr_in camera = CameraAddress();
  m_Call.Open(Camera()->SerialNo(), camera,
              FIRST_SIP_PORT + static_cast<int>(reinterpret_cast<uintptr_t>(this) % SIP_PORTS));
  unsigned short rtpPort = 0;
  if (!SetUpCall(&rtpPort)) {
    m_Call.Leave();
    return 0;
  }
  m_RTP = BindUDP(LOCAL_RTP_PORT);
  camera.sin_port = htons(rtpPort);
  DrainSource();
  Trace("AudioOut: SIP->INVITE (ACK) Ok, enter run loop");
  if (!Stream(camera)) return 0;

  Camera()->MicMute(0);
  m_Call.Bye();
  m_RTP.Close();
  m_Call.Leave();
  Trace("AudiOut: RunLoop() finished");
  return 1;
}

sockaddr_in CVivotek_AudioOut::CameraAddress() const {
  sockaddr_in camera{};
  Camera()->GetCameraAddress(&camera);
  camera.sin_family = AF_INET;
  camera.sin_port = htons(SIP_PORT);
  return camera;
}

// A camera whose set-up call was hung up may not have noticed yet, and a strict one is busy until it has.
void CVivotek_AudioOut::AwaitFarewell() {
  const sockaddr_in camera = CameraAddress();
  const CGXDeadline deadline(FAREWELL_MS);
  while (IsRunning() && !CGXThread::CurrentCancelled() && deadline.Left() > 0 &&
         CSIPFarewells::Instance()->Owes(camera))
    Sleep(FAREWELL_POLL_MS);
}

bool CVivotek_AudioOut::SetUpCall(unsigned short* rtpPort) {
  if (!m_Call.Options()) {
    Trace("AudioOut: SIP->OPTIONS Failed");
    return false;
  }
  Trace("AudioOut: SIP->OPTIONS Ok");
  if (!IsRunning()) return false;  // hung up meanwhile

  if (!m_Call.Invite(Identity(), LOCAL_RTP_PORT)) {
    Trace("AudioOut: SIP->INVITE Failed");
    return false;
  }
  Trace("AudioOut: SIP->INVITE Ok");

  DrainSource();
  CGXString toTag;
  if (!AwaitAnswer(rtpPort, &toTag)) return false;
  if (!m_Call.Acknowledge(toTag)) {
    Trace("AudioOut: SIP->INVITE (ACK) FAILED");
    return false;
  }
  Trace("AudioOut: SIP->INVITE (ACK) Ok");
  return true;
}

// What was said before the camera listens is not played late. Done twice: what a slow answer lets pile up would
// otherwise be played in one burst, and the socket's buffer, which holds a few seconds, would be full of it.
void CVivotek_AudioOut::DrainSource() {
  char packet[SIP_MESSAGE_BYTES];
  const int source = AudioSource();
  for (int i = 0; i < MAX_STALE_PACKETS && recv(source, packet, sizeof packet, MSG_DONTWAIT) >= 0; ++i) {
  }
}

bool CVivotek_AudioOut::AwaitAnswer(unsigned short* rtpPort, CGXString* toTag) {
  CInviteAnswer answer;
  for (unsigned outcome = 0; (outcome & CInviteAnswer::OVER) == 0;) {
    if (!WaitSocketReadState(m_Call.Socket(), ANSWER_MS)) {
      Trace("AudiOut: Failed waiting for INVITE response");
      return false;
    }
    const std::span<char> room = answer.Room();
    const size_t received = Receive(m_Call.Socket(), room.data(), room.size());
    m_Call.Observe({room.data(), received});
    outcome = answer.Added(received);
    if ((outcome & CInviteAnswer::ACCEPTED) != 0) Trace("AudiOut: Got INVITE response OK");
  }
  *toTag = answer.ToTag();
  *rtpPort = answer.RTPPort();
  return true;
}

// False when there is nothing to decode with.
bool CVivotek_AudioOut::Stream(const sockaddr_in& destination) {
  CGXTimer hello;
  bool arrived = false;
  while (IsRunning()) {
    if (hello.GXTickCount() > (arrived ? HELLO_MS : HELLO_OPENING_MS)) {
      SendAudioHello();
      hello.Restart();
    }
    const CReady ready = WaitEither(AudioSource(), m_Call.Socket());
    if (ready.Audio && !ReceiveSpeech(destination, &arrived)) return false;
    if (ready.SIP) ReceiveSIP();
  }
  return true;
}

bool CVivotek_AudioOut::ReceiveSpeech(const sockaddr_in& destination, bool* arrived) {
  unsigned char buffer[SOURCE_PACKET_BYTES];
  const std::span<const unsigned char> packet(buffer, Receive(AudioSource(), buffer, sizeof buffer));
  if (packet.empty()) return true;
  if (!m_Transcoder.IsOpen()) {
    Trace("Error: Opus Decoder Missing");
    return false;
  }
  *arrived = true;
  if (IsRTPHello(buffer, static_cast<int>(packet.size()))) {
    std::printf("Received Startup Packet\n");
    SendAudioHello();
  } else if (const auto opus = CSpeechTranscoder::Payload(packet); !opus.empty() && !m_Volume.Congested()) {
    PlaySpeech(destination, opus);
  }
  return true;
}

void CVivotek_AudioOut::PlaySpeech(const sockaddr_in& destination, std::span<const unsigned char> opus) {
  const int samples = m_Transcoder.Decode(opus);
  const int level = m_Transcoder.Level();
  if (Camera()->TraceProducer()->Trace()) {
    CGXString line;
    line.Format("lvl %04d Decoded %d bytes -> %d samples\r\n", level, static_cast<int>(opus.size()), samples);
    Trace(line);
  }
  if (samples <= 0) return;

  const bool enabled = AudioEnabled();
  if (!enabled) Camera()->MicMute(0);
  const std::span<const unsigned char> ulaw = enabled ? m_Transcoder.Encode() : m_Transcoder.Silence();
  PushVolumeSample(enabled ? level : 0, samples);
  TXData(m_RTP.Get(), &destination, ulaw.data(), samples);
}

bool CVivotek_AudioOut::TXData(int socket, const sockaddr_in* to, const unsigned char* ulaw, int length) {
  const auto packet = m_Packets.Build({ulaw, static_cast<size_t>(length)}, m_RTPTimer.GXTickCount());
  return !packet.empty() && Send(socket, to, packet.data(), packet.size());
}

void CVivotek_AudioOut::ReceiveSIP() {
  char message[SIP_MESSAGE_BYTES + 1];
  sockaddr_in from{};
  message[Receive(m_Call.Socket(), message, SIP_MESSAGE_BYTES, &from)] = '\0';
  m_Call.Observe(message);
  const CSIPDialogue& dialogue = m_Call.Dialogue();
  if (std::strncmp(message, "INFO", 4) == 0)
    TXInfo(m_Call.Socket(), &from, message, dialogue.CameraURI(), dialogue.SystemURI());
}

int CVivotek_AudioOut::DoSIPExchange(int socket, const CSIPDialogue& dialogue, const sockaddr_in* to,
                                     const char* method, int cseq, const CGXString& body) {
  return CSIPCall::Exchange(socket, dialogue, to, method, cseq, body);
}

void CVivotek_AudioOut::TXInfo(int socket, const sockaddr_in* from, const char* request,
                               const CGXString& cameraURI, const CGXString& systemURI) {
  Send(socket, from, CSIPMessage::InfoAnswer(request, systemURI));
  // An INFO of our own follows each of the camera's: it takes the call for dead when its own stay alone.
  Send(socket, from, CSIPMessage::InfoRequest(request, cameraURI));
}
