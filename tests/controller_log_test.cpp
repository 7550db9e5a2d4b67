// The log under speakers that say too much.
#include "controller/core/log_file.h"
#include "controller/core/log_thinner.h"
#include "tests/support/controller_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;

TEST(LogThinner, WhatIsSaidAgainAndAgainIsLeftOutAndCounted) {
  CLogThinner thinner;
  CLogThinner::Clock::time_point now{};
  std::string note;
  const auto count = [&](const std::string& speaker, int lines, const std::string& line) {
    int passed = 0;
    for (int i = 0; i < lines; ++i) passed += thinner.Passes(speaker, line + std::to_string(i), now, &note);
    return passed;
  };
  EXPECT_EQ(count("Door", 1000, "RTCP "), CLogThinner::KIND_BURST);
  EXPECT_EQ(count("Door", 1, "Loading..."), 1) << "another kind";
  EXPECT_EQ(count("Gate", 1, "RTCP "), 1) << "another speaker";
  now += CLogThinner::KIND_REFILL;
  EXPECT_TRUE(thinner.Passes("Door", "RTCP 1", now, &note));
  EXPECT_THAT(note, HasSubstr("(995 more"));
  EXPECT_FALSE(thinner.Passes("Door", "RTCP 1", now, &note));

  // A day of 64 cameras that are tried every 5 s, and of a sender that never says the same twice.
  size_t bytes = 0;
  for (int second = 0; second < 86400; second += 5) {
    now += 5s;
    for (int camera = 0; camera < 64; ++camera)
      for (const char* line : {"Loading Device Info...", "FAILED", "Received RTCP 17"})
        bytes += thinner.Passes("Camera " + std::to_string(camera), line, now, &note) ? 100 : 0;
    for (char c = 'a'; c < 'a' + 20; ++c) {
      std::string text(1, c);
      for (int i = second; i > 0; i /= 26) text += static_cast<char>('a' + i % 26);
      bytes += thinner.Passes("hostile", text, now, &note) ? 100 : 0;
    }
  }
  EXPECT_LT(bytes, 25'000'000u);
}

class LogFile : public CFolderTest {};

TEST_F(LogFile, IsBoundedInAllAndForItsOwnerOnly) {
  const std::string path = m_Folder + "/log";
  std::string error;
  CLogFile log(10000, 2), other(10000, 2);
  ASSERT_TRUE(log.Open(path, &error) && other.Open(path, &error)) << error;
  for (int i = 0; i < 1000; ++i) {
    ASSERT_TRUE(log.Write(std::string(99, 'a') + "\n", &error)) << error;
    ASSERT_TRUE(other.Write(std::string(99, 'b') + "\n", &error)) << error;
  }
  uintmax_t bytes = 0, files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(m_Folder)) {
    bytes += entry.file_size();
    ++files;
    EXPECT_EQ(static_cast<unsigned>(entry.status().permissions()), 0640u) << entry.path();
  }
  EXPECT_EQ(files, 3u);
  EXPECT_LE(bytes, 31000u);
  ASSERT_EQ(mkfifo((m_Folder + "/pipe").c_str(), 0600), 0);
  EXPECT_FALSE(log.Open(m_Folder + "/pipe", &error)) << "it would hold the controller";
}

}  // namespace
