#include "host/video/rate_window.h"

#include <algorithm>

void CRateWindow::Count(Clock::time_point now) {
  CGXLock lock(m_Lock);
  while (!m_Times.empty() && (m_Times.front() <= now - WINDOW || m_Times.size() >= MOST)) m_Times.pop_front();
  m_Times.push_back(now);
}

double CRateWindow::PerSecond(Clock::time_point now) const {
  CGXLock lock(m_Lock);
  const auto first = std::upper_bound(m_Times.begin(), m_Times.end(), now - WINDOW);
  return static_cast<double>(m_Times.end() - first) / static_cast<double>(WINDOW.count());
}
