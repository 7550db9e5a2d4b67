#include "sim/speaker.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>

namespace {

constexpr int kRate = 8000;                       // samples a second
constexpr std::chrono::milliseconds kDelay{200};  // of playing behind arriving
constexpr int kMostLost = 100, kMostLate = 100;   // packets; a larger step of the number is a new start
constexpr long long kMostSamples = kRate * 3600LL;
constexpr size_t kHeader = 12, kMostPayload = 2000;  // bytes

// Where the payload of an RTP packet of type 0 stands (RFC 3550 5.1); false: it is none.
bool FindPayload(const uint8_t* data, size_t size, size_t* from, size_t* length) {
  if (size < kHeader || data[0] >> 6 != 2 || (data[1] & 0x7f) != 0) return false;
  size_t at = kHeader + 4u * (data[0] & 0x0f);
  if ((data[0] & 0x10) != 0) {
    if (size < at + 4) return false;
    at += 4 + 4 * (static_cast<size_t>(data[at + 2]) << 8 | data[at + 3]);
  }
  const size_t padding = (data[0] & 0x20) != 0 ? data[size - 1] : 0;
  if (at + padding >= size || size - at - padding > kMostPayload) return false;
  *from = at;
  *length = size - at - padding;
  return true;
}

void PutLittle(uint8_t* at, uint32_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

void PutTag(uint8_t* at, std::string_view tag) {
  std::copy(tag.begin(), tag.end(), at);
}

void WriteHeader(std::FILE* file, long long samples) {
  uint8_t head[44] = {};
  const uint32_t bytes = static_cast<uint32_t>(samples * 2);
  PutTag(head, "RIFF");
  PutLittle(head + 4, 36 + bytes, 4);
  PutTag(head + 8, "WAVEfmt ");
  PutLittle(head + 16, 16, 4);
  PutLittle(head + 20, 1, 2);  // PCM
  PutLittle(head + 22, 1, 2);  // channel
  PutLittle(head + 24, kRate, 4);
  PutLittle(head + 28, kRate * 2, 4);
  PutLittle(head + 32, 2, 2);
  PutLittle(head + 34, 16, 2);
  PutTag(head + 36, "data");
  PutLittle(head + 40, bytes, 4);
  std::fseek(file, 0, SEEK_SET);
  std::fwrite(head, 1, sizeof head, file);
  std::fseek(file, 0, SEEK_END);
}

}  // namespace

int16_t ExpandMulaw(uint8_t code) {
  const int bits = ~code & 0xff;
  const int magnitude = (((bits & 0x0f) << 3) + 0x84) << ((bits >> 4) & 7);
  return static_cast<int16_t>((bits & 0x80) != 0 ? 0x84 - magnitude : magnitude - 0x84);
}

bool CSpeaker::Open(const std::string& path) {
  Close();
  m_path = path;
  m_count = {};
  if (path.empty()) return true;
  m_file = std::fopen(path.c_str(), "wbe");
  if (m_file != nullptr) WriteHeader(m_file, 0);
  return m_file != nullptr;
}

void CSpeaker::Packet(const uint8_t* data, size_t size, Clock::time_point now) {
  size_t from = 0, length = 0;
  if (!FindPayload(data, size, &from, &length)) {
    ++m_count.ignored;
    return;
  }
  const uint16_t number = static_cast<uint16_t>(data[2] << 8 | data[3]);
  const auto missing = static_cast<int16_t>(number - m_expected);
  if (m_count.packets == 0) {
    m_first = now;
  } else {
    m_count.largestGapMs =
        std::max(m_count.largestGapMs, std::chrono::duration<double, std::milli>(now - m_last).count());
    if (missing < 0 && missing >= -kMostLate) {
      ++m_count.late;  // its place has been filled with silence
      return;
    }
    if (missing > 0 && missing <= kMostLost) {
      m_count.lost += missing;
      Silence(missing * static_cast<long long>(m_lastSize));
    }
    const auto due = [&](Clock::duration since) {
      return static_cast<long long>(std::chrono::duration<double>(since).count() * kRate);
    };
    // Nothing was left to play: silence until now, and the delay begins anew.
    if (due(now - m_first - kDelay) > m_count.samples) Silence(due(now - m_first) - m_count.samples);
  }
  ++m_count.packets;
  m_last = now;
  m_expected = static_cast<uint16_t>(number + 1);
  m_lastSize = length;
  Play(data + from, length);
}

void CSpeaker::Play(const uint8_t* ulaw, size_t size) {
  std::vector<int16_t> pcm(size);
  std::transform(ulaw, ulaw + size, pcm.begin(), ExpandMulaw);
  m_count.level = 0;
  for (const int16_t sample : pcm) m_count.level = std::max(m_count.level, std::abs(sample));
  Write(pcm);
}

void CSpeaker::Silence(long long samples) {
  if (samples <= 0) return;
  samples = std::min(samples, kMostSamples - m_count.samples);
  m_count.silence += samples;
  Write(std::vector<int16_t>(static_cast<size_t>(std::max(samples, 0LL))));
}

void CSpeaker::Write(const std::vector<int16_t>& pcm) {
  if (m_count.samples + static_cast<long long>(pcm.size()) > kMostSamples) return;
  m_count.samples += static_cast<long long>(pcm.size());
  if (m_file == nullptr) return;
  std::vector<uint8_t> bytes(pcm.size() * 2);
  for (size_t i = 0; i < pcm.size(); ++i) PutLittle(&bytes[i * 2], static_cast<uint16_t>(pcm[i]), 2);
  std::fwrite(bytes.data(), 1, bytes.size(), m_file);
}

void CSpeaker::Flush() {
  if (m_file == nullptr) return;
  WriteHeader(m_file, m_count.samples);
  std::fflush(m_file);
}

void CSpeaker::Close() {
  if (m_file == nullptr) return;
  WriteHeader(m_file, m_count.samples);
  std::fclose(m_file);
  m_file = nullptr;
}

nlohmann::json CSpeaker::ToJson() const {
  return {{"packets", m_count.packets},
          {"lost", m_count.lost},
          {"late", m_count.late},
          {"ignored", m_count.ignored},
          {"samples", m_count.samples},
          {"largest_gap_ms", m_count.largestGapMs},
          {"silence_ms", m_count.silence * 1000 / kRate},
          {"level", m_count.level},
          {"wav", m_path}};
}
