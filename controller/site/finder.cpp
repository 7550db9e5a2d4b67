#include "controller/site/finder.h"

#include "controller/site/camera.h"
#include "host/base/gxlist.h"

#include <utility>

CFinder::CFinder(const CPlugin* plugin)
    : m_pComponent(plugin->Create(TYPE_FINDER)), m_pFinder(dynamic_cast<CVideoSystem*>(m_pComponent.get())) {}

CFinder::~CFinder() {
  m_Thread.Cancel();
  m_Thread.Join();
}

bool CFinder::Start(const std::string& user, const std::string& password) {
  if (m_pFinder == nullptr || Searching()) return false;
  m_Thread.WaitComplete(0);
  m_User = user;
  m_Password = password;
  return m_Thread.Start(Search, this, 0, "Finder") != 0;
}

std::vector<std::unique_ptr<CDeviceConfig>> CFinder::Take() {
  if (Searching()) return {};
  m_Thread.WaitComplete(0);
  return std::exchange(m_Found, {});
}

unsigned CFinder::Search(void* self) {
  auto* finder = static_cast<CFinder*>(self);
  CGXObList records;
  finder->m_pFinder->FindNewDevices(finder->m_User, finder->m_Password, &records);
  while (!records.IsEmpty()) finder->m_Found.emplace_back(static_cast<CDeviceConfig*>(records.RemoveHead()));
  return 0;
}
