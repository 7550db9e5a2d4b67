// What a camera's microphone hears: a tone, or a sound file over and over. 8000 Hz, 16 bit, mono.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct CMicrophone {
  double ToneHz = 440, Level = 0.25;                  // level: amplitude, 1 is full scale
  std::string File;                                   // "": the tone
  std::shared_ptr<const std::vector<int16_t>> Sound;  // of the file

  // `count` samples from the sample `position` on.
  void Fill(int16_t* samples, size_t count, uint64_t position) const;
};

// Takes a WAV file (8000 Hz, 16 bit, mono) as what is heard. False with a reason in `error`.
bool LoadSound(const std::string& path, CMicrophone* microphone, std::string* error);
