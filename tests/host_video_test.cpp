// What the host does for every camera: sinks, frames, recording, the stored base record.
#include "host/frame_pool.h"
#include "host/gxassert.h"
#include "host/rate_window.h"
#include "host/system.h"
#include "host/video.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

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
  void SinkRemoved(CComponentSink*) override { Log += "-"; }
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
  int Mode() const { return m_iResMode; }

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
  EXPECT_TRUE(pool.PutReady(out[3]));
  EXPECT_TRUE(pool.PutReady(out[1]));
  EXPECT_EQ(pool.TakeFree(), nullptr);
  EXPECT_FALSE(pool.PutReady(out[3])) << "waits already";
  EXPECT_FALSE(pool.PutFree(out[1])) << "waits already";
  EXPECT_EQ(pool.TakeReady(), out[3]) << "the oldest first";
  EXPECT_TRUE(pool.PutFree(out[3]));
  EXPECT_FALSE(pool.PutFree(out[3])) << "free already";
  CJPEGBuffer stranger;
  EXPECT_FALSE(pool.PutFree(&stranger));
  EXPECT_EQ(pool.TakeFree(), out[3]);
}

TEST(Video, PictureIsDroppedWhenThePoolIsExhausted) {
  CFakeCamera camera;
  for (int i = 0; i < FRAME_POOL_SIZE; ++i) EXPECT_TRUE(camera.Picture(0));
  EXPECT_FALSE(camera.Picture(0));
  EXPECT_EQ(camera.Deliver(), FRAME_POOL_SIZE);
  EXPECT_TRUE(camera.Picture(0));
  const int asserts = AssertCount();
  CJPEGBuffer stranger;
  camera.SetFreeFrame(&stranger);
  camera.SetFreeFrame(nullptr);
  EXPECT_EQ(AssertCount(), asserts + 1);
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

TEST(Video, RemovedSinkIsNotBeingCalled) {
  CFakeCamera camera;
  std::atomic<bool> stop{false};
  std::thread main([&] {
    while (!stop) {
      const CMainThreadLock lock;
      camera.Picture(0);
      camera.Deliver();
    }
  });
  for (int i = 0; i < 200; ++i) {
    auto viewer = std::make_unique<CViewer>();
    camera.AddVideoSink(viewer.get());
    if (i % 2 == 0) std::this_thread::yield();
    camera.RemoveVideoSink(viewer.get(), 0);
  }
  stop = true;
  main.join();
}

TEST(Video, MotionRateAndStatistics) {
  CFakeCamera camera;
  EXPECT_EQ(camera.Motion(), -1);
  camera.Picture(0, "a", 100);
  camera.Picture(1, "b", 0);
  camera.Deliver();
  EXPECT_EQ(camera.Motion(), 0);
  EXPECT_DOUBLE_EQ(camera.IncomingFPS(), 1.0);
  CGXMSG msg;
  camera.GetVideoStats(&msg);
  EXPECT_EQ(msg.GetInt(), 100);
}

TEST(RateWindow, CountsTwoSeconds) {
  CRateWindow window;
  const CRateWindow::Clock::time_point start{1000s};
  for (int i = 0; i < 100; ++i) window.Count(start + i * 100ms);
  EXPECT_DOUBLE_EQ(window.PerSecond(start + 9900ms), 10.0);
  EXPECT_DOUBLE_EQ(window.PerSecond(start + 10900ms), 5.0);
  EXPECT_DOUBLE_EQ(window.PerSecond(start + 20s), 0.0);
}

TEST(Video, HttpAnswerBecomesAPicture) {
  const struct {
    std::string Page;
    std::vector<std::string> Expected;
  } cases[] = {{"HTTP/1.1 200 OK\r\n\r\n\xff\xd8picture", {"\xff\xd8picture"}},
               {"\xff\xd8", {"\xff\xd8"}},
               {"HTTP/1.1 404 Not Found\r\n\r\n\xff", {}},
               {"", {}}};
  for (const auto& [page, expected] : cases) {
    CFakeCamera camera;
    CViewer viewer;
    camera.AddVideoSink(&viewer);
    camera.ProcessVideoChunk(page.data(), static_cast<int>(page.size()), -1, -1);
    camera.Deliver();
    EXPECT_EQ(viewer.Seen, expected);
  }
}

TEST(Video, DeadOnlyWhileSomebodyWatches) {
  const auto waitFor = [](const std::function<bool()>& holds) {
    for (int i = 0; i < 2000 && !holds(); ++i) std::this_thread::sleep_for(1ms);
    return holds();
  };
  CFakeCamera camera;
  camera.DeadAfter(2, 20);
  CViewer viewer;
  std::this_thread::sleep_for(50ms);  // nobody watches: time does not count
  camera.ProcessDeadCamera();
  camera.AddVideoSink(&viewer);
  camera.ProcessDeadCamera();
  EXPECT_FALSE(camera.Dead());
  const auto idle = [&] {
    camera.ProcessDeadCamera();
    return camera.Dead();
  };
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(waitFor(idle));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 38ms);
  camera.Picture(0);
  camera.Deliver();
  EXPECT_FALSE(camera.Dead());
  EXPECT_TRUE(waitFor(idle));
  camera.RemoveVideoSink(&viewer, 0);
  EXPECT_FALSE(idle());
}

