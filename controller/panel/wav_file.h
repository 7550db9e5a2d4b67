// A sound file in the making: WAV, 16 bit mono, 8 kHz.
#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <string>

class CWavFile {
 public:
  static constexpr int HZ = 8000;
  static constexpr uint32_t MOST_SAMPLES = 0x7FFFFF00 / 2;  // 37 h; then no more is written

  ~CWavFile() { Close(); }
  bool Open(const std::string& path, std::string* error);  // replaces what is there; false with a reason
  void Write(std::span<const short> samples);              // the file can be played as it is, once a second
  bool Close();                                            // false when not everything could be written

 private:
  void WriteHeader();

  std::ofstream m_File;
  uint32_t m_nSamples = 0, m_nInHeader = 0;
};
