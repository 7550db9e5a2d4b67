// Local ports that the threads of one process share out among themselves: up to 64 at a time, two apart.
#pragma once

#include "host/base/gxlock.h"

// Any thread.
class CPortTable {
 public:
  static constexpr int MOST = 64;

  // Over the owner's array and count of the ports in use, which nobody else touches. Ports are given from
  // `first` on; `file` and `line` are what an exhausted table raises as the host's assertion.
  CPortTable(unsigned short (&ports)[MOST], int& count, unsigned short first, const char* file, int line)
      : m_pPorts(ports), m_pCount(&count), m_wFirst(first), m_pFile(file), m_iLine(line) {}

  unsigned short Take();           // the lowest one that is free; 0 when all are taken
  void Free(unsigned short port);  // an unknown one changes nothing

 private:
  unsigned short* End() REQUIRES(m_Lock) { return m_pPorts + *m_pCount; }

  CGXCritical m_Lock;
  unsigned short* const m_pPorts PT_GUARDED_BY(m_Lock);
  int* const m_pCount PT_GUARDED_BY(m_Lock);
  const unsigned short m_wFirst;
  const char* const m_pFile;
  const int m_iLine;
};
