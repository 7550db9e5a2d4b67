#include "host/video/frame_pool.h"

#include <utility>

CFramePool::CFramePool() {
  for (CJPEGBuffer& frame : m_Frames) m_Free.push_back(&frame);
}

CJPEGBuffer* CFramePool::TakeFree() {
  CGXLock lock(m_Lock);
  if (m_Free.empty()) return nullptr;
  CJPEGBuffer* const frame = m_Free.back();
  m_Free.pop_back();
  m_Out[static_cast<size_t>(frame - m_Frames.data())] = true;
  return frame;
}

CJPEGBuffer* CFramePool::TakeReady() {
  CGXLock lock(m_Lock);
  if (m_Ready.empty()) return nullptr;
  CJPEGBuffer* const frame = m_Ready.front();
  m_Ready.pop_front();
  m_Out[static_cast<size_t>(frame - m_Frames.data())] = true;
  return frame;
}

bool CFramePool::ComesBack(const CJPEGBuffer* frame) {
  for (size_t i = 0; i < m_Frames.size(); ++i)
    if (&m_Frames[i] == frame) return std::exchange(m_Out[i], false);
  return false;
}

bool CFramePool::PutReady(CJPEGBuffer* frame) {
  CGXLock lock(m_Lock);
  if (!ComesBack(frame)) return false;
  m_Ready.push_back(frame);
  return true;
}

bool CFramePool::PutFree(CJPEGBuffer* frame) {
  CGXLock lock(m_Lock);
  if (!ComesBack(frame)) return false;
  m_Free.push_back(frame);
  return true;
}
