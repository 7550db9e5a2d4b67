// The pictures of one camera: a fixed number of buffers that go round between its stream threads and the main
// thread.
#pragma once

#include "host/base/gxthread.h"
#include "host/video/frame.h"

#include <array>
#include <deque>
#include <vector>

inline constexpr int FRAME_POOL_SIZE =
    8;  // a camera that is faster than its viewers loses pictures beyond that

// Any thread. Whoever has taken a frame owns it until it gives it back; a frame that is not out is refused.
class CFramePool {
 public:
  CFramePool();

  CJPEGBuffer* TakeFree();   // null: all are out or waiting; the one that was used last comes first
  CJPEGBuffer* TakeReady();  // null: none waits; the oldest comes first
  bool PutReady(CJPEGBuffer* frame);
  bool PutFree(CJPEGBuffer* frame);

 private:
  bool ComesBack(const CJPEGBuffer* frame) REQUIRES(m_Lock);

  std::array<CJPEGBuffer, FRAME_POOL_SIZE> m_Frames;
  CGXCritical m_Lock;
  std::vector<CJPEGBuffer*> m_Free GUARDED_BY(m_Lock);
  std::deque<CJPEGBuffer*> m_Ready GUARDED_BY(m_Lock);
  std::array<bool, FRAME_POOL_SIZE> m_Out GUARDED_BY(m_Lock){};
};
