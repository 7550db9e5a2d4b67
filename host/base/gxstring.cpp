#include "host/base/gxstring.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr const char* WHITE_SPACE = " \t\r\n\v\f";
constexpr char32_t REPLACEMENT_CHARACTER = 0xFFFD;

int LowerASCII(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 'A' && byte <= 'Z' ? byte - 'A' + 'a' : byte;
}

size_t Bounded(int value, size_t limit) {
  return value <= 0 ? 0 : std::min(static_cast<size_t>(value), limit);
}

int Position(size_t found) {
  return found == std::string::npos ? -1 : static_cast<int>(found);
}

bool IsCharacter(char32_t c) {
  return c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

// Reads the character at `position` and moves past it; a byte that begins none counts as U+FFFD.
char32_t NextCharacter(const std::string& text, size_t& position) {
  const auto first = static_cast<unsigned char>(text[position++]);
  if (first < 0x80) return first;
  const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : first >= 0xC2 ? 1 : 0;
  if (more == 0 || first > 0xF4 || position + static_cast<size_t>(more) > text.size())
    return REPLACEMENT_CHARACTER;
  char32_t character = first & (0x3Fu >> more);
  for (int i = 0; i < more; ++i) {
    const auto next = static_cast<unsigned char>(text[position + static_cast<size_t>(i)]);
    if ((next & 0xC0) != 0x80) return REPLACEMENT_CHARACTER;
    character = (character << 6) | (next & 0x3Fu);
  }
  constexpr char32_t SHORTEST[] = {0, 0x80, 0x800, 0x10000};
  if (character < SHORTEST[more] || !IsCharacter(character)) return REPLACEMENT_CHARACTER;
  position += static_cast<size_t>(more);
  return character;
}

}  // namespace

void AppendUTF8(std::string* text, char32_t character) {
  if (!IsCharacter(character)) character = REPLACEMENT_CHARACTER;
  const auto tail = [character](int shift) { return static_cast<char>(0x80 | ((character >> shift) & 0x3F)); };
  if (character < 0x80) {
    *text += static_cast<char>(character);
  } else if (character < 0x800) {
    *text += {static_cast<char>(0xC0 | (character >> 6)), tail(0)};
  } else if (character < 0x10000) {
    *text += {static_cast<char>(0xE0 | (character >> 12)), tail(6), tail(0)};
  } else {
    *text += {static_cast<char>(0xF0 | (character >> 18)), tail(12), tail(6), tail(0)};
  }
}

CGXString::CGXString(const wchar_t* text) {
  for (; text != nullptr && *text != 0; ++text) AppendUTF8(&m_Text, static_cast<char32_t>(*text));
}

std::wstring CGXString::Wide() const {
  std::wstring wide;
  for (size_t position = 0; position < m_Text.size();)
    wide += static_cast<wchar_t>(NextCharacter(m_Text, position));
  return wide;
}

void CGXString::Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  FormatV(format, arguments);
  va_end(arguments);
}

void CGXString::FormatV(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  // Into a text of its own, since an argument may point into this one.
  std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  m_Text.swap(text);
}

int CGXString::Compare(const char* other) const {
  return std::strcmp(m_Text.c_str(), other != nullptr ? other : "");
}

int CGXString::CompareNoCase(const char* other) const {
  const char* left = m_Text.c_str();
  const char* right = other != nullptr ? other : "";
  while (*left != '\0' && LowerASCII(*left) == LowerASCII(*right)) {
    ++left;
    ++right;
  }
  return LowerASCII(*left) - LowerASCII(*right);
}

int CGXString::Find(int character, int start) const {
  return Position(m_Text.find(static_cast<char>(character), start > 0 ? static_cast<size_t>(start) : 0));
}

int CGXString::Find(const char* text, int start) const {
  if (text == nullptr) return -1;
  return Position(m_Text.find(text, start > 0 ? static_cast<size_t>(start) : 0));
}

CGXString CGXString::Left(int count) const {
  return CGXString(m_Text.substr(0, Bounded(count, m_Text.size())));
}

CGXString CGXString::Right(int count) const {
  return CGXString(m_Text.substr(m_Text.size() - Bounded(count, m_Text.size())));
}

CGXString CGXString::Mid(int first, int count) const {
  const size_t begin = Bounded(first, m_Text.size());
  return CGXString(m_Text.substr(begin, count < 0 ? std::string::npos : static_cast<size_t>(count)));
}

void CGXString::TrimLeft() {
  m_Text.erase(0, m_Text.find_first_not_of(WHITE_SPACE));
}

void CGXString::TrimLeft(char character) {
  m_Text.erase(0, m_Text.find_first_not_of(character));
}

void CGXString::TrimLeft(const char* prefix) {
  if (prefix != nullptr && m_Text.starts_with(prefix)) m_Text.erase(0, std::strlen(prefix));
}

void CGXString::TrimRight() {
  m_Text.erase(m_Text.find_last_not_of(WHITE_SPACE) + 1);
}

void CGXString::TrimRight(char character) {
  m_Text.erase(m_Text.find_last_not_of(character) + 1);
}

char* CGXString::GetBufferCHAR(int capacity) {
  if (capacity > GetLength()) m_Text.resize(static_cast<size_t>(capacity));
  return m_Text.data();
}

void CGXString::ReleaseBuffer(int length) {
  m_Text.resize(length < 0 ? strnlen(m_Text.data(), m_Text.size()) : Bounded(length, m_Text.size()));
}
