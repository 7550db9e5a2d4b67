// The controller's log, and the descriptor that its results go to.
//
// Lines are cleaned (one printable line each), bounded in length, thinned by a CLogThinner for each speaker,
// and written by a thread of its own; the file is followed by older ones (".1" and so on), bounded in all.
#pragma once

#include <string>
#include <string_view>

inline constexpr size_t LOG_LINE_BYTES = 500;           // what is longer is cut
inline constexpr long long LOG_FILE_BYTES = 8LL << 20;  // then the next file begins
inline constexpr int LOG_OLDER_FILES = 3;               // kept beside it

// Sends standard output to the log, where the driver's own prints then go as lines of the speaker "driver", and
// keeps the terminal or pipe that it was for results. Once, before the plug-in is loaded. False with a reason.
bool OpenLog(const std::string& path, std::string* error);

void CloseLog();  // writes what waits; before the end of main, when nobody logs any more

// Any thread; does not wait for the disk. `speaker`: whose lines are thinned together, "" for the controller.
void Log(const std::string& line, const std::string& speaker = "");

int ResultDescriptor();                    // 1 until OpenLog
void WriteResult(std::string_view text);   // the whole text, as far as the reader takes it
void WriteProblem(std::string_view text);  // "controller: text" to standard error
