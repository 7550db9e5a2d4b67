// Takes a camera out of the running controller without keeping the main thread waiting.
#pragma once

#include "controller/site/camera.h"
#include "host/base/gxthread.h"

#include <atomic>
#include <functional>
#include <memory>

// A thread of its own ends the camera's recording and its threads, and deletes the component; its files stay.
class CCameraRemoval {
 public:
  explicit CCameraRemoval(std::function<void()> then = {}) : m_Then(std::move(then)) {}
  ~CCameraRemoval();  // waits for the end: not under the main-thread lock unless Gone()
  CCameraRemoval(const CCameraRemoval&) = delete;
  CCameraRemoval& operator=(const CCameraRemoval&) = delete;

  // False, and the camera stays with the caller, when there is no thread to be had.
  bool Start(std::unique_ptr<CCamera>* camera);

  void Wait() { m_Thread.Join(); }       // not under the main-thread lock
  bool Gone() const { return m_bGone; }  // the component is deleted
  // Main thread, under its lock, once it is gone: does what is to follow, once.
  void Finish();
  bool Finished() const { return m_bFinished; }

 private:
  static unsigned Run(void* self);

  std::function<void()> m_Then;
  std::unique_ptr<CCamera> m_pCamera;
  std::atomic<bool> m_bGone{false};
  bool m_bFinished = false;  // main thread
  CGXThread m_Thread;
};
