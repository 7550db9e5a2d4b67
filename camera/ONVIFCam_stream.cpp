// The stream threads and the modes that they run in.
#include "camera/ONVIFCam.h"
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
constexpr unsigned STREAM_RESTART_MS = 1000;  // least time between two starts of a stream that failed
constexpr int NAL_BYTES = 128000;             // one NAL unit with its start code

}  // namespace

// ---- Threads ----

void CONVIFCam::StartStreams() {
  static constexpr struct {
    const char* Suffix;
    CGXThread::Entry Entry;
  } THREADS[STREAMS] = {
      {":Proc0", StreamProc0}, {":Proc1", StreamProc1}, {":Proc2", StreamProc2}, {":ProcH264", H264_DVR_Proc}};
  const unsigned mask = m_dwResMask | (m_bDVRActive ? 1U << JPEG_STREAMS : 0U);
  for (int i = 0; i < STREAMS; ++i) {
    if ((mask & (1U << i)) == 0 || m_StreamThreads[i].IsRunning()) continue;
    if (m_bStreamFailed[i] && m_StreamStarts[i].GXTickCount() < STREAM_RESTART_MS) continue;
    m_bStreamFailed[i] = false;
    m_StreamStarts[i].Restart();
    m_StreamThreads[i].Start(THREADS[i].Entry, this, 0, Name() + THREADS[i].Suffix);
  }
}

unsigned CONVIFCam::RunStream(void* camera, int stream) {
  auto* const self = static_cast<CONVIFCam*>(camera);
  if (stream < JPEG_STREAMS ? self->RunJPEGMode(stream) : self->RunH264DVR()) return 0;
  self->m_bStreamFailed[stream] = true;
  self->SetErrorState();
  return 0;
}

unsigned CONVIFCam::StreamProc0(void* camera) {
  return RunStream(camera, 0);
}

unsigned CONVIFCam::StreamProc1(void* camera) {
  return RunStream(camera, 1);
}

unsigned CONVIFCam::StreamProc2(void* camera) {
  return RunStream(camera, 2);
}

unsigned CONVIFCam::H264_DVR_Proc(void* camera) {
  return RunStream(camera, JPEG_STREAMS);
}

// ---- Snapshot mode ----

int CONVIFCam::RunSnapshotMode() {
  const auto profiles = m_Model.Profiles();
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
  header.SetBasicAuthorization(UserName(), Password());
  const CGXString request = header.CreateString();
  // Without a pause: cameras keep a request waiting until they have the next picture.
  while (!StopFlag() && NSinks() > 0) {
    const std::unique_ptr<CHTMLPage> page(DoHTTPExchange(host, request, nullptr, 0, 80, 0));
    if (page == nullptr) return 0;
    ProcessVideoChunk(page->Data(), page->NBytes(), -1, -1);
  }
  return 1;
}

// ---- RTSP modes ----

CRTSPProfile CONVIFCam::VideoRTSPProfile(const CProfile& profile, RTP_TRANSPORT transport) const {
  CRTSPProfile rtsp;
  profile.ConfigureVideo(&rtsp);
  rtsp.Transport(transport);
  rtsp.UserName(UserName());
  rtsp.Password(Password());
  return rtsp;
}

bool CONVIFCam::StreamWanted(int stream) const {
  return !StopFlag() && (m_dwResMask & (1U << stream)) != 0;
}

int CONVIFCam::RunJPEGMode(int stream) {
  const CUserSettingsRef settings = m_Model.UserSettings(RTSP_PROFILE_JPEG, stream);
  if (settings == nullptr) {
    Trace("ERROR Profile Not Found");
    return 1;
  }
  const CProfileRef profile = ProfileByToken(settings->ProfileToken());
  if (profile == nullptr || !profile->EnsureRTSPConfig(this)) return 0;
  CRTSP session(profile->StreamUri(), profile->ControlURLVideo(), settings->Transport(), UserName(), Password(),
                -1, nullptr, nullptr);
  CRTSPProfile rtsp = VideoRTSPProfile(*profile, settings->Transport());
  if (!session.Login() || !session.Init(&rtsp) || !session.InitSession()) return 0;
  return ReceiveJPEG(&session, stream);
}

int CONVIFCam::ReceiveJPEG(CRTSP* session, int stream) {
  unsigned char packet[PACKET_BYTES];
  CJPEGAssembler assembler;
  while (StreamWanted(stream)) {
    const int length = session->WaitNextPacket(packet, PACKET_BYTES, PACKET_TIMEOUT_MS);
    if (length < 1) {
      if (!StreamWanted(stream)) break;  // told to end while waiting
      return 1;                          // a camera that fell silent is no failure: the stream is started again
    }
    switch (assembler.Add(packet, length)) {
      case CJPEGAssembler::Result::TOO_SHORT:
        AssertWrap("ONVIFCam", __LINE__);
        break;
      case CJPEGAssembler::Result::PICTURE:
        DeliverPicture(stream, assembler.Picture());
        break;
      default:
        break;
    }
  }
  session->Stop();
  return 1;
}

