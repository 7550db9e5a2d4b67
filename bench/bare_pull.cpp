// bare_pull PORT [PATH]: the least that receiving an interleaved stream can cost. Asks 127.0.0.1 for it with
// fixed texts, receives large blocks and walks the framing; no time-outs, no copies, nothing kept.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr size_t BLOCK_BYTES = 512 * 1024;

bool Exchange(int fd, const std::string& request, std::string* surplus) {
  if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size()))
    return false;
  surplus->clear();
  char bytes[4096];
  for (ssize_t n; (n = recv(fd, bytes, sizeof bytes, 0)) > 0;) {
    surplus->append(bytes, static_cast<size_t>(n));
    const size_t end = surplus->find("\r\n\r\n");
    if (end == std::string::npos) continue;
    surplus->erase(0, end + 4);
    return true;
  }
  return false;
}

struct Counts {
  unsigned long long Packets = 0, Pictures = 0, Bytes = 0;
};

// The bytes taken; counts packets of channel 0 and marker bits.
size_t Walk(const unsigned char* p, size_t held, Counts* counts) {
  size_t at = 0;
  while (held - at >= 4) {
    const size_t length = static_cast<size_t>(p[at + 2] << 8 | p[at + 3]);
    if (held - at < 4 + length) break;
    if (p[at + 1] == 0 && length >= 12) {
      ++counts->Packets;
      counts->Bytes += length;
      counts->Pictures += p[at + 5] >> 7;
    }
    at += 4 + length;
  }
  return at;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const std::string url = std::string("rtsp://127.0.0.1:") + argv[1] + (argc > 2 ? argv[2] : "/live");
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<unsigned short>(std::atoi(argv[1])));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string surplus;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      !Exchange(fd,
                "SETUP " + url +
                    "/track1 RTSP/1.0\r\nCSeq: 1\r\nTransport: RTP/AVP/TCP;unicast;interleaved=0-1\r\n\r\n",
                &surplus) ||
      !Exchange(fd, "PLAY " + url + " RTSP/1.0\r\nCSeq: 2\r\nSession: 1\r\n\r\n", &surplus)) {
    std::perror("bare_pull");
    return 1;
  }
  std::vector<unsigned char> block(surplus.begin(), surplus.end());
  size_t held = block.size();
  block.resize(BLOCK_BYTES);
  Counts counts;
  do {
    const size_t taken = Walk(block.data(), held, &counts);
    std::memmove(block.data(), block.data() + taken, held - taken);
    held -= taken;
    const ssize_t n = recv(fd, block.data() + held, block.size() - held, 0);
    if (n <= 0) break;
    held += static_cast<size_t>(n);
  } while (true);
  std::printf("packets=%llu pictures=%llu bytes=%llu\n", counts.Packets, counts.Pictures, counts.Bytes);
  close(fd);
  return counts.Packets > 0 ? 0 : 1;
}
