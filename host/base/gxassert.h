// Internal checks and the process-wide trace line.
#pragma once

// Reports a failed internal check and returns; `file` is the name of the source file, without folder or ending.
void AssertWrap(const char* file, int line);
int AssertCount();  // how many were reported since the process started

// A trace line that belongs to no component. Any thread.
void TraceWrap(const char* text);

// Where those lines go from now on; null: to standard error, as before the first call. The hook is called on
// the thread that speaks.
void SetTraceHook(void (*hook)(const char* text));
