// Recordings: made from streams that ffmpeg encodes, judged by ffprobe and ffmpeg.
#include "controller/recording/picture_joiner.h"
#include "controller/recording/recorder.h"
#include "tests/support/controller_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace {

using testing::HasSubstr;
using Bytes = std::vector<unsigned char>;

// What a command prints on both outputs; the test fails when it does.
std::string Output(const std::string& command) {
  const CCommandResult result = RunCommand(command + " 2>&1");
  EXPECT_EQ(result.status, 0) << command << "\n" << result.output;
  return result.output;
}

// An Annex B stream of 320x240 with a key frame every `gov` pictures and that many slices a picture.
Bytes Encode(const std::string& folder, int pictures, int gov, int slices, const char* size = "320x240") {
  const std::string path = folder + "/stream.h264";
  Output("ffmpeg -y -v error -f lavfi -i testsrc=size=" + std::string(size) + ":rate=25 -frames:v " +
         std::to_string(pictures) +
         " -c:v libx264 -pix_fmt yuv420p -threads 1 -x264-params keyint=" + std::to_string(gov) +
         ":min-keyint=" + std::to_string(gov) + ":scenecut=0:bframes=0:slices=" + std::to_string(slices) +
         ":repeat-headers=1 -bsf:v h264_mp4toannexb -f h264 " + path);
  const std::string bytes = Text(path);
  return {bytes.begin(), bytes.end()};
}

// Cuts a stream into pieces as the camera hands them over: parameter sets and the first slice of a key frame
// together, every other slice alone.
std::vector<std::unique_ptr<CFrameData>> Pieces(const Bytes& stream, bool inBandSets = true) {
  std::vector<std::unique_ptr<CFrameData>> pieces;
  Bytes before;
  for (const CBytes unit : SplitUnits(stream)) {
    const int type = NalType(unit);
    const bool set = type == NAL_SPS || type == NAL_PPS;
    if (set && !inBandSets) continue;
    Bytes bytes = {0, 0, 1};
    bytes.insert(bytes.end(), unit.begin(), unit.end());
    before.insert(before.end(), bytes.begin(), bytes.end());
    if (type > NAL_IDR) continue;
    const Bytes& piece = type == NAL_IDR ? before : bytes;
    pieces.push_back(std::make_unique<CFrameData>(FRAME_KIND_H264, nullptr, 0, 0, nullptr, piece.data(),
                                                  static_cast<int>(piece.size()), 100, 0));
    pieces.back()->Options(type);
    before.clear();
  }
  return pieces;
}

class Recorder : public CFolderTest {
 protected:
  void Deliver(CRecorder& recorder, std::vector<std::unique_ptr<CFrameData>> pieces, size_t from = 0) {
    for (size_t i = from; i < pieces.size(); ++i) recorder.DeliverFrame(std::move(pieces[i]));
  }

  // Pictures that ffmpeg decodes from the file, without a word of complaint.
  static int Decoded(const std::string& path) {
    EXPECT_EQ(Output("ffmpeg -v warning -xerror -i '" + path + "' -enc_time_base -1 -f null -"), "") << path;
    return std::stoi(
        Output("ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames "
               "-of csv=p=0 '" +
               path + "'"));
  }

  static std::string Probe(const std::string& path, const std::string& entries) {
    return Output("ffprobe -v error -select_streams v -show_entries " + entries + " -of csv=p=0 '" + path +
                  "'");
  }
};

TEST_F(Recorder, JoinsSlicesAndBeginsAtAKeyFrame) {
  const Bytes stream = Encode(m_Folder, 60, 20, 4);
  CRecorder recorder(m_Folder, "Front door/1");
  Deliver(recorder, Pieces(stream), 9);  // the camera was in the middle: two pictures and a slice have gone by
  recorder.Stop();
  const CRecorderStatus status = recorder.Status();
  ASSERT_EQ(status.Paths.size(), 1u);
  EXPECT_THAT(status.Paths[0], HasSubstr("/Front-door-1-"));
  EXPECT_EQ(status.Delivered, 57) << "pictures, not slices";
  EXPECT_EQ(status.Motion, 100) << "as the last piece carried it";
  EXPECT_EQ(status.Written, 40) << "from the second key frame on";
  EXPECT_EQ(Decoded(status.Paths[0]), 40);
  EXPECT_THAT(Probe(status.Paths[0], "stream=codec_name,width,height"), HasSubstr("h264,320,240"));
}

