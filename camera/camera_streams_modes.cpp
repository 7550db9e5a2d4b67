// The modes that a camera's streams run in.
#include "camera/ONVIFCam.h"
#include "camera/camera_streams.h"
#include "camera/loading.h"
#include "host/base/gxassert.h"
#include "host/net/http.h"
#include "host/video/depacketizer.h"
#include "rtsp/access_unit.h"
#include "rtsp/jpeg_assembler.h"
#include "rtsp/rtsp.h"

#include <cstdio>

namespace {

constexpr int PACKET_BYTES = 2048;
constexpr int PACKET_TIMEOUT_MS = 5000;
constexpr unsigned NAL_TIMEOUT_MS = 5000;
constexpr int NAL_BYTES = 128000;  // one NAL unit with its start code
constexpr int RELOAD_PAUSE_MS = CLoading::RETRY_MS;
constexpr int AT_ANY_MOMENT = 0;

}  // namespace

// ---- Snapshot mode ----

int CCameraStreams::RunSnapshots() {
  const auto profiles = m_pCamera->Model().Profiles();
  const CProfile* const profile = profiles->Profiles();
  if (profile == nullptr) return 0;
  CGXString uri = profile->SnapshotUri();
  uri.TrimLeft("http://");
  const int slash = uri.Find('/');
  if (slash < 1) return 0;
  const CGXString host = uri.Left(slash);
  CHTTPHeader header;
  header.Command("GET " + uri.Mid(slash));
  header.Host(host);
  header.SetBasicAuthorization(m_pCamera->UserName(), m_pCamera->Password());
  const CGXString request = header.CreateString();
  // Without a pause: cameras keep a request waiting until they have the next picture.
  while (!m_pCamera->StopFlag() && m_pCamera->NSinks() > 0) {
    const std::unique_ptr<CHTMLPage> page(DoHTTPExchange(host, request, nullptr, 0, 80, 0));
    if (page == nullptr) return 0;
    m_pCamera->ProcessVideoChunk(page->Data(), page->NBytes(), -1, -1);
  }
  return 1;
}

// ---- RTSP modes ----

CRTSPProfile CCameraStreams::VideoRTSPProfile(const CONVIFCam& camera, const CProfile& profile,
                                              RTP_TRANSPORT transport) {
  CRTSPProfile rtsp;
  profile.ConfigureVideo(&rtsp);
  rtsp.Transport(transport);
  rtsp.UserName(camera.UserName());
  rtsp.Password(camera.Password());
  return rtsp;
}

// Before the settings are looked at: what is replaced after that ends the stream.
CCameraStreams::CStart CCameraStreams::Begin(int stream) const {
  CStart start{.Stream = stream, .Epoch = m_Streams[stream].Epoch, .DVRGeneration = m_pCamera->DVRGeneration()};
  const CMediaModel& model = m_pCamera->Model();
  start.Settings = stream < JPEG_STREAMS ? model.UserSettings(RTSP_PROFILE_JPEG, stream)
                                         : model.DVRSettings(m_pCamera->DVRResolutionIndex());
  if (start.Settings != nullptr) start.Profile = model.ProfileByToken(start.Settings->ProfileToken());
  return start;
}

bool CCameraStreams::Describe(CStart* start) {
  CGXString reason;
  const bool described = start->Profile->EnsureRTSPConfig(m_pCamera, &reason);
  start->Reloads = start->Profile->Reloads();
  if (!described) Failed(start->Stream, reason, RELOAD_PAUSE_MS);
  return described;
}

// A camera that fell silent is no failure: the stream is started again.
int CCameraStreams::Quiet(const CStart& start, const CRTSP& session, bool any) {
  CGXString reason = session.Failure();
  if (reason.IsEmpty())
    reason = any ? "no data from the camera for 5 s" : "the camera agreed to it, but has sent nothing for 5 s";
  Failed(start.Stream, reason, AT_ANY_MOMENT);
  return 1;
}

int CCameraStreams::RunJPEG(int stream) {
  CStart start = Begin(stream);
  if (start.Settings == nullptr) {
    Failed(stream, "there are no settings for it", AT_ANY_MOMENT, "ERROR Profile Not Found");
    return 1;
  }
  if (start.Profile == nullptr)
    return Failed(stream, "the camera has no profile \"" + start.Settings->ProfileToken() + "\" any more",
                  RELOAD_PAUSE_MS);
  if (!Describe(&start)) return 0;
  const RTP_TRANSPORT transport = start.Settings->Transport();
  CRTSP session(start.Profile->StreamUri(), start.Profile->ControlURLVideo(), transport, m_pCamera->UserName(),
                m_pCamera->Password(), -1, nullptr, nullptr);
  CRTSPProfile rtsp = VideoRTSPProfile(*m_pCamera, *start.Profile, transport);
  if (!session.Login() || !session.Init(&rtsp) || !session.InitSession())
    return Failed(stream, session.Failure(), RELOAD_PAUSE_MS);
  return ReceiveJPEG(&session, start);
}

