// The framing of RTP packets in an RTSP connection (RFC 2326 10.12): '$', channel, 16-bit length, data. Bytes
// in, frames out; knows no socket.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

class CInterleavedFramer {
 public:
  // The larger the blocks that the system hands over, the fewer its acknowledgements, which are most of the
  // cost of a fast stream. Only what a stream's bursts touch becomes memory. Holds the longest frame (65539
  // bytes) many times.
  static constexpr size_t CAPACITY = 512 * 1024;

  struct Frame {
    unsigned char Channel;
    std::span<const unsigned char> Data;  // valid until the next Room or Append
  };

  // Where to receive to; never empty once Next has asked for more. Then Added() with the bytes received.
  std::span<unsigned char> Room();
  void Added(size_t bytes) { m_iEnd += bytes; }
  void Append(const char* data, size_t bytes);  // copies what there is room for

  // The next frame, its data cut to `limit` bytes; false when more bytes are needed first. What is no frame is
  // skipped: replies to keep-alives, whole, and the rest of a cut frame, up to the next '$'.
  bool Next(size_t limit, Frame* frame);
  bool IsEmpty() const { return m_iBegin == m_iEnd; }
  bool InStep() const { return m_bInStep; }  // false while Next looks for the start of a frame

  size_t Take(unsigned char* out, size_t bytes);  // up to `bytes` as they are, without framing

 private:
  const unsigned char* Begin() const { return m_pData.get() + m_iBegin; }
  size_t Held() const { return m_iEnd - m_iBegin; }
  bool FindStart();
  bool SkipReply(size_t at);

  std::unique_ptr<unsigned char[]> m_pData;  // allocated at the first use: UDP sessions need none
  size_t m_iBegin = 0, m_iEnd = 0;
  bool m_bInStep = true;
};
