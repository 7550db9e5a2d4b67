// Puts JPEG pictures together from RTP packets (RFC 2435).
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <span>

class CJPEGAssembler {
 public:
  static constexpr size_t CAPACITY = 512000;  // bytes of the largest picture

  enum class Result {
    TOO_SHORT,  // no longer than its RTP header: nothing to take
    DROPPED,    // not RTP/JPEG, or not usable
    ADDED,      // belongs to the picture that is being put together
    PICTURE,    // began the next picture: Picture() is the one before it
  };

  CJPEGAssembler();

  // Takes one RTP packet. A picture is complete when the next one begins: some cameras set no marker bit.
  Result Add(const unsigned char* packet, int length);

  std::span<const unsigned char> Picture() const { return m_Picture; }  // valid until the next Add

 private:
  struct Fragment;

  bool Begin(Fragment* fragment);
  bool Copy(const Fragment& fragment);

  struct Free {
    void operator()(unsigned char* p) const { std::free(p); }
  };
  using Buffer = std::unique_ptr<unsigned char[], Free>;

  Buffer m_pAssembly, m_pFinished;  // exchanged when a picture is finished
  size_t m_iHeader = 0;             // JPEG headers at the start of the assembly; 0: no picture has begun
  size_t m_iLength = 0;             // headers and payloads
  std::span<const unsigned char> m_Picture;
};
