// SIGINT and SIGTERM as something that can be waited for.
#pragma once

// Installs the handlers; a second signal ends the process at once. Also makes writing to a closed pipe and to a
// file at its size limit an error instead of the process's end.
void InstallStopSignals();

bool StopRequested();
void RequestStop();  // as a signal would
// True when one has come, before or in that time. The wait also ends when `other` (-1: nothing) is readable.
bool WaitForStop(unsigned milliseconds, int other = -1);
int StopDescriptor();  // readable once one has come
