// The call: a SIP dialogue with the camera, and the sound that goes through it.
#include "audio/audio_camera.h"
#include "audio/sip_dialogue.h"
#include "audio/vivotek_audio_out.h"
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
constexpr int OPTIONS_CSEQ = 1, INVITE_CSEQ = 2;

constexpr unsigned REPLY_MS = 1000;
constexpr unsigned ANSWER_MS = 10000;
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
  m_SIP.Close();

  sockaddr_in camera{};
  Camera()->GetCameraAddress(&camera);
  camera.sin_family = AF_INET;
  camera.sin_port = htons(SIP_PORT);
  const int localPort = FIRST_SIP_PORT + static_cast<int>(reinterpret_cast<uintptr_t>(this) % SIP_PORTS);
  CSIPDialogue dialogue(Camera()->SerialNo(), GXFormatAddress(&camera), GXFormatAddress(GetPrimaryIP()),
                        localPort);
  m_SIP = BindUDP(localPort);

  unsigned short rtpPort = 0;
  if (!SetUpCall(&dialogue, camera, &rtpPort)) {
    m_SIP.Close();
    return 0;
  }
  m_RTP = BindUDP(LOCAL_RTP_PORT);
  sockaddr_in destination = camera;
  destination.sin_port = htons(rtpPort);
  Trace("AudioOut: SIP->INVITE (ACK) Ok, enter run loop");
  if (!Stream(dialogue, destination)) return 0;

  Camera()->MicMute(0);
  // The BYE bears the INVITE's number: these cameras know a call by it and go on holding the speaker after a
  // BYE with the next one.
  DoSIPExchange(m_SIP.Get(), dialogue, &camera, "BYE", INVITE_CSEQ, {});
  m_RTP.Close();
  m_SIP.Close();
  Trace("AudiOut: RunLoop() finished");
  return 1;
}

bool CVivotek_AudioOut::SetUpCall(CSIPDialogue* dialogue, const sockaddr_in& camera, unsigned short* rtpPort) {
  if (!DoSIPExchange(m_SIP.Get(), *dialogue, &camera, "OPTIONS", OPTIONS_CSEQ, {})) {
    Trace("AudioOut: SIP->OPTIONS Failed");
    return false;
  }
  Trace("AudioOut: SIP->OPTIONS Ok");

  const CGXString session = dialogue->SessionDescription(Identity(), LOCAL_RTP_PORT);
  dialogue->Renew();
  if (!DoSIPExchange(m_SIP.Get(), *dialogue, &camera, "INVITE", INVITE_CSEQ, session)) {
    Trace("AudioOut: SIP->INVITE Failed");
    return false;
  }
  Trace("AudioOut: SIP->INVITE Ok");

  DrainSource();
  if (!AwaitAnswer(dialogue, rtpPort)) return false;
  if (!DoSIPExchange(m_SIP.Get(), *dialogue, &camera, "ACK", INVITE_CSEQ, {})) {
    Trace("AudioOut: SIP->INVITE (ACK) FAILED");
    return false;
  }
  Trace("AudioOut: SIP->INVITE (ACK) Ok");
  return true;
}

// What was said before the camera listens is not played late.
void CVivotek_AudioOut::DrainSource() {
  char packet[SIP_MESSAGE_BYTES];
  const int source = AudioSource();
  for (int i = 0; i < MAX_STALE_PACKETS && recv(source, packet, sizeof packet, MSG_DONTWAIT) >= 0; ++i) {
  }
}

bool CVivotek_AudioOut::AwaitAnswer(CSIPDialogue* dialogue, unsigned short* rtpPort) {
  CInviteAnswer answer;
  for (unsigned outcome = 0; (outcome & CInviteAnswer::OVER) == 0;) {
    if (!WaitSocketReadState(m_SIP.Get(), ANSWER_MS)) {
      Trace("AudiOut: Failed waiting for INVITE response");
      return false;
    }
    const std::span<char> room = answer.Room();
    outcome = answer.Added(Receive(m_SIP.Get(), room.data(), room.size()));
    if ((outcome & CInviteAnswer::ACCEPTED) != 0) Trace("AudiOut: Got INVITE response OK");
  }
  dialogue->ToTag(answer.ToTag());
  *rtpPort = answer.RTPPort();
  return true;
}

// False when there is nothing to decode with.
bool CVivotek_AudioOut::Stream(const CSIPDialogue& dialogue, const sockaddr_in& destination) {
  CGXTimer hello;
  bool arrived = false;
  while (IsRunning()) {
    if (hello.GXTickCount() > (arrived ? HELLO_MS : HELLO_OPENING_MS)) {
      SendAudioHello();
      hello.Restart();
    }
    const CReady ready = WaitEither(AudioSource(), m_SIP.Get());
    if (ready.Audio && !ReceiveSpeech(destination, &arrived)) return false;
    if (ready.SIP) ReceiveSIP(dialogue);
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

void CVivotek_AudioOut::ReceiveSIP(const CSIPDialogue& dialogue) {
  char message[SIP_MESSAGE_BYTES + 1];
  sockaddr_in from{};
  message[Receive(m_SIP.Get(), message, SIP_MESSAGE_BYTES, &from)] = '\0';
  if (std::strncmp(message, "INFO", 4) == 0)
    TXInfo(m_SIP.Get(), &from, message, dialogue.CameraURI(), dialogue.SystemURI());
}

// Any complete message counts as the reply: a camera that asks for a wait, or refuses, shows it by not
// answering the INVITE with a session.
int CVivotek_AudioOut::DoSIPExchange(int socket, const CSIPDialogue& dialogue, const sockaddr_in* to,
                                     const char* method, int cseq, const CGXString& body) {
  // Nothing is known to be at no address; sent there, a request would reach this machine itself.
  if (to->sin_addr.s_addr == INADDR_ANY) return 0;
  if (!Send(socket, to, dialogue.Request(method, cseq, body))) return 0;
  if (std::strcmp(method, "ACK") == 0 || std::strcmp(method, "INFO") == 0) return 1;
  char reply[SIP_MESSAGE_BYTES];
  size_t held = 0;
  while (held < sizeof reply) {
    if (!WaitSocketReadState(socket, REPLY_MS)) return 0;
    held += Receive(socket, reply + held, sizeof reply - held);
    if (std::string_view(reply, held).find(CSIPMessage::END_OF_HEADER) != std::string_view::npos) return 1;
  }
  return 0;
}

void CVivotek_AudioOut::TXInfo(int socket, const sockaddr_in* from, const char* request,
                               const CGXString& cameraURI, const CGXString& systemURI) {
  Send(socket, from, CSIPMessage::InfoAnswer(request, systemURI));
  // An INFO of our own follows each of the camera's: it takes the call for dead when its own stay alone.
  Send(socket, from, CSIPMessage::InfoRequest(request, cameraURI));
}
