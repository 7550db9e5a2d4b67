// Keeps what is said again and again from filling the log.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

// Lines that differ only in their numbers are of one kind. Of a kind some come through at once, then one for
// each REFILL that has passed, which says how many were left out; likewise of all kinds of a speaker together.
// Not for several threads at a time.
class CLogThinner {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr double KIND_BURST = 5, SPEAKER_BURST = 300;
  static constexpr std::chrono::seconds KIND_REFILL{600};  // for one line more
  static constexpr std::chrono::milliseconds SPEAKER_REFILL{500};
  static constexpr size_t MOST_KINDS = 200, MOST_SPEAKERS = 300;  // remembered; then all are forgotten

  // Whether the line belongs into the log; `note` is then put behind it, "" or how many were left out before.
  bool Passes(const std::string& speaker, const std::string& line, Clock::time_point now, std::string* note);

 private:
  struct Bucket {
    double Room;
    Clock::time_point Filled;
    int64_t LeftOut = 0;
    bool Take(double most, std::chrono::milliseconds refill, Clock::time_point now);
  };
  struct Speaker {
    Bucket All;
    std::map<std::string, Bucket> Kinds;
  };
  std::map<std::string, Speaker> m_Speakers;
};
