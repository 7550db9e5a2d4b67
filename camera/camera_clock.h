// The camera's clock as it was last read, carried on by the controller's, whose steps it notices.
#pragma once

#include "host/base/gxlock.h"
#include "host/base/gxtime.h"
#include "util/gxtimer.h"

// The stopwatch that carries it on is the controller's wall clock. When somebody sets that, what is stated as
// the camera's time is wrong until the camera is asked again, and logged-in requests are refused. So the
// stopwatch is looked at often, and a reading that cannot follow from the one before counts as a step.
//
// Any thread.
class CCameraClock {
 public:
  // Nobody waits longer between two looks: they come with every login, every pass of the service and twice a
  // second from the listener for events.
  static constexpr unsigned MOST_BETWEEN_LOOKS_MS = 30000;

  struct CReading {
    CGXTime Time;    // as it stood
    CGXTimer Since;  // when this was started
  };

  void Set(const CGXTime& time);  // as just read
  CReading Reading();             // copied as a whole: a torn pair is a wrong login
  unsigned Age();                 // ms since it was read, as the stopwatch has it
  bool Wrong();                   // a step has come since it was read
  unsigned Steps();               // that have been noticed; a number to compare with a later one

 private:
  void Look() REQUIRES(m_Lock);

  CGXCritical m_Lock;
  CReading m_Reading GUARDED_BY(m_Lock);
  unsigned m_dwLastLook GUARDED_BY(m_Lock) = 0;  // what the stopwatch showed
  unsigned m_nSteps GUARDED_BY(m_Lock) = 0;
  bool m_bWrong GUARDED_BY(m_Lock) = false;
};
