// The command socket under askers that are slow, greedy, rude or gone.
#include "controller/core/command_socket.h"
#include "controller/core/stop_signal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

class CommandSocket : public testing::Test {
 protected:
  CommandSocket() : m_Socket([this](const std::string& request) { return Handle(request); }) {
    InstallStopSignals();
    char folder[] = "/tmp/socket-test-XXXXXX";
    // Longer than a socket's address may be.
    m_Folder = std::string(mkdtemp(folder)) + "/" + std::string(120, 'x');
    std::filesystem::create_directories(m_Folder);
    m_Path = m_Folder + "/site.json.control";
    std::ofstream(m_Path) << "left behind";
    std::string error;
    EXPECT_TRUE(m_Socket.Listen(m_Path, &error)) << error;
    m_Server = std::thread([this] {
      while (!m_bEnd) {
        m_Socket.Pass();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }
  ~CommandSocket() override {
    m_bEnd = true;
    m_Server.join();
    std::filesystem::remove_all(std::filesystem::path(m_Folder).parent_path());
  }

  CCommandSocket::Answer Handle(const std::string& request) {
    if (request == "never") return [] { return std::string(); };
    if (request == "big") return [] { return std::string(8 << 20, 'b'); };
    if (request == "soon") return [n = 0]() mutable { return ++n < 20 ? "" : "now"; };
    return [request] { return "did " + request; };
  }

  std::string Ask(const std::string& request, int seconds = 20) const {
    std::string answer, error;
    return AskController(m_Path, request, seconds, &answer, &error) ? answer : "error: " + error;
  }

  int Connect() const {
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string link = "/tmp/socket-test-" + std::to_string(getpid());
    std::filesystem::remove(link);
    std::filesystem::create_directory_symlink(m_Folder, link);
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/site.json.control", link.c_str());
    EXPECT_EQ(connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    std::filesystem::remove(link);
    return socket;
  }

  CCommandSocket m_Socket;
  std::string m_Folder, m_Path;
  std::atomic<bool> m_bEnd{false};
  std::thread m_Server;
};

TEST_F(CommandSocket, AnswersOnceALateAskerAndABigAnswer) {
  struct stat info {};
  ASSERT_EQ(stat(m_Path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode, static_cast<mode_t>(S_IFSOCK | 0600));
  EXPECT_EQ(Ask("this"), "did this");
  EXPECT_EQ(Ask("soon"), "now");
  EXPECT_EQ(Ask("big"), std::string(8 << 20, 'b'));
  EXPECT_THAT(Ask("never", 1), testing::HasSubstr("no answer"));
  std::string answer, error;
  EXPECT_FALSE(AskController(m_Folder + "/other.control", "x", 1, &answer, &error));
  EXPECT_EQ(error, "no controller runs there");
}

TEST_F(CommandSocket, RudeAskersKeepNobodyOut) {
  const int flood = Connect();
  const std::string noEnd(CCommandSocket::MOST_REQUEST_BYTES + 4096, 'x');
  (void)send(flood, noEnd.data(), noEnd.size(), MSG_NOSIGNAL);
  char byte = 0;
  EXPECT_LE(recv(flood, &byte, 1, 0), 0) << "a request without an end is not waited for";
  close(flood);
  // As many as there may be, each waiting for what never comes; they go, and their places are free at once.
  std::vector<int> silent;
  for (size_t i = 0; i < CCommandSocket::MOST_CLIENTS; ++i) {
    silent.push_back(Connect());
    if (i % 2 == 0) (void)send(silent.back(), "never\n", 6, MSG_NOSIGNAL);
  }
  for (const int socket : silent) close(socket);
  EXPECT_EQ(Ask("this"), "did this");
  // As many and one more that connect, stay, and say nothing.
  silent.clear();
  for (size_t i = 0; i <= CCommandSocket::MOST_CLIENTS; ++i) silent.push_back(Connect());
  EXPECT_EQ(Ask("this", 3), "did this");
  for (const int socket : silent) close(socket);
  // Somebody who does not take his answer.
  const int lazy = Connect();
  (void)send(lazy, "big\n", 4, MSG_NOSIGNAL);
  EXPECT_EQ(Ask("that"), "did that");
  close(lazy);
}

}  // namespace
