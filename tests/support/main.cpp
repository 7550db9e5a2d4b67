// The main of every test program: many ports of the driver are fixed, so each program runs in a network
// namespace of its own, and where the machine forbids that, holds a lock that all test programs share.
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

bool BringLoopbackUp() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  ifreq request{};
  std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  const bool up = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  close(fd);
  return up;
}

void IsolateNetwork() {
  if (unshare(CLONE_NEWNET) == 0 && BringLoopbackUp()) return;
  std::fprintf(stderr, "no network namespace of our own here: taking turns with the other test programs\n");
  const char* path = "/tmp/onvifcam-tests.lock";
  FILE* lock = std::fopen(path, "we");
  if (lock == nullptr || flock(fileno(lock), LOCK_EX) != 0) {
    std::perror(path);
    _exit(2);
  }
  // Held until the process ends.
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!GTEST_FLAG_GET(list_tests)) IsolateNetwork();
  return RUN_ALL_TESTS();
}
