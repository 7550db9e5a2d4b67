// What the host does for every camera: sinks, frames, recording, the stored base record.
#include "host/system/system.h"
#include "host/video/frame_pool.h"
#include "host/video/rate_window.h"
#include "host/video/video.h"
#include "tests/support/eventually.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

namespace {

using namespace std::chrono_literals;

class CFakeCamera : public CVideoSystem {
 public:
  CFakeCamera() : CVideoSystem(nullptr) {}
  int NResolutions(RTSP_PROFILE_TYPE type) override { return type == RTSP_PROFILE_JPEG ? Streams : 9; }
  void SinkAdded(CComponentSink*) override {
    EXPECT_TRUE(CSystem::Instance()->HoldsMainThread());
    Log += "+";
  }
  void SinkRemoved(CComponentSink*) override {
    EXPECT_TRUE(CSystem::Instance()->HoldsMainThread());
    Log += "-";
  }
  int DVREncodeType() override { return Kind; }
  void StartDVR() override {
    Log += "S";
    CVideoSystem::StartDVR();
  }
  void StopDVR() override {
    Log += "T";
    CVideoSystem::StopDVR();
  }
  void DeadAfter(int strikes, unsigned period) {
    m_iDeadStrikes = strikes;
    m_dwDeadPeriod = period;
  }