TEST_F(Recorder, TimesAreThoseOfArrivalAndIncrease) {
  const Bytes stream = Encode(m_Folder, 30, 10, 1);
  CRecorder recorder(m_Folder, "a");
  const auto begin = Clock::now();
  auto pieces = Pieces(stream);
  for (size_t i = 0; i < pieces.size(); ++i) {
    if (i == 15) usleep(1300000);  // the camera paused; the rest arrives at once
    recorder.DeliverFrame(std::move(pieces[i]));
  }
  const double took = SecondsSince(begin);
  recorder.Stop();
  const std::string path = recorder.Status().Paths.at(0);
  EXPECT_EQ(Decoded(path), 30);
  std::istringstream times(Probe(path, "packet=pts_time"));
  double last = -1, time = 0, gap = 0;
  while (times >> time) {
    EXPECT_GT(time, last + (last < 0 ? 0 : 0.0399)) << "bursts are drawn out to the stream's own rate";
    if (last >= 0) gap = std::max(gap, time - last);
    last = time;
    times.ignore(2, '\n');
  }
  EXPECT_GE(gap, 1.3 - 14 * 0.04) << "the pause is there, less what the burst before it was drawn out";
  EXPECT_LE(last, took + 14 * 0.04 + 0.05);
}

TEST_F(Recorder, ParameterSetsFromOutsideTheStream) {
  const Bytes stream = Encode(m_Folder, 30, 10, 1);
  CRecorder recorder(m_Folder, "a");
  Deliver(recorder, Pieces(stream, false));
  ASSERT_TRUE(Eventually(20, [&] { return recorder.Status().WantsSets; }));
  recorder.StreamInfo(ParameterSetsOf(stream), CPictureFormat{640, 480, 0});
  recorder.Stop();
  ASSERT_EQ(recorder.Status().Paths.size(), 1u);
  EXPECT_EQ(Decoded(recorder.Status().Paths[0]), 30);
}

TEST_F(Recorder, NewSizeBeginsANewFileAndSoDoesTime) {
  const Bytes small = Encode(m_Folder, 20, 10, 1), large = Encode(m_Folder, 20, 10, 1, "640x360");
  CRecorder recorder(m_Folder, "a");
  Deliver(recorder, Pieces(small));
  Deliver(recorder, Pieces(large));
  recorder.Stop();
  const CRecorderStatus status = recorder.Status();
  ASSERT_EQ(status.Paths.size(), 2u);
  EXPECT_EQ(Decoded(status.Paths[0]), 20);
  EXPECT_EQ(Decoded(status.Paths[1]), 20);
  EXPECT_THAT(Probe(status.Paths[1], "stream=width,height"), HasSubstr("640,360"));

  const Bytes stream = Encode(m_Folder, 40, 10, 2);
  CRecorder segments(m_Folder, "s", CByteBudget::Common(), 1);
  Deliver(segments, Pieces(stream));
  segments.Stop();
  const std::vector<std::string> paths = segments.Status().Paths;
  ASSERT_EQ(paths.size(), 4u) << "each from a key frame on";
  for (const std::string& path : paths) {
    EXPECT_EQ(Decoded(path), 10) << "none is lost between two";
    EXPECT_EQ(std::filesystem::status(path).permissions() & std::filesystem::perms::others_all,
              std::filesystem::perms::none);
  }
  EXPECT_TRUE(std::ranges::is_sorted(paths));
}

