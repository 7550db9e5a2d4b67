// What a stream is taken apart into and put together from, without a socket: frames and recorder pieces.
#include "rtsp/access_unit.h"
#include "rtsp/interleaved_framer.h"
#include "tests/rtsp_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

// Everything that the framer finds when `bytes` arrive in pieces of up to `maxPiece`.
std::vector<std::string> Frames(const std::string& bytes, size_t maxPiece, size_t limit, std::mt19937& random) {
  CInterleavedFramer framer;
  std::vector<std::string> found;
  for (size_t at = 0; at < bytes.size();) {
    const std::span<unsigned char> room = framer.Room();
    const size_t piece = std::min({1 + random() % maxPiece, bytes.size() - at, room.size()});
    std::memcpy(room.data(), bytes.data() + at, piece);
    framer.Added(piece);
    at += piece;
    for (CInterleavedFramer::Frame frame; framer.Next(limit, &frame);)
      found.push_back(std::to_string(frame.Channel) + ":" + std::string(frame.Data.begin(), frame.Data.end()));
  }
  return found;
}

std::string Nal(int type, size_t bytes) {
  std::string nal(bytes, static_cast<char>('a' + type));
  nal.replace(0, 3, std::string("\0\0\1", 3));
  nal[3] = static_cast<char>(0x60 | type);
  return nal;
}

}  // namespace

TEST(InterleavedFramer, FindsTheSameFramesHoweverTheyArrive) {
  std::mt19937 random(1);
  const char* const between[] = {"", "", "garbage\r\n", "RTSP/1.0 200 OK\r\nSession: a$b$\r\n\r\n", "RTSP/"};
  for (int run = 0; run < 40; ++run) {
    std::string bytes;
    std::vector<std::string> expected;
    for (int i = 0; i < 60; ++i) {
      const std::string data(random() % (i % 20 == 0 ? 65536 : 1500), static_cast<char>('A' + i % 26));
      const int channel = static_cast<int>(random() % 4);
      bytes += between[random() % std::size(between)] + Interleaved(channel, data);
      expected.push_back(std::to_string(channel) + ":" + data);
    }
    ASSERT_EQ(expected, Frames(bytes, 1 + random() % 70000, 65535, random)) << run;
  }
}

TEST(InterleavedFramer, GetsBackInStep) {
  std::mt19937 random(2);
  const std::string wanted = Interleaved(0, "wanted"), longest(5000, 'r');
  const struct {
    const char* name;
    std::string bytes;
    std::vector<std::string> frames;
  } cases[] = {
      {"the rest of a cut frame is skipped",
       Interleaved(0, std::string(100, 'c')) + wanted,
       {"0:" + std::string(64, 'c'), "0:wanted"}},
      {"an endless reply is none", "RTSP/1.0 " + longest + wanted, {"0:wanted"}},
      {"a reply without its end hides frames only so long",
       "RTSP/1.0 200" + std::string(4200, ' ') + wanted,
       {"0:wanted"}},
      {"a frame without data", Interleaved(3, "") + wanted, {"3:", "0:wanted"}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(test.frames, Frames(test.bytes, 1, 64, random));
    EXPECT_EQ(test.frames, Frames(test.bytes, 100000, 64, random));
  }
}

TEST(AccessUnitCollector, JoinsParametersWithTheirKeyPicture) {
  using Result = CAccessUnitCollector::Result;
  const std::string sps = Nal(7, 20), pps = Nal(8, 8), idr = Nal(5, 3000), slice = Nal(1, 500);
  const std::string huge = Nal(5, CAccessUnitCollector::CAPACITY + 1),
                    full = Nal(6, CAccessUnitCollector::CAPACITY);
  const struct {
    std::string nal;
    Result result;
    std::string unit;
  } steps[] = {
      {sps, Result::KEPT, ""},
      {pps, Result::KEPT, ""},
      {idr, Result::KEY, sps + pps + idr},
      {idr, Result::KEY, idr},
      {slice, Result::SLICE, slice},
      {sps, Result::KEPT, ""},
      {slice, Result::SLICE, slice},  // a slice drops what waited
      {idr, Result::KEY, idr},
      {sps, Result::KEPT, ""},
      {huge, Result::KEY_LOST, ""},
      {idr, Result::KEY, idr},
      {full, Result::KEPT, ""},
      {idr, Result::KEY_LOST, ""},
      {full, Result::KEPT, ""},
      {sps, Result::KEPT, ""},  // no room: all that waited goes
      {Nal(5, 4), Result::KEY, Nal(5, 4)},
      {std::string("\0\0\1", 3), Result::KEPT, ""},
      {Nal(4, 4), Result::SLICE, Nal(4, 4)},
      {Nal(0, 9), Result::KEPT, ""},
      {idr, Result::KEY, Nal(0, 9) + idr},
  };
  CAccessUnitCollector collector;
  int index = 0;
  for (const auto& step : steps) {
    SCOPED_TRACE(index++);
    EXPECT_EQ(step.result,
              collector.Add(reinterpret_cast<const unsigned char*>(step.nal.data()), step.nal.size()));
    EXPECT_EQ(step.unit, std::string(collector.Unit().begin(), collector.Unit().end()));
    EXPECT_EQ(step.nal.size() > 3 ? step.nal[3] & 31 : 0, collector.NALType());
  }
}
