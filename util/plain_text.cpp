#include "util/plain_text.h"

namespace {

constexpr std::string_view CUT = "...";

unsigned char At(std::string_view text, size_t i) {
  return i < text.size() ? static_cast<unsigned char>(text[i]) : '\0';
}

bool ContinuesCharacter(unsigned char byte) {
  return (byte & 0xC0) == 0x80;
}

// How many bytes at `i` are one control character; 0: there is none.
size_t ControlAt(std::string_view text, size_t i) {
  const unsigned char byte = At(text, i), next = At(text, i + 1);
  if (byte < 0x20 || byte == 0x7F) return 1;
  return byte == 0xC2 && next >= 0x80 && next < 0xA0 ? 2 : 0;
}

}  // namespace

std::string PlainText(std::string_view text, size_t most) {
  const bool cut = text.size() > most;
  if (cut) {
    size_t end = most > CUT.size() ? most - CUT.size() : 0;
    while (end > 0 && ContinuesCharacter(At(text, end))) --end;
    text = text.substr(0, end);
  }
  std::string plain;
  for (size_t i = 0; i < text.size();) {
    const size_t control = ControlAt(text, i);
    plain += control != 0 ? '?' : text[i];
    i += control != 0 ? control : 1;
  }
  if (cut) plain += CUT;
  return plain;
}