// A stream that the camera opens anew goes on in the middle of a group: what is left of it cannot be decoded.
TEST_F(Recorder, NewStreamWaitsForItsKeyFrame) {
  const Bytes stream = Encode(m_Folder, 30, 10, 2);
  CRecorder recorder(m_Folder, "a");
  auto first = Pieces(stream);
  first.resize(11);  // five pictures and half of the sixth
  Deliver(recorder, std::move(first));
  recorder.BeginStream();
  Deliver(recorder, Pieces(stream), 12);  // from the seventh picture on
  recorder.Stop();
  ASSERT_EQ(recorder.Status().Paths.size(), 1u);
  EXPECT_EQ(Decoded(recorder.Status().Paths[0]), 5 + 20);
}

TEST_F(Recorder, OverflowDropsUpToTheNextKeyFrame) {
  const Bytes stream = Encode(m_Folder, 60, 20, 2);
  // The first key frame lacks its parameter sets, so the writer waits and the queue fills.
  auto blocked = Pieces(stream, false), pieces = Pieces(stream);
  const size_t group = 40;  // pieces of a group
  size_t bytes = 0;
  for (size_t i = 0; i < group / 2; ++i) bytes += static_cast<size_t>(blocked[i]->Length()) + 256;
  CByteBudget budget(bytes);
  CRecorder recorder(m_Folder, "a", &budget), neighbour(m_Folder, "b", &budget);
  for (size_t i = 0; i < group; ++i) recorder.DeliverFrame(std::move(blocked[i]));
  EXPECT_GT(recorder.Status().Dropped, 0);
  EXPECT_THAT(recorder.Status().Error, HasSubstr("does not keep up"));
  ASSERT_TRUE(Eventually(20, [&] { return recorder.Status().WantsSets; }));
  const size_t left = budget.Left();
  EXPECT_LT(left, bytes);
  EXPECT_TRUE(budget.Take(left));
  neighbour.DeliverFrame(std::move(Pieces(stream)[0]));
  EXPECT_EQ(neighbour.Status().Dropped, 1) << "one budget for both";
  budget.Give(left);
  recorder.StreamInfo(ParameterSetsOf(stream), CPictureFormat{320, 240, 0});
  ASSERT_TRUE(Eventually(20, [&] { return recorder.Status().Written >= 8; }));  // the queue has room again
  for (size_t i = group + 6; i < 2 * group; ++i) recorder.DeliverFrame(std::move(pieces[i]));
  const int64_t before = recorder.Status().Written;
  for (size_t i = 2 * group; i < pieces.size(); ++i) {
    recorder.DeliverFrame(std::move(pieces[i]));
    const auto whole = before + static_cast<int64_t>(i - 2 * group) / 2;
    ASSERT_TRUE(Eventually(20, [&] { return recorder.Status().Written >= whole; })) << i;
  }
  recorder.Stop();
  const CRecorderStatus status = recorder.Status();
  ASSERT_EQ(status.Paths.size(), 1u);
  EXPECT_GE(status.Written, before + 20) << "everything from the next key frame on";
  EXPECT_LT(status.Written, 60);
  EXPECT_EQ(budget.Left(), bytes) << "all is given back";
  EXPECT_EQ(Decoded(status.Paths[0]), status.Written);
}

TEST_F(Recorder, JPEGPicturesBecomeAMovie) {
  Output("ffmpeg -y -v error -f lavfi -i testsrc=size=176x144:rate=5 -frames:v 12 -pix_fmt yuvj420p " +
         m_Folder + "/%02d.jpg");
  CRecorder recorder(m_Folder, "a");
  for (int i = 1; i <= 12; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "/%02d.jpg", i);
    const std::string jpeg = Text(m_Folder + name);
    recorder.DeliverFrame(std::make_unique<CFrameData>(FRAME_KIND_JPEG, nullptr, 0, 0, nullptr,
                                                       reinterpret_cast<const unsigned char*>(jpeg.data()),
                                                       static_cast<int>(jpeg.size()), -1, 0));
  }
  const unsigned char rubbish[] = {0xFF, 0xD8, 0xFF, 0xC0};
  recorder.DeliverFrame(
      std::make_unique<CFrameData>(FRAME_KIND_JPEG, nullptr, 0, 0, nullptr, rubbish, 4, -1, 0));
  recorder.Stop();
  ASSERT_EQ(recorder.Status().Paths.size(), 1u);
  EXPECT_EQ(Decoded(recorder.Status().Paths[0]), 12);
  EXPECT_THAT(Probe(recorder.Status().Paths[0], "stream=codec_name,width,height"), HasSubstr("mjpeg,176,144"));
}

