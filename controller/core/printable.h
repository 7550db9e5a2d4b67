// Texts that come from outside, made fit for a terminal, a log and a status.
#pragma once

#include <string>

inline constexpr size_t NAME_BYTES = 60;  // of a camera's name, where it stands in front of something

// The text as one printable line: whatever a camera put into its name or a trace line, control characters and
// bytes that are not UTF-8 become '?', so that it cannot steer the terminal.
std::string Printable(const std::string& text);

// At most `bytes` of it, whole characters, and "..." behind when something is missing.
std::string Bounded(const std::string& text, size_t bytes);

// Of printable text: its width on a terminal, and as much of it as `width` has room for, with an ellipsis.
size_t CharactersIn(const std::string& text);
std::string Cut(const std::string& text, size_t width);
