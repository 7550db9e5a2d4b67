// Loudness of the sound that is on its way to the speaker, for a level meter in step with it.
#pragma once

#include "host/base/gxthread.h"
#include "util/gxtimer.h"

// Any thread.
class CVolumeQueue {
 public:
  static constexpr int CAPACITY = 256;             // entries
  static constexpr unsigned METER_ALIVE_MS = 250;  // a meter that asked this recently is being played from
  static constexpr long long BACKLOG_SAMPLES = 2000;

  void Push(int level, int samples);  // drops the oldest entry when full
  int Pop(int samples);               // the largest level among the entries touched; 0 when there are none

  // Somebody plays from this queue and is behind by more than a quarter of a second: more sound would only
  // add delay.
  bool Congested() const;

 private:
  struct Entry {
    int Level, Samples;
  };
  void DropFront() REQUIRES(m_Lock);

  mutable CGXCritical m_Lock;
  Entry m_Entries[CAPACITY] GUARDED_BY(m_Lock);  // a ring, oldest at m_iFront
  int m_iFront GUARDED_BY(m_Lock) = 0;
  int m_iCount GUARDED_BY(m_Lock) = 0;
  CGXTimer m_PopTimer GUARDED_BY(m_Lock);
};
