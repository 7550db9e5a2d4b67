#include "host/net/port_table.h"

#include "host/base/gxassert.h"

#include <algorithm>

namespace {

constexpr unsigned short STEP = 2;  // RTP leaves the odd neighbour to its reports (RFC 3550, 11)

}  // namespace

unsigned short CPortTable::Take() {
  const CGXLock lock(m_Lock);
  if (*m_pCount >= MOST) {
    AssertWrap(m_pFile, m_iLine);
    return 0;
  }
  unsigned short port = m_wFirst;
  while (std::find(m_pPorts, End(), port) != End()) port = static_cast<unsigned short>(port + STEP);
  m_pPorts[(*m_pCount)++] = port;
  return port;
}

void CPortTable::Free(unsigned short port) {
  const CGXLock lock(m_Lock);
  unsigned short* const found = std::find(m_pPorts, End(), port);
  if (found == End()) return;
  std::copy(found + 1, End(), found);
  --*m_pCount;
}