int CCameraStreams::ReceiveJPEG(CRTSP* session, const CStart& start) {
  unsigned char packet[PACKET_BYTES];
  CJPEGAssembler assembler;
  bool any = false;
  while (IsWanted(start)) {
    const int length = session->WaitNextPacket(packet, PACKET_BYTES, PACKET_TIMEOUT_MS);
    if (length < 1) {
      if (!IsWanted(start)) break;  // told to end while waiting
      return Quiet(start, *session, any);
    }
    if (!any) Stands(start.Stream, GXT_REPORT::STATE::Running);
    any = true;
    switch (assembler.Add(packet, length)) {
      case CJPEGAssembler::Result::TOO_SHORT:
        AssertWrap("ONVIFCam", __LINE__);
        break;
      case CJPEGAssembler::Result::PICTURE:
        DeliverPicture(start.Stream, assembler.Picture());
        break;
      default:
        break;
    }
  }
  session->Stop();
  return 1;
}

// Without a free frame the host is behind, and the picture is dropped.
void CCameraStreams::DeliverPicture(int stream, std::span<const unsigned char> picture) {
  CJPEGBuffer* const frame = m_pCamera->GetFreeFrame();
  if (frame == nullptr) return;
  frame->SetData(picture.data(), static_cast<int>(picture.size()));
  frame->ResMode(stream, 1);
  frame->MotionData(m_pCamera->MotionLevel());
  m_pCamera->SetReadyFrame(frame);
}

int CCameraStreams::RunH264() {
  const int stream = JPEG_STREAMS;
  CStart start = Begin(stream);
  if (start.Settings == nullptr) {
    Failed(stream, "there are no settings for it", AT_ANY_MOMENT, "ERROR Profile Not Found");
    return 1;
  }
  if (start.Profile == nullptr)
    return Failed(stream, "the camera has no profile \"" + start.Settings->ProfileToken() + "\" any more",
                  RELOAD_PAUSE_MS, "ERROR: Missing H264/DVR Profile");
  if (!Describe(&start)) {
    m_pCamera->Trace("ERROR: H264/DVR Can't load profile");
    return 0;
  }
  const RTP_TRANSPORT transport = start.Settings->Transport();
  CRTSP session(start.Profile->StreamUri(), start.Profile->ControlURLVideo(), transport, m_pCamera->UserName(),
                m_pCamera->Password(), -1, nullptr, nullptr);
  CRTSPProfile rtsp = VideoRTSPProfile(*m_pCamera, *start.Profile, transport);
  const auto failed = [&](const char* trace) {
    return Failed(stream, session.Failure(), RELOAD_PAUSE_MS, trace);
  };
  if (!session.Login()) return failed("ERROR: H264/DVR Login Failed");
  if (!session.Init(&rtsp)) return failed("ERROR: H264/DVR Init Failed");
  std::printf("Doing Init Session %s\n", start.Profile->StreamUri().Str().c_str());
  if (!session.InitSession()) return failed("ERROR: H264/DVR InitSession Failed");
  return ReceiveH264(&session, start);
}

int CCameraStreams::ReceiveH264(CRTSP* session, const CStart& start) {
  unsigned char packet[PACKET_BYTES];
  const auto nal = std::make_unique<unsigned char[]>(NAL_BYTES);
  CAccessUnitCollector collector;
  CGXTimer watchdog;
  CH264Depacketizer depacketizer(-1);
  unsigned tooLarge = 0;
  bool any = false, anyUnit = false;
  m_pCamera->Trace("H264/DVR Stream Started OK");
  if (const std::shared_ptr<CDVRTarget> target = m_pCamera->DVRTarget()) target->BeginStream();
  while (IsWanted(start)) {
    const int length = session->WaitNextPacket(packet, PACKET_BYTES, PACKET_TIMEOUT_MS);
    if (length < 1) {
      if (!IsWanted(start)) break;
      return Quiet(start, *session, any);
    }
    any = true;
    // One packet may hold several units: parameter sets often come together.
    for (int size = depacketizer.ProcessRTP(packet, length, nal.get(), NAL_BYTES); size > 0;
         size = depacketizer.ProcessRTP(nullptr, 0, nal.get(), NAL_BYTES)) {
      watchdog.Restart();
      if (!anyUnit) Stands(start.Stream, GXT_REPORT::STATE::Running);
      anyUnit = true;
      DeliverNAL(&collector, nal.get(), static_cast<size_t>(size));
    }
    if (depacketizer.TooLarge() != tooLarge) CountTooLarge(depacketizer.TooLarge() - tooLarge);
    tooLarge = depacketizer.TooLarge();
    if (watchdog.GXTickCount() > NAL_TIMEOUT_MS) {
      session->Stop();
      return Failed(start.Stream, "the camera sends packets, but no H.264 pictures in them", RELOAD_PAUSE_MS);
    }
  }
  session->Stop();
  return 1;
}

void CCameraStreams::DeliverNAL(CAccessUnitCollector* collector, const unsigned char* nal, size_t length) {
  const CAccessUnitCollector::Result result = collector->Add(nal, length);
  if (result == CAccessUnitCollector::Result::KEPT) return;
  // Slices count, and a key picture too large to keep does too: the rate shows what a camera sends, and
  // installers compare it with the figures that they noted when they set the camera up.
  ++m_nDVRFrames;
  if (result == CAccessUnitCollector::Result::KEY_LOST) return CountTooLarge(1);
  const std::shared_ptr<CDVRTarget> target = m_pCamera->DVRTarget();
  if (target == nullptr) return;
  const std::span<const unsigned char> unit = collector->Unit();
  auto frame = std::make_unique<CFrameData>(FRAME_KIND_H264, nullptr, 0, 0, m_pCamera, unit.data(),
                                            static_cast<int>(unit.size()), m_pCamera->MotionLevel(), 0);
  frame->Options(collector->NALType());
  target->DeliverFrame(std::move(frame));
}
