#include "sim/speaker.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string_view>

namespace {

constexpr int RATE = 8000;                       // samples a second
constexpr std::chrono::milliseconds DELAY{200};  // of playing behind arriving
constexpr int MOST_LOST = 100, MOST_LATE = 100;  // packets; a larger step of the number is a new start
constexpr long long MOST_SAMPLES = RATE * 3600LL;
constexpr size_t HEADER = 12, MOST_PAYLOAD = 2000;  // bytes

// Where the payload of an RTP packet of type 0 stands (RFC 3550 5.1); false: it is none.
bool FindPayload(const uint8_t* data, size_t size, size_t* from, size_t* length) {
  if (size < HEADER || data[0] >> 6 != 2 || (data[1] & 0x7f) != 0) return false;
  size_t at = HEADER + 4u * (data[0] & 0x0f);
  if ((data[0] & 0x10) != 0) {
    if (size < at + 4) return false;
    at += 4 + 4 * (static_cast<size_t>(data[at + 2]) << 8 | data[at + 3]);
  }
  const size_t padding = (data[0] & 0x20) != 0 ? data[size - 1] : 0;
  if (at + padding >= size || size - at - padding > MOST_PAYLOAD) return false;
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
  PutLittle(head + 24, RATE, 4);
  PutLittle(head + 28, RATE * 2, 4);
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
  m_Path = path;
  m_Count = {};
  if (path.empty()) return true;
  m_PFile = std::fopen(path.c_str(), "wbe");
  if (m_PFile != nullptr) WriteHeader(m_PFile, 0);
  return m_PFile != nullptr;
}

void CSpeaker::Packet(const uint8_t* data, size_t size, Clock::time_point now) {
  size_t from = 0, length = 0;
  if (!FindPayload(data, size, &from, &length)) {
    ++m_Count.Ignored;
    return;
  }
  const uint16_t number = static_cast<uint16_t>(data[2] << 8 | data[3]);
  const auto missing = static_cast<int16_t>(number - m_WExpected);
  if (m_Count.Packets == 0) {
    m_First = now;
  } else {
    m_Count.LargestGapMs =
        std::max(m_Count.LargestGapMs, std::chrono::duration<double, std::milli>(now - m_Last).count());
    if (missing < 0 && missing >= -MOST_LATE) {
      ++m_Count.Late;  // its place has been filled with silence
      return;
    }
    if (missing > 0 && missing <= MOST_LOST) {
      m_Count.Lost += missing;
      Silence(missing * static_cast<long long>(m_NLastSize));
    }
    const auto due = [&](Clock::duration since) {
      return static_cast<long long>(std::chrono::duration<double>(since).count() * RATE);
    };
    // Nothing was left to play: silence until now, and the delay begins anew.
    if (due(now - m_First - DELAY) > m_Count.Samples) Silence(due(now - m_First) - m_Count.Samples);
  }
  ++m_Count.Packets;
  m_Last = now;
  m_WExpected = static_cast<uint16_t>(number + 1);
  m_NLastSize = length;
  Play(data + from, length);
}

void CSpeaker::Play(const uint8_t* ulaw, size_t size) {
  std::vector<int16_t> pcm(size);
  std::transform(ulaw, ulaw + size, pcm.begin(), ExpandMulaw);
  m_Count.Level = 0;
  for (const int16_t sample : pcm) m_Count.Level = std::max(m_Count.Level, std::abs(sample));
  Write(pcm);
}

void CSpeaker::Silence(long long samples) {
  if (samples <= 0) return;
  samples = std::min(samples, MOST_SAMPLES - m_Count.Samples);
  m_Count.Silence += samples;
  Write(std::vector<int16_t>(static_cast<size_t>(std::max(samples, 0LL))));
}

void CSpeaker::Write(const std::vector<int16_t>& pcm) {
  if (m_Count.Samples + static_cast<long long>(pcm.size()) > MOST_SAMPLES) return;
  m_Count.Samples += static_cast<long long>(pcm.size());
  if (m_PFile == nullptr) return;
  std::vector<uint8_t> bytes(pcm.size() * 2);
  for (size_t i = 0; i < pcm.size(); ++i) PutLittle(&bytes[i * 2], static_cast<uint16_t>(pcm[i]), 2);
  std::fwrite(bytes.data(), 1, bytes.size(), m_PFile);
}

void CSpeaker::Flush() {
  if (m_PFile == nullptr) return;
  WriteHeader(m_PFile, m_Count.Samples);
  std::fflush(m_PFile);
}

void CSpeaker::Close() {
  if (m_PFile == nullptr) return;
  WriteHeader(m_PFile, m_Count.Samples);
  std::fclose(m_PFile);
  m_PFile = nullptr;
}

nlohmann::json CSpeaker::ToJSON() const {
  return {{"packets", m_Count.Packets},
          {"lost", m_Count.Lost},
          {"late", m_Count.Late},
          {"ignored", m_Count.Ignored},
          {"samples", m_Count.Samples},
          {"largest_gap_ms", m_Count.LargestGapMs},
          {"silence_ms", m_Count.Silence * 1000 / RATE},
          {"level", m_Count.Level},
          {"wav", m_Path}};
}