  // A picture as a stream thread hands it over; false when the pool had no frame for it.
  bool Picture(int stream, const std::string& bytes = "jpeg", int motion = 100) {
    CJPEGBuffer* const frame = GetFreeFrame();
    if (frame == nullptr) return false;
    frame->SetData(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    frame->ResMode(stream, 1);
    frame->MotionData(motion);
    SetReadyFrame(frame);
    return true;
  }
  int Deliver() {
    int pictures = 0;
    for (; CJPEGBuffer* frame = GetReadyFrame(); ++pictures) {
      ProcessFrame(frame);
      SetFreeFrame(frame);
    }
    return pictures;
  }

  int Streams = 3, Kind = -1;
  std::string Log;
};

struct CViewer : CVideoSink {
  explicit CViewer(int resolution = 0) : CVideoSink("viewer") { CameraRes(resolution); }
  void OnFrame(const CJPEGBuffer* frame) override {
    Seen.emplace_back(reinterpret_cast<const char*>(frame->Data()), static_cast<size_t>(frame->Length()));
    if (Then) Then();
  }
  std::vector<std::string> Seen;
  std::function<void()> Then;
};

TEST(FramePool, IsBoundedAndGivesNothingTwice) {
  CFramePool pool;
  std::vector<CJPEGBuffer*> out;
  while (CJPEGBuffer* frame = pool.TakeFree()) out.push_back(frame);
  ASSERT_EQ(out.size(), static_cast<size_t>(FRAME_POOL_SIZE));
  EXPECT_TRUE(pool.PutReady(out[3]) && pool.PutReady(out[1]));
  EXPECT_EQ(pool.TakeFree(), nullptr);
  EXPECT_FALSE(pool.PutReady(out[3]) || pool.PutFree(out[1])) << "they wait already";
  EXPECT_EQ(pool.TakeReady(), out[3]) << "the oldest first";
  EXPECT_TRUE(pool.PutFree(out[3]));
  CJPEGBuffer stranger;
  EXPECT_FALSE(pool.PutFree(out[3]) || pool.PutFree(&stranger));
  EXPECT_EQ(pool.TakeFree(), out[3]);

  CFakeCamera camera;
  for (int i = 0; i < FRAME_POOL_SIZE; ++i) EXPECT_TRUE(camera.Picture(0));
  EXPECT_FALSE(camera.Picture(0)) << "dropped";
  EXPECT_EQ(camera.Deliver(), FRAME_POOL_SIZE);
  EXPECT_TRUE(camera.Picture(0));
}

TEST(Video, RoutesEachStreamToWhoWantsIt) {
  // What a sink asks for, how many JPEG streams there are, the stream it gets, its bit of the mask.
  const struct {
    int CameraRes, Streams, Stream;
    unsigned Mask;
  } cases[] = {{-1, 3, 0, 1}, {0, 3, 0, 1}, {1, 3, 1, 2}, {2, 3, 2, 4}, {7, 3, 2, 4},  {2, 2, 1, 4},
               {2, 1, 0, 4},  {1, 0, 0, 2}, {0, 1, 0, 1}, {1, 9, 1, 2}, {-5, 0, 0, 1}, {7, 9, 2, 4}};
  for (const auto& wanted : cases) {
    CFakeCamera camera;
    camera.Streams = wanted.Streams;
    EXPECT_EQ(camera.GetResMask(), 0u);
    CViewer viewer(wanted.CameraRes);
    struct CPlainSink : CComponentSink {
    } other;
    camera.AddVideoSink(&other);
    camera.AddVideoSink(&viewer);
    EXPECT_EQ(camera.GetResMask(), wanted.Mask);
    for (int stream = 0; stream < 3; ++stream)
      camera.Picture(stream, std::string(1, static_cast<char>('0' + stream)));
    camera.Deliver();
    EXPECT_EQ(viewer.Seen, std::vector<std::string>{std::to_string(wanted.Stream)})
        << wanted.CameraRes << " of " << wanted.Streams;
  }
}

TEST(Video, SinksComeAndGo) {
  CFakeCamera camera;
  CViewer first, second;
  camera.AddVideoSink(&first);
  camera.AddVideoSink(&first);
  camera.AddVideoSink(&second);
  EXPECT_EQ(camera.NSinks(), 2);
  EXPECT_EQ(camera.Sink(1), &second);
  EXPECT_EQ(camera.Sink(2), nullptr);
  first.Then = [&] { camera.RemoveVideoSink(&first, 0); };
  camera.Picture(0);
  camera.Picture(0);
  camera.Deliver();
  EXPECT_EQ(first.Seen.size(), 1u);
  EXPECT_EQ(second.Seen.size(), 2u);
  camera.RemoveVideoSink(&first, 0);  // unknown now
  camera.RemoveVideoSink(&second, 1);
  EXPECT_EQ(camera.Log, "++-");
  camera.Leaving(true);
  camera.AddVideoSink(&second);
  camera.StartDVR();
  EXPECT_EQ(camera.NSinks(), 0);
}

TEST(Video, MotionAndRate) {
  CFakeCamera camera;
  EXPECT_EQ(camera.Motion(), -1);
  camera.Picture(0, "a", 100);
  camera.Picture(1, "b", 0);
  camera.Deliver();
  EXPECT_EQ(camera.Motion(), 0);

  CRateWindow window;
  const CRateWindow::Clock::time_point start{1000s};
  for (int i = 0; i < 100; ++i) window.Count(start + i * 100ms);
  EXPECT_DOUBLE_EQ(window.PerSecond(start + 9900ms), 10.0);
  EXPECT_DOUBLE_EQ(window.PerSecond(start + 10900ms), 5.0);
  EXPECT_DOUBLE_EQ(window.PerSecond(start + 20s), 0.0);
}

TEST(Video, HttpAnswerBecomesAPicture) {
  CFakeCamera camera;
  CViewer viewer;
  camera.AddVideoSink(&viewer);
  for (const std::string page :
       {"HTTP/1.1 404 Not Found\r\n\r\n\xff", "", "HTTP/1.1 200 OK\r\n\r\n\xff\xd8picture"})
    camera.ProcessVideoChunk(page.data(), static_cast<int>(page.size()), -1, -1);
  camera.Deliver();
  EXPECT_EQ(viewer.Seen, std::vector<std::string>{"\xff\xd8picture"});
}

TEST(Video, DeadOnlyWhileSomebodyWatches) {
  CFakeCamera camera;
  camera.DeadAfter(2, 20);
  CViewer viewer;
  const auto dies = [&] {
    camera.ProcessDeadCamera();
    return camera.Dead();
  };
  EXPECT_FALSE(Eventually(0.1, dies));
  const auto begin = Clock::now();
  EXPECT_FALSE(dies());  // its time begins anew
  camera.AddVideoSink(&viewer);
  EXPECT_TRUE(Eventually(20, dies));
  EXPECT_GE(SecondsSince(begin), 0.04);
  camera.Picture(0);
  camera.Deliver();
  EXPECT_FALSE(camera.Dead());
  EXPECT_TRUE(Eventually(20, dies));
  camera.RemoveVideoSink(&viewer, 0);
  EXPECT_FALSE(dies());
}

// ---- Recording ----

TEST(Video, RecordsWhileItIsWanted) {
  struct CRecorder : CDVRTarget {
    void BeginStream() override { Log += "stream"; }
    void DeliverFrame(std::unique_ptr<CFrameData> frame) override {
      const auto* const data = reinterpret_cast<const char*>(frame->Data());
      for (const int number : {frame->Kind(), frame->CameraID(), frame->Motion()})
        Log += std::to_string(number) + ",";
      Log += std::string(data, static_cast<size_t>(frame->Length()));
    }
    std::string Log;
  };
  const auto recorder = std::make_shared<CRecorder>();
  CFakeCamera camera;
  camera.ID(42);
  camera.WantDVR(true);  // not loaded: its loading sequence will start it
  EXPECT_EQ(camera.Log, "");
  camera.Kind = FRAME_KIND_JPEG;
  camera.WantDVR(true);
  EXPECT_EQ(camera.DVRFlags() & DVR_FLAG_WANTED, DVR_FLAG_WANTED);
  camera.Picture(0, "nobody records");
  camera.Deliver();
  camera.DVRTarget(recorder);
  camera.Picture(0, "recorded");
  camera.Picture(1, "another stream");
  camera.Deliver();
  camera.DVRTarget(nullptr);
  camera.Picture(0, "too late");
  camera.Deliver();
  EXPECT_EQ(recorder->Log, "2,42,100,recorded");

  const unsigned generation = camera.DVRGeneration();
  for (const int index : {0, 2}) camera.DVRResolutionIndex(index);  // the first is no change
  EXPECT_EQ(camera.DVRGeneration(), generation + 1);
  camera.WantDVR(true);  // another stream: the camera looks again, the sink is there once
  EXPECT_EQ(camera.NSinks(), 1);
  camera.WantDVR(false);
  EXPECT_EQ(camera.DVRFlags() & DVR_FLAG_WANTED, 0);
  EXPECT_EQ(camera.Log, "S+S+T-");
}

}  // namespace
