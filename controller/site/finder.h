// Searches the network for cameras, on a thread of its own.
#pragma once

#include "controller/core/plugin_loader.h"
#include "host/base/gxthread.h"
#include "host/video/video.h"

#include <memory>
#include <string>
#include <vector>

class CFinder {
 public:
  explicit CFinder(const CPlugin* plugin);
  ~CFinder();  // breaks a search off

  bool Start(const std::string& user, const std::string& password);  // false: not offered, or still searching
  bool Searching() const { return m_Thread.IsRunning(); }
  bool Wait(unsigned milliseconds) {
    return m_Thread.WaitComplete(milliseconds);
  }  // true: not searching any more

  // What the last finished search has found, once; empty while one is under way.
  std::vector<std::unique_ptr<CDeviceConfig>> Take();

 private:
  static unsigned Search(void* self);

  std::unique_ptr<CSystemComponent> m_pComponent;
  CVideoSystem* m_pFinder = nullptr;                    // the component
  std::string m_User, m_Password;                       // of the search under way
  std::vector<std::unique_ptr<CDeviceConfig>> m_Found;  // the thread's while it runs
  CGXThread m_Thread;
};
