#include "host/system/system.h"

#include "host/base/gxassert.h"
#include "host/net/socket.h"
#include "host/system/comm_thread.h"
#include "host/system/event_server.h"
#include "host/system/main_lock.h"
#include "host/video/video.h"

#include <algorithm>
#include <deque>
#include <map>
#include <thread>
#include <vector>

namespace {

constexpr unsigned FILE_THREAD_PERIOD = 100;  // ms

using Components = std::vector<std::unique_ptr<CSystemComponent>>;

}  // namespace

struct CSystem::State {
  struct Posted {
    void (*Call)(void*);
    void* Argument;
  };

  CMainLock Main;

  mutable CGXMutex Lock;  // held for moments only, never while anything is called
  Components List GUARDED_BY(Lock);
  std::vector<CVideoSystem*> Video GUARDED_BY(Lock);
  int LastID GUARDED_BY(Lock) = 0;
  std::deque<Posted> Calls GUARDED_BY(Lock);
  unsigned long long NextTicket GUARDED_BY(Lock) = 0;
  std::map<unsigned long long, std::thread::id> Readers GUARDED_BY(Lock);  // CComponentListLocks by age
  CGXCondition ReaderLeft;

  std::atomic<bool> SaveWanted{false};
  CGXCritical FileThreadLock;  // of starting and stopping
  CGXThread FileThread;

  CSystemComponent* Find(int id) const REQUIRES(Lock);
  std::vector<int> IDs() const;
  Components Take(int id);
  void WaitForReaders();
};

CSystemComponent* CSystem::State::Find(int id) const {
  for (const auto& component : List)
    if (component->ID() == id) return component.get();
  return nullptr;
}

std::vector<int> CSystem::State::IDs() const {
  const CGXLock hold(Lock);
  std::vector<int> ids;
  for (const auto& component : List) ids.push_back(component->ID());
  return ids;
}

// Takes the component with that id (0: all of them) out of the lists.
Components CSystem::State::Take(int id) {
  const CGXLock hold(Lock);
  Components taken;
  for (auto& component : List)
    if (id == 0 || component->ID() == id) taken.push_back(std::move(component));
  std::erase(List, nullptr);
  Video.clear();
  for (const auto& component : List)
    if (auto* video = dynamic_cast<CVideoSystem*>(component.get())) Video.push_back(video);
  return taken;
}

void CSystem::State::WaitForReaders() {
  const CGXLock hold(Lock);
  const unsigned long long now = NextTicket;
  while (!Readers.empty() && Readers.begin()->first < now) ReaderLeft.Wait(Lock);
}

CComponentListLock::CComponentListLock() {
  CSystem::State& state = *CSystem::Instance()->m_pState;
  const CGXLock hold(state.Lock);
  m_qTicket = state.NextTicket++;
  state.Readers[m_qTicket] = std::this_thread::get_id();
}

CComponentListLock::~CComponentListLock() {
  CSystem::State& state = *CSystem::Instance()->m_pState;
  const CGXLock hold(state.Lock);
  state.Readers.erase(m_qTicket);
  state.ReaderLeft.NotifyAll();
}

CSystem::CSystem() : m_pState(std::make_unique<State>()) {}
CSystem::~CSystem() = default;

CSystem* CSystem::Instance() {
  // Never destroyed: components of a plug-in must not be deleted after the plug-in's own statics.
  static CSystem* const system = new CSystem;
  return system;
}

int CSystem::LockMainThread() {
  return m_pState->Main.Lock() ? 1 : 0;
}

void CSystem::UnlockMainThread() {
  if (!m_pState->Main.Unlock()) AssertWrap("system", __LINE__);
}

bool CSystem::HoldsMainThread() const {
  return m_pState->Main.HeldByCaller();
}

void CSystem::NotifyConfigChanged() {
  m_pState->SaveWanted = true;
}
void CSystem::NotifyWrite() {
  m_pState->SaveWanted = true;
}
bool CSystem::TakeSaveRequest() {
  return m_pState->SaveWanted.exchange(false);
}

int CSystem::NComponents() const {
  const CGXLock hold(m_pState->Lock);
  return static_cast<int>(m_pState->List.size());
}

CSystemComponent* CSystem::Component(int index) const {
  const CGXLock hold(m_pState->Lock);
  const auto i = static_cast<size_t>(index);
  return i < m_pState->List.size() ? m_pState->List[i].get() : nullptr;
}

CSystemComponent* CSystem::ComponentByID(int id) const {
  const CGXLock hold(m_pState->Lock);
  return m_pState->Find(id);
}

int CSystem::NVideo() const {
  const CGXLock hold(m_pState->Lock);
  return static_cast<int>(m_pState->Video.size());
}

