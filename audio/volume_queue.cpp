#include "audio/volume_queue.h"

#include <algorithm>

void CVolumeQueue::DropFront() {
  m_iFront = (m_iFront + 1) % CAPACITY;
  --m_iCount;
}

void CVolumeQueue::Push(int level, int samples) {
  const CGXLock hold(m_Lock);
  if (m_iCount == CAPACITY) DropFront();
  m_Entries[(m_iFront + m_iCount) % CAPACITY] = {level, samples};
  ++m_iCount;
}

int CVolumeQueue::Pop(int samples) {
  const CGXLock hold(m_Lock);
  m_PopTimer.Restart();
  int loudest = 0;
  while (samples > 0 && m_iCount > 0) {
    Entry& front = m_Entries[m_iFront];
    const int taken = std::clamp(front.Samples, 0, samples);
    loudest = std::max(loudest, front.Level);
    samples -= taken;
    front.Samples -= taken;
    if (front.Samples <= 0) DropFront();
  }
  return loudest;
}

bool CVolumeQueue::Congested() const {
  const CGXLock hold(m_Lock);
  if (m_PopTimer.GXTickCount() >= METER_ALIVE_MS) return false;
  long long queued = 0;
  for (int i = 0; i < m_iCount; ++i) queued += m_Entries[(m_iFront + i) % CAPACITY].Samples;
  return queued > BACKLOG_SAMPLES;
}