// Without a free frame the host is behind, and the picture is dropped.
void CONVIFCam::DeliverPicture(int stream, std::span<const unsigned char> picture) {
  CJPEGBuffer* const frame = GetFreeFrame();
  if (frame == nullptr) return;
  frame->SetData(picture.data(), static_cast<int>(picture.size()));
  frame->ResMode(stream, 1);
  frame->MotionData(m_iMotionLevel);
  SetReadyFrame(frame);
}

bool CONVIFCam::DVRWanted(unsigned generation) const {
  return !StopFlag() && m_bDVRActive && DVRGeneration() == generation;
}

int CONVIFCam::RunH264DVR() {
  const auto failed = [this](const char* text) {
    Trace(text);
    return 0;
  };
  const unsigned generation = DVRGeneration();
  const CUserSettingsRef settings = m_Model.DVRSettings(DVRResolutionIndex());
  if (settings == nullptr) {
    Trace("ERROR Profile Not Found");
    return 1;
  }
  const CProfileRef profile = ProfileByToken(settings->ProfileToken());
  if (profile == nullptr) return failed("ERROR: Missing H264/DVR Profile");
  if (!profile->EnsureRTSPConfig(this)) return failed("ERROR: H264/DVR Can't load profile");
  CRTSP session(profile->StreamUri(), profile->ControlURLVideo(), settings->Transport(), UserName(), Password(),
                -1, nullptr, nullptr);
  CRTSPProfile rtsp = VideoRTSPProfile(*profile, settings->Transport());
  if (!session.Login()) return failed("ERROR: H264/DVR Login Failed");
  if (!session.Init(&rtsp)) return failed("ERROR: H264/DVR Init Failed");
  std::printf("Doing Init Session %s\n", profile->StreamUri().Str().c_str());
  if (!session.InitSession()) return failed("ERROR: H264/DVR InitSession Failed");
  return ReceiveH264(&session, generation);
}

int CONVIFCam::ReceiveH264(CRTSP* session, unsigned generation) {
  unsigned char packet[PACKET_BYTES];
  const auto nal = std::make_unique<unsigned char[]>(NAL_BYTES);
  CAccessUnitCollector collector;
  CGXTimer watchdog;
  CH264Depacketizer depacketizer(-1);
  Trace("H264/DVR Stream Started OK");
  if (const std::shared_ptr<CDVRTarget> target = DVRTarget()) target->BeginStream();
  while (DVRWanted(generation)) {
    const int length = session->WaitNextPacket(packet, PACKET_BYTES, PACKET_TIMEOUT_MS);
    if (length < 1) {
      if (!DVRWanted(generation)) break;
      return 1;
    }
    // One packet may hold several units: parameter sets often come together.
    for (int size = depacketizer.ProcessRTP(packet, length, nal.get(), NAL_BYTES); size > 0;
         size = depacketizer.ProcessRTP(nullptr, 0, nal.get(), NAL_BYTES)) {
      watchdog.Restart();
      DeliverNAL(&collector, nal.get(), static_cast<size_t>(size));
    }
    if (watchdog.GXTickCount() > NAL_TIMEOUT_MS) {
      session->Stop();
      return 0;
    }
  }
  session->Stop();
  return 1;
}

void CONVIFCam::DeliverNAL(CAccessUnitCollector* collector, const unsigned char* nal, size_t length) {
  const CAccessUnitCollector::Result result = collector->Add(nal, length);
  if (result == CAccessUnitCollector::Result::KEPT) return;
  // Slices count, and a key picture too large to keep does too: the rate shows what a camera sends, and
  // installers compare it with the figures that they noted when they set the camera up.
  ++m_nDVRFrames;
  if (result == CAccessUnitCollector::Result::KEY_LOST) return;
  const std::shared_ptr<CDVRTarget> target = DVRTarget();
  if (target == nullptr) return;
  const std::span<const unsigned char> unit = collector->Unit();
  auto frame = std::make_unique<CFrameData>(FRAME_KIND_H264, nullptr, 0, 0, this, unit.data(),
                                            static_cast<int>(unit.size()), m_iMotionLevel, 0);
  frame->Options(collector->NALType());
  target->DeliverFrame(std::move(frame));
}
