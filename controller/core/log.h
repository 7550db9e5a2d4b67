// The controller's log, and the descriptor that its results go to.
#pragma once

#include <string>
#include <string_view>

// Sends standard output to the file, where the driver's trace lines and the log then go, and keeps the terminal
// or pipe that it was for results. Once, before the plug-in is loaded. False with a reason.
bool OpenLog(const std::string& path, std::string* error);

void CloseLog();                    // writes what waits; before the end of main, when nobody logs any more
void Log(const std::string& line);  // any thread; does not wait for the disk

int ResultDescriptor();                    // 1 until OpenLog
void WriteResult(std::string_view text);   // the whole text, as far as the reader takes it
void WriteProblem(std::string_view text);  // "controller: text" to standard error
