// Pictures and recordings from the simulated cameras, judged by libjpeg and ffprobe.
#include "tests/camera_script.h"
#include "tests/support/jpeg_judge.h"

#include <unistd.h>

#include <cstdio>
#include <fstream>

namespace {

constexpr unsigned RUNNING = 0x800;
constexpr double SECONDS_TO_PICTURE = 12;  // from a camera's first answer after a power cut

class Streams : public testing::Test {
 protected:
  void Start(std::vector<std::string> arguments) {
    ASSERT_TRUE(SetNetworkInterface("lo"));
    m_pSim = std::make_unique<CCamsim>(arguments);
    ASSERT_TRUE(m_pSim->Ready()) << m_pSim->Output();
  }
  // Takes the camera into service and waits until it runs.
  CONVIFCam* Run(std::unique_ptr<CONVIFCam> camera) {
    CONVIFCam* const added = camera.get();
    CSystem::Instance()->AddComponent(std::move(camera));
    added->StartThread("ONVIFCam");
    EXPECT_TRUE(Eventually(60, [&] { return (added->RunState() & RUNNING) != 0; }));
    return added;
  }

  std::unique_ptr<CCamsim> m_pSim;
  CHostAtWork m_Host;
};

TEST_F(Streams, DeliverPicturesThatDecodeOverBothTransports) {
  Start({"--camera", "ptz"});
  for (const int transport : {RTP_TRANSPORT_TCP, RTP_TRANSPORT_UDP}) {
    SCOPED_TRACE(transport);
    auto owned = StaticCamera(SimURL(1));
    SetEntries(owned.get(), {}, {Entry("Profile_2", transport), Entry("Profile_3", transport)});
    CPictureSink large(0), small(1), beyond(2);
    CONVIFCam* const camera = Run(std::move(owned));
    for (CPictureSink* sink : {&large, &small, &beyond}) camera->AddVideoSink(sink);
    EXPECT_TRUE(
        Eventually(60, [&] { return large.Count() > 10 && small.Count() > 10 && beyond.Count() > 10; }));
    for (CPictureSink* sink : {&large, &small, &beyond}) camera->RemoveVideoSink(sink, 0);
    const std::pair<CPictureSink*, int> widths[] = {{&large, 640}, {&small, 320}, {&beyond, 320}};
    for (const auto& [sink, width] : widths)  // beyond the last stream there is: the last
      for (const auto& picture : sink->Kept()) ASSERT_EQ(DecodeJPEG(picture).Width, width);
    CSystem::Instance()->RemoveComponent(camera->ID());
  }
}

TEST_F(Streams, RecordH264ThatFfprobeDecodesOverBothTransports) {
  Start({"--camera", "ptz"});
  for (const int transport : {RTP_TRANSPORT_TCP, RTP_TRANSPORT_UDP}) {
    SCOPED_TRACE(transport);
    auto owned = StaticCamera(SimURL(1));
    SetEntries(owned.get(), {Entry("Profile_1", transport)}, {Entry("Profile_2")});
    const auto recording = std::make_shared<CFrameKeeper>();
    owned->DVRTarget(recording);
    owned->DVRResolutionIndex(1);
    owned->WantDVR(true);  // before it is loaded: it starts by itself
    const CTraceKeeper trace(owned.get());
    CONVIFCam* const camera = Run(std::move(owned));
    EXPECT_TRUE(Eventually(60, [&] { return recording->Count() > 40; }));
    EXPECT_TRUE(trace.Has("H264/DVR Stream Started OK"));
    EXPECT_EQ(recording->Openings(), std::vector<size_t>{0}) << "told once, before anything came";
    // No JPEG pictures, no motion information, one taker; its rate is taken every two seconds.
    std::string stats;
    EXPECT_TRUE(Eventually(20, [&] {
      CGXMSG msg;
      camera->GetVideoStats(&msg);
      stats = Dump(msg.Items());
      return !stats.ends_with("|0");
    }));
    EXPECT_TRUE(stats.starts_with("0|-1|1|H264-DVR|")) << stats;

    const int id = camera->ID();
    CSystem::Instance()->RemoveComponent(id);
    const std::string path = testing::TempDir() + "camera_stream_test." + std::to_string(getpid());
    std::ofstream file(path, std::ios::binary);
    bool begun = false;
    recording->Each([&](const CFrameData& frame) {
      ASSERT_EQ(frame.Kind(), FRAME_KIND_H264);
      ASSERT_EQ(frame.CameraID(), id);
      begun = begun || frame.Options() == 5;
      if (begun) file.write(reinterpret_cast<const char*>(frame.Data()), frame.Length());
    });
    file.close();
    const CCommandResult judged = RunCommand(
        "ffprobe -v error -f h264 -count_frames -show_entries stream=codec_name,width,nb_read_frames -of "
        "csv=p=0 " +
        path + " 2>&1");
    EXPECT_EQ(judged.status, 0);
    EXPECT_EQ(judged.output.substr(0, 10), "h264,1280,") << judged.output;
    EXPECT_GT(std::atoi(judged.output.c_str() + 10), 20) << judged.output;
    std::remove(path.c_str());
  }
}

TEST_F(Streams, FindACameraAgainByItsIdentity) {
  Start({"--camera", "ptz", "--camera", "alarm", "--quirk", "clock_offset=7200"});
  auto owned = std::make_unique<CONVIFCam>(CameraDefinition(CONVIFCam::TYPE_DISCOVERED));
  CDeviceConfig record = DeviceRecord(CONVIFCam::TYPE_DISCOVERED, {{"Manufacturer", "Orvell"},
                                                                   {"Model", "OV-4 Bullet"},
                                                                   {"Firmware", "4.9"},
                                                                   {"Serial No.", "ORV000000002"},
                                                                   {"Hardware ID", "OV4-B"},
                                                                   {"Service URL", "http://127.0.0.99/gone"},
                                                                   {"UserName", "admin"},
                                                                   {"Password", "secret"}});
  owned->LoadFrom(&record);
  CSystem::Instance()->TakeSaveRequest();
  const CTraceKeeper trace(owned.get());
  CONVIFCam* const camera = Run(std::move(owned));
  EXPECT_EQ(camera->ServiceURL().Str(), SimURL(2));
  EXPECT_EQ(camera->RunState() & 0x201, 1U);            // found, never asked who it is
  EXPECT_TRUE(CSystem::Instance()->TakeSaveRequest());  // it has a newer firmware
  EXPECT_EQ(trace.Lines().front(), "Looking for Service URL...");
  EXPECT_TRUE(Eventually(20, [&] { return CIntercomServer::Instance()->HasClient(camera); }));
  sockaddr_in address{};
  EXPECT_TRUE(camera->GetCameraAddress(&address));
  EXPECT_EQ(GXFormatAddress(&address), "127.0.0.12");
}

TEST_F(Streams, ComeBackAfterAPowerCut) {
  Start({"--camera", "ptz"});
  CPictureSink sink;
  CONVIFCam* const camera = Run(StaticCamera(SimURL(1)));
  CTraceKeeper trace(camera);
  camera->AddVideoSink(&sink);
  ASSERT_TRUE(Eventually(60, [&] { return sink.Count() > 5; }));
  double fastest = 60;  // of three at most: a machine may have much else to do, but not each time
  for (int cut = 0; cut < 3 && fastest > SECONDS_TO_PICTURE; ++cut) {
    trace.Forget();
    ASSERT_FALSE(m_pSim->Post("/cameras/1/power", {{"on", false}}).is_null());
    EXPECT_TRUE(Eventually(60, [&] { return trace.Has("FAILED"); }));
    EXPECT_EQ(camera->RunState() & RUNNING, 0U);
    const int before = sink.Count();
    ASSERT_FALSE(m_pSim->Post("/cameras/1/power", {{"on", true}}).is_null());
    const auto answering = Clock::now();
    EXPECT_TRUE(Eventually(60, [&] { return sink.Count() > before + 2; }));
    fastest = std::min(fastest, SecondsSince(answering));
    std::printf("pictures again after %.1f s\n", SecondsSince(answering));
  }
  EXPECT_LT(fastest, SECONDS_TO_PICTURE);
  camera->RemoveVideoSink(&sink, 0);
}

TEST_F(Streams, FollowTheUserToAnotherAddress) {
  Start({"--camera", "ptz", "--camera", "door"});
  CPictureSink sink;
  CONVIFCam* const camera = Run(StaticCamera(SimURL(1)));
  camera->AddVideoSink(&sink);
  ASSERT_TRUE(Eventually(60, [&] { return sink.Count() > 3; }));
  {
    const CTraceKeeper trace(camera);
    camera->SetConfigURL(SimURL(1));
    EXPECT_NE(camera->RunState(), 0U);
    EXPECT_TRUE(trace.Lines().empty());
  }
  SetEntries(camera, {}, {Entry("p0")});
  camera->SetConfigURL(SimURL(2));
  EXPECT_TRUE(Eventually(60, [&] {
    return camera->IsDoorStation() && CEventServer::Instance()->HasCommand(camera->ID(), COMMAND_PLACE_CALL);
  }));
  const int before = sink.Count();
  EXPECT_TRUE(Eventually(60, [&] { return sink.Count() > before + 3; }));
  camera->RemoveVideoSink(&sink, 0);
}

TEST_F(Streams, TakeSnapshotsInstead) {
  Start({"--camera", "ptz"});
  auto camera = StaticCamera(SimURL(1));
  EXPECT_EQ(camera->RunSnapshotMode(), 0);  // no profiles yet
  ASSERT_TRUE(camera->CheckRunState());
  EXPECT_EQ(camera->RunSnapshotMode(), 1);  // nobody watches
  CPictureSink sink;
  {
    const CMainThreadLock lock;  // the connection thread, which a viewer starts, gets no further than this
    camera->AddVideoSink(&sink);
    camera->StopThread();
  }
  camera->StopFlag(false);
  std::thread snapshots([&] { EXPECT_EQ(camera->RunSnapshotMode(), 1); });
  EXPECT_TRUE(Eventually(60, [&] {
    camera->OnComponentIdle();
    return sink.Count() > 3;
  }));
  camera->StopFlag(true);
  snapshots.join();
  for (const auto& picture : sink.Kept()) EXPECT_GT(DecodeJPEG(picture).Width, 0);
  camera->RemoveVideoSink(&sink, 0);
}

class CNotices : public CNotifySink {
 public:
  void OnNotify(int, int code) override { m_iCode = code; }
  std::atomic<int> m_iCode{0};
};

// What the host asks for is applied to the camera first; a notice tells when the stream can be opened.
TEST_F(Streams, BringTheCameraIntoLineBeforeTheyAreOpened) {
  Start({"--camera", "ptz"});
  CONVIFCam* const camera = Run(StaticCamera(SimURL(1)));
  const struct {
    const char* EncoderSet;
    int Bitrate;
    const char* Line;
  } cases[] = {{"exact", 1500, "SUCCESS"},
               {"round", 1111, "WARNING: Encoder settings didn't stick, changing our params"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.EncoderSet);
    m_pSim->Quirks(1, {{"encoder_set", c.EncoderSet}});
    SetEntries(camera,
               {Entry("Profile_1", RTP_TRANSPORT_TCP, "VE_1", "H264",
                      "60|12|1|12|" + std::to_string(c.Bitrate) + "|1280|720|4")},
               {Entry("Profile_2")});
    const CTraceKeeper trace(camera);
    CNotices notices;
    camera->AddONVIF_Client(&notices);
    CResolutionDescriptor descriptor;
    camera->LoadResolutionDescriptor(0, &descriptor, RTSP_PROFILE_H264);
    EXPECT_EQ(camera->LoadRTSPProfile(&descriptor), nullptr);
    EXPECT_TRUE(Eventually(60, [&] { return notices.m_iCode != 0; }));
    camera->RemoveONVIF_Client(&notices);
    EXPECT_EQ(notices.m_iCode, 2);  // profile 0, encoder 0
    EXPECT_TRUE(trace.Has(c.Line) && trace.Has("SUCCESS"));
    const std::unique_ptr<CRTSPProfile> rtsp(camera->LoadRTSPProfile(&descriptor));
    ASSERT_NE(rtsp, nullptr);
    EXPECT_EQ(rtsp->PayloadType(), RTSP_PAYLOAD_H264);
    EXPECT_EQ(rtsp->Transport(), RTP_TRANSPORT_TCP);
    EXPECT_EQ(rtsp->UserName(), "admin");
    EXPECT_GT(rtsp->NStartupData(), 10);
    EXPECT_EQ(rtsp->Resolution().Width, 1280);
    EXPECT_EQ(camera->GetRTSPResolution(RTSP_PROFILE_H264, -1), 0);
  }
}

}  // namespace
