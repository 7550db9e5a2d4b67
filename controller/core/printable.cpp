#include "controller/core/printable.h"

#include <algorithm>

namespace {

// Length of the UTF-8 character at the front, 0 when it is none.
size_t CharacterLength(const std::string& text, size_t at) {
  const auto byte = [&](size_t i) {
    return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0u;
  };
  const unsigned first = byte(0);
  const size_t length = first < 0x80                    ? 1
                        : first >= 0xC2 && first < 0xE0 ? 2
                        : (first & 0xF0) == 0xE0        ? 3
                        : first >= 0xF0 && first < 0xF5 ? 4
                                                        : 0;
  for (size_t i = 1; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80) return 0;
  return length;
}

}  // namespace

std::string Printable(const std::string& text) {
  std::string result;
  for (size_t i = 0; i < text.size();) {
    const size_t length = CharacterLength(text, i);
    const auto first = static_cast<unsigned char>(text[i]);
    // 0xC2 0x80 to 0x9F are the control characters of the upper half.
    const bool control = first < 0x20 || first == 0x7F ||
                         (first == 0xC2 && length == 2 && static_cast<unsigned char>(text[i + 1]) < 0xA0);
    result += length == 0 || control ? "?" : text.substr(i, length);
    i += std::max<size_t>(length, 1);
  }
  return result;
}

std::string Bounded(const std::string& text, size_t bytes) {
  if (text.size() <= bytes) return text;
  size_t end = bytes;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end) + "...";
}

size_t CharactersIn(const std::string& text) {
  return static_cast<size_t>(
      std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string Cut(const std::string& text, size_t width) {
  if (CharactersIn(text) <= width || width < 2) return text;
  std::string cut;
  for (size_t i = 0, n = 0; n + 1 < width; ++n) {
    const size_t length = std::max<size_t>(CharacterLength(text, i), 1);
    cut += text.substr(i, length);
    i += length;
  }
  return cut + "…";
}
