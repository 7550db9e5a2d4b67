#include "controller/core/log_thinner.h"

#include <algorithm>
#include <utility>

namespace {

constexpr size_t KIND_BYTES = 100;  // of a line that tell its kind

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

std::string KindOf(const std::string& line) {
  std::string kind;
  for (const char c : line) {
    if (kind.size() >= KIND_BYTES) break;
    if (!IsDigit(c))
      kind += c;
    else if (kind.empty() || kind.back() != '#')
      kind += '#';
  }
  return kind;
}

}  // namespace

bool CLogThinner::Bucket::Take(double most, std::chrono::milliseconds refill, Clock::time_point now) {
  const double passed = std::chrono::duration<double>(now - Filled) / refill;
  Filled = now;
  Room = std::min(most, Room + passed);
  if (Room < 1) {
    ++LeftOut;
    return false;
  }
  Room -= 1;
  return true;
}

bool CLogThinner::Passes(const std::string& speaker, const std::string& line, Clock::time_point now,
                         std::string* note) {
  if (m_Speakers.size() >= MOST_SPEAKERS && !m_Speakers.contains(speaker)) m_Speakers.clear();
  Speaker& own = m_Speakers.try_emplace(speaker, Speaker{{SPEAKER_BURST, now}, {}}).first->second;
  const std::string name = KindOf(line);
  if (own.Kinds.size() >= MOST_KINDS && !own.Kinds.contains(name)) own.Kinds.clear();
  Bucket& kind = own.Kinds.try_emplace(name, Bucket{KIND_BURST, now}).first->second;
  if (!kind.Take(KIND_BURST, KIND_REFILL, now) || !own.All.Take(SPEAKER_BURST, SPEAKER_REFILL, now))
    return false;
  const int64_t like = std::exchange(kind.LeftOut, 0), others = std::exchange(own.All.LeftOut, 0);
  *note = like > 0 ? " (" + std::to_string(like) + " more like it were left out)" : "";
  if (others > 0) *note += " (" + std::to_string(others) + " lines of this speaker were left out)";
  return true;
}