CVideoSystem* CSystem::VideoSystem(int index) const {
  const CGXLock hold(m_pState->Lock);
  const auto i = static_cast<size_t>(index);
  return i < m_pState->Video.size() ? m_pState->Video[i] : nullptr;
}

void CSystem::AddComponent(std::unique_ptr<CSystemComponent> component) {
  if (component == nullptr) return;
  auto* const video = dynamic_cast<CVideoSystem*>(component.get());
  const CGXLock hold(m_pState->Lock);
  if (component->ID() <= 0 || m_pState->Find(component->ID()) != nullptr) component->ID(m_pState->LastID + 1);
  m_pState->LastID = std::max(m_pState->LastID, component->ID());
  m_pState->List.push_back(std::move(component));
  if (video != nullptr) m_pState->Video.push_back(video);
}

// Waiting for itself would last for ever.
bool CSystem::MayRemove() const {
  const CGXLock hold(m_pState->Lock);
  const bool reading = std::any_of(m_pState->Readers.begin(), m_pState->Readers.end(), [](const auto& reader) {
    return reader.second == std::this_thread::get_id();
  });
  return !reading && !HoldsMainThread();
}

void CSystem::Retire(CSystemComponent* component) {
  component->Leaving(true);
  if (auto* thread = dynamic_cast<CGeneralCommThread*>(component)) thread->RequestStop();
}

// Its thread may declare commands until it has ended.
void CSystem::End(CSystemComponent* component) {
  if (auto* thread = dynamic_cast<CGeneralCommThread*>(component)) thread->StopThread();
  CEventServer::Instance()->ForgetComponent(component->ID());
}

bool CSystem::RemoveComponent(int id) {
  if (!MayRemove()) {
    AssertWrap("system", __LINE__);
    return false;
  }
  Components taken;
  {
    const CMainThreadLock lock;
    if (!lock || id <= 0) return false;
    taken = m_pState->Take(id);
  }
  if (taken.empty()) return false;
  m_pState->WaitForReaders();
  Retire(taken.front().get());
  End(taken.front().get());
  return true;
}

void CSystem::RemoveAllComponents() {
  if (!MayRemove()) return AssertWrap("system", __LINE__);
  Components taken;
  {
    const CMainThreadLock lock;
    if (!lock) return;
    taken = m_pState->Take(0);
  }
  m_pState->WaitForReaders();
  for (const auto& component : taken) Retire(component.get());
  for (auto& component : taken) {
    End(component.get());
    component.reset();
  }
}

void CSystem::MainThreadPass() {
  size_t calls;
  {
    const CGXLock hold(m_pState->Lock);
    calls = m_pState->Calls.size();  // those posted from now on wait for the next pass
  }
  for (; calls > 0; --calls) {
    const CMainThreadLock lock;
    CGXLock hold(m_pState->Lock);
    if (!lock || m_pState->Calls.empty()) break;
    const State::Posted posted = m_pState->Calls.front();
    m_pState->Calls.pop_front();
    hold.GXUnlock();
    posted.Call(posted.Argument);
  }
  for (const int id : m_pState->IDs()) {
    const CMainThreadLock lock;
    if (!lock) return;
    if (CSystemComponent* component = ComponentByID(id)) component->OnComponentIdle();
  }
}

void CSystem::PostToMainThread(void (*call)(void* argument), void* argument) {
  const CGXLock hold(m_pState->Lock);
  m_pState->Calls.push_back({call, argument});
}

void CSystem::DropPosted(const void* argument) {
  const CMainThreadLock lock;
  const CGXLock hold(m_pState->Lock);
  std::erase_if(m_pState->Calls,
                [argument](const State::Posted& posted) { return posted.Argument == argument; });
}

void CSystem::FileThreadPass() {
  for (const int id : m_pState->IDs()) {
    if (CGXThread::CurrentCancelled()) return;
    const CComponentListLock list;
    if (CSystemComponent* component = ComponentByID(id)) component->FileThreadOnIdle();
  }
}

unsigned CSystem::FileThreadEntry(void* self) {
  while (!CGXThread::CurrentCancelled()) {
    static_cast<CSystem*>(self)->FileThreadPass();
    Sleep(FILE_THREAD_PERIOD);
  }
  return 0;
}

void CSystem::StartFileThread() {
  CGXLock lock(m_pState->FileThreadLock);
  m_pState->FileThread.Start(FileThreadEntry, this, 0, "File Thread");
}

void CSystem::StopFileThread() {
  CGXLock lock(m_pState->FileThreadLock);
  m_pState->FileThread.Cancel();
  m_pState->FileThread.Reset();
}
