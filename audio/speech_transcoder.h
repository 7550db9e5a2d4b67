// From what an intercom client says (Opus, RFC 6716, in RTP) to what a camera's speaker plays (G.711 mu-law).
// Knows no socket.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

struct OpusDecoder;

// Decodes and encodes one packet at a time. One thread.
class CSpeechTranscoder {
 public:
  static constexpr int SAMPLE_RATE_HZ = 8000;  // mono
  static constexpr int MAX_SAMPLES = 4096;     // of one packet

  CSpeechTranscoder();
  ~CSpeechTranscoder();
  CSpeechTranscoder(const CSpeechTranscoder&) = delete;
  CSpeechTranscoder& operator=(const CSpeechTranscoder&) = delete;

  // The Opus packet in an RTP packet as intercom clients send it; empty when there is none.
  static std::span<const unsigned char> Payload(std::span<const unsigned char> packet);

  void Open();  // starts anew, with fresh buffers and a fresh decoder
  bool IsOpen() const { return m_pDecoder != nullptr; }

  // Decodes one Opus packet: how many samples, at most MAX_SAMPLES; 0 or less when it is damaged or not open.
  int Decode(std::span<const unsigned char> opus);
  int Level() const { return m_iLevel; }  // of what was decoded last: its largest absolute sample, 0 to 32768

  // What was decoded last, as mu-law, or as much silence. Valid until the next call.
  std::span<unsigned char> Encode();
  std::span<unsigned char> Silence();

 private:
  struct CloseDecoder {
    void operator()(OpusDecoder* decoder) const;
  };
  std::unique_ptr<OpusDecoder, CloseDecoder> m_pDecoder;
  std::unique_ptr<short[]> m_pPCM;
  std::unique_ptr<unsigned char[]> m_pULaw;
  int m_nSamples = 0, m_iLevel = 0;
};
