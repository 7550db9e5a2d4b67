#include "sim/microphone.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>

namespace {

constexpr double RATE = 8000;            // samples a second
constexpr size_t MOST_BYTES = 32 << 20;  // of a sound file
constexpr char FORMAT[] = {1, 0, 1, 0, 0x40, 0x1f, 0, 0, char(0x80), 0x3e, 0, 0, 2, 0, 16, 0};  // PCM, 8000 Hz

uint32_t Little(const std::string& bytes, size_t at) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i) value |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + i])) << (8 * i);
  return value;
}

}  // namespace

void CMicrophone::Fill(int16_t* samples, size_t count, uint64_t position) const {
  for (size_t i = 0; i < count; ++i) {
    const uint64_t at = position + i;
    if (Sound) {
      samples[i] = (*Sound)[at % Sound->size()];
    } else {
      const double turn = std::fmod(static_cast<double>(at) * ToneHz / RATE, 1.0);
      samples[i] = static_cast<int16_t>(Level * 32767 * std::sin(2 * std::numbers::pi * turn));
    }
  }
}

bool LoadSound(const std::string& path, CMicrophone* microphone, std::string* error) {
  *error = path + " is no WAV file of 8000 Hz, 16 bit, mono";
  std::ifstream file(path, std::ios::binary);
  std::string bytes(MOST_BYTES, '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<size_t>(file.gcount()));
  if (bytes.size() < 12 || !bytes.starts_with("RIFF") || bytes.compare(8, 4, "WAVE") != 0) return false;
  bool format = false;
  for (size_t at = 12; at + 8 <= bytes.size();) {
    const size_t size = std::min<size_t>(Little(bytes, at + 4), bytes.size() - at - 8);
    if (bytes.compare(at, 4, "fmt ") == 0)
      format = size >= sizeof FORMAT && std::memcmp(&bytes[at + 8], FORMAT, sizeof FORMAT) == 0;
    if (bytes.compare(at, 4, "data") == 0 && format && size >= 2) {
      std::vector<int16_t> samples(size / 2);
      for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<int16_t>(static_cast<uint8_t>(bytes[at + 8 + i * 2]) |
                                          static_cast<uint8_t>(bytes[at + 9 + i * 2]) << 8);
      microphone->Sound = std::make_shared<const std::vector<int16_t>>(std::move(samples));
      microphone->File = path;
      return true;
    }
    at += 8 + size + (size & 1);
  }
  return false;
}
