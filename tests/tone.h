// Sound files as ffmpeg reads them, and the tone that is in them.
#pragma once

#include "tests/support/camsim_process.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>
#include <string>
#include <vector>

using CSamples = std::vector<int16_t>;

// What ffmpeg makes of the file or stream, at 8000 Hz; `options` end with -i and its name.
inline CSamples DecodeSound(const std::string& options, const std::string& length = "") {
  const std::string bytes =
      RunCommand("ffmpeg -v error " + options + " " + length + " -f s16le -ac 1 -ar 8000 -").output;
  CSamples samples(bytes.size() / 2);
  if (!samples.empty()) std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
  return samples;
}

struct CTone {
  double Seconds = 0;  // its longest stretch without a gap of more than 40 ms
  double Ratio = -99;  // signal to noise of that stretch, dB
  double Absent = 0;   // seconds: the longest time without it
};

// Looks at windows of 10 ms, each a whole number of periods of any multiple of 100 Hz.
inline CTone FindTone(const CSamples& samples, double hz) {
  constexpr size_t WINDOW = 80, GAP = 320;
  constexpr double AUDIBLE = WINDOW * 300.0 * 300.0;
  CTone found;
  double signal = 0, noise = 0, sinceHeard = 0;
  size_t begin = 0, heardUntil = 0;
  for (size_t at = 0; at + WINDOW <= samples.size(); at += WINDOW) {
    double in = 0, quadrature = 0, all = 0;
    for (size_t i = at; i < at + WINDOW; ++i) {
      const double turn = 2 * std::numbers::pi * hz * static_cast<double>(i) / 8000;
      in += samples[i] * std::cos(turn);
      quadrature += samples[i] * std::sin(turn);
      all += static_cast<double>(samples[i]) * samples[i];
    }
    const double tone = (in * in + quadrature * quadrature) * 2 / WINDOW;
    sinceHeard += all - tone;
    const bool heard = tone > AUDIBLE && tone > all / 2;
    const size_t end = at + WINDOW;
    if (!heard) found.Absent = std::max(found.Absent, static_cast<double>(end - heardUntil) / 8000);
    if (!heard) continue;
    if (at - heardUntil > GAP || signal == 0) {
      begin = at;
      signal = 0;
      noise = 1e-9;
      sinceHeard = all - tone;
    }
    signal += tone;
    noise += sinceHeard;
    sinceHeard = 0;
    heardUntil = end;
    if (static_cast<double>(end - begin) / 8000 < found.Seconds) continue;
    found.Seconds = static_cast<double>(end - begin) / 8000;
    found.Ratio = 10 * std::log10(signal / noise);
  }
  return found;
}
