// The site file: what comes back from it, what is refused, and that the last good one is never lost.
#include "controller/core/atomic_file.h"
#include "controller/site/site_file.h"
#include "host/base/gxfile.h"
#include "tests/support/controller_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace {

using testing::HasSubstr;

class SiteFile : public CFolderTest {
 protected:
  std::string Path() const { return m_Folder + "/site.json"; }
  void Put(const std::string& text) const { std::ofstream(Path()) << text; }
  std::string Get() const { return Text(Path()); }
};

// A site that says which save it is from, in several places, and is large enough for a save to take a while.
CSite Numbered(int number) {
  CSite site;
  site.Version = GX_FILE_VERSION;
  for (int i = 1; i <= 40; ++i)
    site.Components.push_back(
        {8072, i, "Camera " + std::to_string(number), std::vector<GXT_ITEM>(50, std::to_string(number))});
  return site;
}

// The number of the save that a site is from; -1 when it is a mixture.
int NumberOf(const CSite& site) {
  if (site.Components.size() != 40) return -1;
  const std::string number = std::get<std::string>(site.Components[0].Record.at(0));
  for (const CSiteComponent& component : site.Components) {
    if (component.Name != "Camera " + number || component.Record.size() != 50) return -1;
    for (const GXT_ITEM& item : component.Record)
      if (std::get<std::string>(item) != number) return -1;
  }
  return std::stoi(number);
}

