#include "controller/site/camera_removal.h"

#include "controller/core/problems.h"
#include "host/system/system.h"

CCameraRemoval::~CCameraRemoval() {
  m_Thread.Join();
}

bool CCameraRemoval::Start(std::unique_ptr<CCamera>* camera) {
  m_pCamera = std::move(*camera);
  if (m_Thread.Start(Run, this, 0, "Removal") != 0) return true;
  *camera = std::move(m_pCamera);
  return false;
}

unsigned CCameraRemoval::Run(void* self) {
  auto* const removal = static_cast<CCameraRemoval*>(self);
  const int id = removal->m_pCamera->ID();
  {
    const CMainThreadLock lock;
    removal->m_pCamera->Leave();
  }
  removal->m_pCamera.reset();
  CSystem::Instance()->RemoveComponent(id);
  CProblemList::Instance()->ForgetCamera(id);
  removal->m_bGone = true;
  return 0;
}

void CCameraRemoval::Finish() {
  if (m_bFinished || !m_bGone) return;
  m_bFinished = true;
  if (m_Then) m_Then();
}
