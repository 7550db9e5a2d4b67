#include "controller/panel/wav_file.h"

#include "controller/core/atomic_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace {

constexpr uint32_t SAMPLE_BYTES = 2;
constexpr uint32_t HEADER_BYTES = 44, FORMAT_BYTES = 16;

void Append(std::string* bytes, uint32_t value, int count) {
  for (int i = 0; i < count; ++i) *bytes += static_cast<char>(value >> (8 * i));
}

}  // namespace

bool CWavFile::Open(const std::string& path, std::string* error) {
  Close();
  m_nSamples = m_nInHeader = 0;
  m_File.clear();
  const int fd = CreateFile(path, error);
  if (fd < 0) return false;
  close(fd);
  m_File.open(path, std::ios::binary);
  WriteHeader();
  if (m_File.good()) return true;
  *error = path + ": " + std::strerror(errno);
  return false;
}

void CWavFile::WriteHeader() {
  const uint32_t data = m_nSamples * SAMPLE_BYTES;
  std::string header = "RIFF";
  Append(&header, HEADER_BYTES - 8 + data, 4);
  header += "WAVEfmt ";
  Append(&header, FORMAT_BYTES, 4);
  Append(&header, 1, 2);  // PCM
  Append(&header, 1, 2);  // channels
  Append(&header, HZ, 4);
  Append(&header, HZ * SAMPLE_BYTES, 4);
  Append(&header, SAMPLE_BYTES, 2);
  Append(&header, 8 * SAMPLE_BYTES, 2);
  header += "data";
  Append(&header, data, 4);
  m_File.seekp(0);
  m_File.write(header.data(), static_cast<std::streamsize>(header.size()));
  m_File.seekp(0, std::ios::end);
  m_File.flush();
  m_nInHeader = m_nSamples;
}

void CWavFile::Write(std::span<const short> samples) {
  if (!m_File.is_open() || samples.size() > MOST_SAMPLES - m_nSamples) return;
  std::string bytes;
  bytes.reserve(samples.size() * SAMPLE_BYTES);
  for (const short sample : samples) Append(&bytes, static_cast<uint16_t>(sample), SAMPLE_BYTES);
  m_File.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  m_nSamples += static_cast<uint32_t>(samples.size());
  if (m_nSamples - m_nInHeader >= HZ) WriteHeader();
}

bool CWavFile::Close() {
  if (!m_File.is_open()) return true;
  WriteHeader();
  m_File.close();
  return m_File.good();
}