TEST_F(SiteFile, EveryItemComesBackAndOthersCannotReadIt) {
  CSite site;
  site.Version = GX_FILE_VERSION;
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  site.Components.push_back(
      {8074,
       7,
       "T\xFCr",
       {"pass \"word\"\n", bytes, std::string("\xC3\xA4", 2), 0, -1, INT32_MIN, INT32_MAX, ""}});
  std::string error;
  CSiteFile file(Path());
  ASSERT_TRUE(file.Write(site, &error)) << error;

  CSite back;
  ASSERT_EQ(file.Read(&back, &error), ESiteRead::Good) << error;
  ASSERT_EQ(back.Components.size(), 1u);
  EXPECT_EQ(back.Components[0].Name, site.Components[0].Name);
  EXPECT_EQ(back.Components[0].Record, site.Components[0].Record);
  struct stat info {};
  ASSERT_EQ(stat(Path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(SiteFile, DamageIsRefusedWithItsPlaceAndKept) {
  const std::string head = R"({"version": 813, "components": [)";
  const struct {
    std::string Text;
    const char* Place;
  } cases[] = {
      {"", "line 1"},
      {"{\n \"version\": 813,\n \"components\": [ }", "line 3, column 18"},
      {"[]", "an object"},
      {R"({"components": []})", "version"},
      {R"({"version": 99999, "components": []})", "newer controller"},
      {R"({"version": 813})", "components"},
      {head + R"({"type": 8072, "id": 1, "name": "a"}]})", "components[0].record"},
      {head + R"({"type": 8072, "id": 0, "name": "a", "record": []}]})", "components[0].id"},
      {head +
           R"({"type": 8072, "id": 1, "name": "a", "record": []}, {"type": 8072, "id": 1, "name": "a", "record": []}]})",
       "components[1].id: 1 is used twice"},
      {head + R"({"type": 8072, "id": 1, "name": "a", "record": ["x", 1, 3000000000]}]})",
       "components[0].record[2]"},
      {head + R"({"type": 8072, "id": 1, "name": "a", "record": ["x", 1.5]}]})", "components[0].record[1]"},
      {head + R"({"type": 8072, "id": 1, "name": "a", "record": [{"hex": "4"}]}]})", "components[0].record[0]"},
      {"{\n\"version\": 813, \"components\": [\n1e400]}", "line 3, column 5"},
      {head + R"({"type": 8072, "id": 1, "name": {"hex": "XY"}, "record": []}]})", "components[0].name"},
  };
  for (const auto& c : cases) {
    Put(c.Text);
    CSite site;
    std::string error;
    EXPECT_EQ(CSiteFile(Path()).Read(&site, &error), ESiteRead::Refused) << c.Text;
    EXPECT_THAT(error, HasSubstr(c.Place));
    EXPECT_THAT(error, HasSubstr(Path()));
    EXPECT_EQ(Get(), c.Text);
  }
  CSite site;
  std::string error;
  std::filesystem::remove(Path());
  EXPECT_EQ(CSiteFile(Path()).Read(&site, &error), ESiteRead::Absent);
  std::filesystem::create_directory(Path());
  EXPECT_EQ(CSiteFile(Path()).Read(&site, &error), ESiteRead::Refused);
}

TEST_F(SiteFile, WhatCouldNotBeReadBackIsNotWritten) {
  std::string error;
  CSiteFile file(Path());
  ASSERT_TRUE(file.Write(Numbered(1), &error)) << error;
  const std::string before = Get();
  CSite large = Numbered(2), twice = Numbered(2);
  large.Components[3].Record.emplace_back(std::string(17u << 20, 'x'));
  twice.Components[3].ID = 1;
  for (const CSite* site : {&large, &twice}) {
    EXPECT_FALSE(file.Write(*site, &error));
    EXPECT_THAT(error, HasSubstr("could not be read back"));
    EXPECT_TRUE(Get() == before);
  }
}

TEST_F(SiteFile, AnotherNameOfALockedFileIsLockedToo) {
  std::string error;
  const std::string early = m_Folder + "/early.json", late = m_Folder + "/late.json";
  CSiteFile file(Path());
  ASSERT_TRUE(file.Write(Numbered(1), &error)) << error;
  std::filesystem::create_hard_link(Path(), early);
  ASSERT_TRUE(file.Lock(&error)) << error;
  ASSERT_TRUE(file.Write(Numbered(2), &error)) << error;
  std::filesystem::create_hard_link(Path(), late);
  for (const std::string& path : {Path(), early, late}) {
    EXPECT_FALSE(CSiteFile(path).Lock(&error)) << path;
    EXPECT_THAT(error, HasSubstr("in use by another controller"));
  }
}

TEST_F(SiteFile, LinkStaysALink) {
  std::string error;
  const std::string target = m_Folder + "/real.json";
  ASSERT_TRUE(CSiteFile(target).Write(Numbered(1), &error)) << error;
  std::filesystem::create_symlink(target, Path());
  ASSERT_TRUE(CSiteFile(Path()).Write(Numbered(2), &error)) << error;
  EXPECT_TRUE(std::filesystem::is_symlink(Path()));
  CSite site;
  ASSERT_EQ(CSiteFile(target).Read(&site, &error), ESiteRead::Good) << error;
  EXPECT_EQ(NumberOf(site), 2);
}

TEST_F(SiteFile, FullDiskKeepsTheOldFile) {
  std::string error;
  CSiteFile file(Path());
  ASSERT_TRUE(file.Write(Numbered(1), &error)) << error;
  const std::string before = Get();

  // As a full disk does: the write stops in the middle.
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit{}, small{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  small = limit;
  small.rlim_cur = before.size() / 2;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_FALSE(file.Write(Numbered(2), &error));
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  EXPECT_THAT(error, HasSubstr("File too large"));
  EXPECT_EQ(Get(), before);
  EXPECT_FALSE(std::filesystem::exists(Path() + ".tmp"));
  EXPECT_TRUE(file.Write(Numbered(2), &error)) << "saved again once there is room: " << error;
}

// Saves one numbered site after the other, and says each number once it is saved, until killed.
[[noreturn]] void SaveForEver(const std::string& path, int first, int report) {
  CSiteFile file(path);
  std::string error;
  for (int number = first;; ++number)
    if (!file.Write(Numbered(number), &error) || write(report, &number, sizeof number) != sizeof number)
      _exit(1);
}

TEST_F(SiteFile, KilledAtAnyMomentOfASaveLosesNothing) {
  constexpr int kills = 150;
  std::mt19937 random(20261122);  // NOLINT: the same moments every time, as far as the machine allows
  int last = 0, midway = 0;
  for (int i = 0; i < kills; ++i) {
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) SaveForEver(Path(), last + 1, pipes[1]);
    close(pipes[1]);
    int number = 0;
    ASSERT_EQ(read(pipes[0], &number, sizeof number), static_cast<ssize_t>(sizeof number));
    usleep(static_cast<useconds_t>(random() % 6000));
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    last = number;
    while (read(pipes[0], &number, sizeof number) == static_cast<ssize_t>(sizeof number)) last = number;
    close(pipes[0]);

    midway += std::filesystem::exists(Path() + ".tmp") ? 1 : 0;
    CSite site;
    std::string error;
    ASSERT_EQ(CSiteFile(Path()).Read(&site, &error), ESiteRead::Good) << error;
    const int found = NumberOf(site);
    ASSERT_TRUE(found == last || found == last + 1) << found << " after " << last;
    last = found;
  }
  EXPECT_GT(midway, 0) << "no kill fell into a save: the test has shown nothing";
}

}  // namespace
