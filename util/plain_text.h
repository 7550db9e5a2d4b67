// Text from outside, made fit for one line of a log or a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The text with every control character (ASCII, and the C1 ones of UTF-8, which terminals obey too) as '?', and
// no longer than `most` bytes: a longer one is cut between characters and ends in "...".
std::string PlainText(std::string_view text, size_t most);
