// The host's string: bytes as received (UTF-8 where text), with the small vocabulary that the framework uses.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

class CGXString {
 public:
  CGXString() = default;
  CGXString(const char* text) : m_Text(text != nullptr ? text : "") {}  // null reads as empty
  CGXString(const char* text, int length) : m_Text(text, length > 0 ? static_cast<size_t>(length) : 0) {}
  CGXString(const wchar_t* text);  // wide text becomes UTF-8
  CGXString(std::string text) : m_Text(std::move(text)) {}
  explicit CGXString(std::string_view text) : m_Text(text) {}

  operator const char*() const { return m_Text.c_str(); }
  const std::string& Str() const { return m_Text; }
  std::wstring Wide() const;

  int GetLength() const { return static_cast<int>(m_Text.size()); }
  bool IsEmpty() const { return m_Text.empty(); }
  void Empty() { m_Text.clear(); }

  // printf formatting into this string, any length.
  void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void FormatV(const char* format, va_list arguments) __attribute__((format(printf, 2, 0)));

  // Below, at or above 0 like strcmp and strcasecmp (letter case of ASCII only). Null compares as empty.
  int Compare(const char* other) const;
  int CompareNoCase(const char* other) const;

  // Position of the first match at or after `start`; -1 when there is none.
  int Find(int character, int start = 0) const;
  int Find(const char* text, int start = 0) const;

  // The first, the last `count` characters, or those from `first` on (count -1: to the end); cut to what there
  // is.
  CGXString Left(int count) const;
  CGXString Right(int count) const;
  CGXString Mid(int first, int count = -1) const;

  // Without argument: white space. A character: all of it at that end. A text: exactly that prefix, once.
  void TrimLeft();
  void TrimLeft(char character);
  void TrimLeft(const char* prefix);
  void TrimRight();
  void TrimRight(char character);

  // A writable buffer of at least `capacity` characters and a terminator; ReleaseBuffer(-1) ends at the first
  // NUL.
  char* GetBufferCHAR(int capacity);
  void ReleaseBuffer(int length = -1);

  CGXString& operator+=(const CGXString& other) {
    m_Text += other.m_Text;
    return *this;
  }
  CGXString& operator+=(const char* other) {
    if (other != nullptr) m_Text += other;
    return *this;
  }
  CGXString& operator+=(char other) {
    m_Text += other;
    return *this;
  }

  friend CGXString operator+(CGXString left, const CGXString& right) { return left += right; }
  friend CGXString operator+(CGXString left, const char* right) { return left += right; }
  friend CGXString operator+(const char* left, const CGXString& right) { return CGXString(left) += right; }
  friend bool operator==(const CGXString& left, const CGXString& right) { return left.m_Text == right.m_Text; }
  friend bool operator==(const CGXString& left, const char* right) { return left.Compare(right) == 0; }
  friend bool operator<(const CGXString& left, const CGXString& right) { return left.m_Text < right.m_Text; }

 private:
  std::string m_Text;
};

// Appends one character as UTF-8 (RFC 3629); what is no character becomes U+FFFD.
void AppendUTF8(std::string* text, char32_t character);