// ---- Recording ----

struct CRecorder : CDVRTarget {
  void DeliverFrame(std::unique_ptr<CFrameData> frame) override { Frames.push_back(std::move(frame)); }
  std::vector<std::unique_ptr<CFrameData>> Frames;
};

TEST(Video, WishToRecord) {
  CFakeCamera camera;
  camera.WantDVR(true);  // not loaded: its loading sequence will start it
  EXPECT_EQ(camera.DVRFlags() & DVR_FLAG_WANTED, DVR_FLAG_WANTED);
  EXPECT_EQ(camera.Log, "");
  camera.Kind = FRAME_KIND_JPEG;
  camera.WantDVR(true);
  EXPECT_EQ(camera.Log, "S+");
  EXPECT_TRUE(camera.FindSink(camera.DVRSink()));
  camera.DVRSink()->CameraRes(1);
  camera.WantDVR(true);  // another stream: the camera looks again, the sink is there once
  EXPECT_EQ(camera.Log, "S+S+");
  EXPECT_EQ(camera.NSinks(), 1);
  EXPECT_EQ(camera.GetResMask(), 2u);
  camera.WantDVR(false);
  EXPECT_EQ(camera.DVRFlags() & DVR_FLAG_WANTED, 0);
  EXPECT_EQ(camera.Log, "S+S+T-");
  EXPECT_EQ(camera.NSinks(), 0);
  camera.WantDVR(true);
  EXPECT_EQ(camera.Log, "S+S+T-S+");
}

TEST(Video, IndexChangesCount) {
  CFakeCamera camera;
  const unsigned generation = camera.DVRGeneration();
  camera.DVRResolutionIndex(0);
  EXPECT_EQ(camera.DVRGeneration(), generation);
  camera.DVRResolutionIndex(2);
  EXPECT_EQ(camera.DVRGeneration(), generation + 1);
}

TEST(Video, RecorderGetsThePicturesOfItsStream) {
  const auto recorder = std::make_shared<CRecorder>();
  CFakeCamera camera;
  camera.ID(42);
  camera.Kind = FRAME_KIND_JPEG;
  camera.WantDVR(true);
  camera.Picture(0, "nobody records");
  camera.Deliver();
  camera.DVRTarget(recorder);
  camera.Picture(0, "recorded", 100);
  camera.Picture(1, "another stream");
  camera.Deliver();
  camera.DVRTarget(nullptr);
  camera.Picture(0, "too late");
  camera.Deliver();
  ASSERT_EQ(recorder->Frames.size(), 1u);
  const CFrameData& frame = *recorder->Frames[0];
  EXPECT_EQ(frame.Kind(), FRAME_KIND_JPEG);
  EXPECT_EQ(frame.CameraID(), 42);
  EXPECT_EQ(frame.Motion(), 100);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(frame.Data()), static_cast<size_t>(frame.Length())),
            "recorded");
}

// ---- The stored record ----

TEST(Video, BaseRecord) {
  CFakeCamera camera, copy, broken;
  camera.UserName("admin");
  camera.Password("pass word");
  camera.ResMode(2);
  camera.WantDVR(true);
  camera.DVRResolutionIndex(3);
  CGXFile file;
  ASSERT_TRUE(camera.WriteData(&file, GX_FILE_VERSION));
  CGXFile stored(file.Items(), GX_FILE_VERSION);
  ASSERT_TRUE(copy.ReadData(&stored, GX_FILE_VERSION));
  EXPECT_TRUE(stored.Items().AtEnd());
  EXPECT_EQ(copy.UserName(), "admin");
  EXPECT_EQ(copy.Password(), "pass word");
  EXPECT_EQ(copy.Mode(), 2);
  EXPECT_EQ(copy.DVRFlags(), DVR_FLAG_WANTED);
  EXPECT_EQ(copy.DVRResolutionIndex(), 3);
  const auto items = file.Items().Items();
  for (size_t cut = 0; cut < items.size(); ++cut) {
    CGXFile part(CGXItems({items.begin(), items.begin() + static_cast<long>(cut)}), GX_FILE_VERSION);
    EXPECT_FALSE(broken.ReadData(&part, GX_FILE_VERSION)) << cut;
    CGXFile full;
    full.FailWritesFrom(static_cast<int>(cut));
    EXPECT_FALSE(camera.WriteData(&full, GX_FILE_VERSION)) << cut;
  }
}

}  // namespace
