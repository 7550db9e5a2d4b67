// Decimal numbers at the beginning of texts that devices send.
#pragma once

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <string_view>

// The whole number that `text` begins with, behind blanks and with its sign; one beyond the type stops at its
// ends. Absent when there is none. `rest`, when not null, is what follows it.
template <class NUMBER>
std::optional<NUMBER> LeadingNumber(std::string_view text, std::string_view* rest = nullptr) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n\v\f"), text.size()));
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  if (text.empty() || text[0] < '0' || text[0] > '9') return std::nullopt;
  unsigned long long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (rest != nullptr) *rest = text.substr(static_cast<size_t>(end - text.data()));
  using LIMITS = std::numeric_limits<NUMBER>;
  const auto most = static_cast<unsigned long long>(LIMITS::max());
  if (error != std::errc() || number > most) return negative ? LIMITS::min() : LIMITS::max();
  if (!negative) return static_cast<NUMBER>(number);
  return LIMITS::is_signed ? static_cast<NUMBER>(-static_cast<long long>(number)) : NUMBER{0};
}