TEST_F(Recorder, KilledProcessLeavesWhatWasWrittenAndNoEmptyShell) {
  const Bytes stream = Encode(m_Folder, 60, 10, 1);
  const auto recordings = [this](const char* ending) {
    std::vector<std::string> paths;
    for (const auto& entry : std::filesystem::directory_iterator(m_Folder))
      if (entry.path().extension() == ending) paths.push_back(entry.path());
    return paths;
  };
  for (const size_t pictures : {size_t{4}, size_t{60}}) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      CRecorder recorder(m_Folder, "a");
      auto pieces = Pieces(stream);
      pieces.resize(pictures);
      for (auto& piece : pieces) recorder.DeliverFrame(std::move(piece));
      while (recorder.Status().Written < static_cast<int64_t>(pictures) - 1) usleep(1000);
      kill(getpid(), SIGKILL);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ(recordings(".mp4").size(), pictures > 10 ? 1u : 0u) << "nothing to play, nothing in the list";
  }
  EXPECT_GE(Decoded(recordings(".mp4").at(0)), 40) << "all but the last group";
  const CRecorder next(m_Folder, "a");
  EXPECT_TRUE(recordings(".part").empty());
}

TEST_F(Recorder, FolderThatIsGoneIsReportedUntilItIsBack) {
  const Bytes stream = Encode(m_Folder, 10, 10, 1);
  const std::string folder = m_Folder + "/recordings";
  CRecorder recorder(folder, "a");
  const auto becomes = [&](const char* error) {
    return Eventually(30, [&] {
      Deliver(recorder, Pieces(stream));
      usleep(100000);
      const std::string now = recorder.Status().Error;
      return *error == '\0' ? now.empty() : now.find(error) != std::string::npos;
    });
  };
  EXPECT_TRUE(becomes("No such file")) << recorder.Status().Error;
  std::filesystem::create_directory(folder);
  EXPECT_TRUE(becomes("")) << recorder.Status().Error;
  EXPECT_TRUE(Eventually(30, [&] {  // something can be played
    Deliver(recorder, Pieces(stream));
    return !recorder.Status().Paths.empty();
  }));
  std::filesystem::remove_all(folder);
  EXPECT_TRUE(becomes("not there any more")) << recorder.Status().Error;
  EXPECT_GT(recorder.Status().Dropped, 0) << "pictures that no file took";
  std::filesystem::create_directory(folder);
  EXPECT_TRUE(becomes("")) << recorder.Status().Error;
  recorder.Stop();
  EXPECT_GT(Decoded(recorder.Status().Paths.back()), 0);
}

TEST(PictureClock, DrawsOutBurstsAndStaysNearTheArrival) {
  CPictureClock bursts(3600);  // 25 pictures a second
  for (int i = 0; i < 30; ++i) {
    const int64_t arrival = i < 15 ? 0 : 1300000;
    EXPECT_EQ(bursts.Stamp(5000000 + arrival), i % 15 * 3600 + arrival * 9 / 100) << i;
  }
  CPictureClock clock(3600);  // of a camera that sends 50
  int64_t last = -1;
  for (int64_t arrival = 0; arrival < 60000000; arrival += 20000) {
    const int64_t time = clock.Stamp(7000000 + arrival), now = arrival * 9 / 100;
    EXPECT_GT(time, last);
    EXPECT_LE(time - now, CPictureClock::MOST_AHEAD + 3600);
    last = time;
  }
  EXPECT_EQ(clock.Stamp(97000000), 90 * RECORDING_HZ) << "a pause brings it back to the arrival";
}

}  // namespace
