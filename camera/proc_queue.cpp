#include "camera/proc_queue.h"

#include <utility>

CProcQueue::~CProcQueue() {
  DropAll();
}

void CProcQueue::Append(CONVIF_Proc** head, std::unique_ptr<CONVIF_Proc> proc) {
  CONVIF_Proc* const added = proc.release();
  added->Next(nullptr);
  if (*head == nullptr) {
    *head = added;
    return;
  }
  CONVIF_Proc* tail = *head;
  while (tail->Next() != nullptr) tail = tail->Next();
  tail->Next(added);
}

void CProcQueue::DeleteAll(CONVIF_Proc* head) {
  while (head != nullptr) {
    const std::unique_ptr<CONVIF_Proc> proc(head);
    head = proc->Next();
  }
}

void CProcQueue::Push(std::unique_ptr<CONVIF_Proc> proc) {
  const CGXLock lock(m_Lock);
  Append(&m_pPending, std::move(proc));
}

void CProcQueue::Kill(int type) {
  const CGXLock lock(m_Lock);
  KillPending(type);
}

void CProcQueue::Replace(std::unique_ptr<CONVIF_Proc> proc) {
  const CGXLock lock(m_Lock);
  KillPending(proc->Type());
  Append(&m_pPending, std::move(proc));
}

void CProcQueue::KillPending(int type) {
  CONVIF_Proc* kept = nullptr;
  CONVIF_Proc* proc = std::exchange(m_pPending, nullptr);
  while (proc != nullptr) {
    std::unique_ptr<CONVIF_Proc> owned(proc);
    proc = proc->Next();
    if (owned->Type() != type) Append(&kept, std::move(owned));
  }
  m_pPending = kept;
}

bool CProcQueue::Claim() {
  const CGXLock lock(m_Lock);
  return m_Worker.Claim(m_Lock);
}

std::unique_ptr<CONVIF_Proc> CProcQueue::Pull() {
  const CGXLock lock(m_Lock);
  std::unique_ptr<CONVIF_Proc> proc(m_pPending);
  if (proc == nullptr) {
    m_Worker.Release(m_Lock);
    return nullptr;
  }
  m_pPending = proc->Next();
  proc->Next(nullptr);
  return proc;
}

bool CProcQueue::PushFinished(std::unique_ptr<CONVIF_Proc> proc) {
  const CGXLock lock(m_Lock);
  const bool waiting = m_pFinished != nullptr;
  Append(&m_pFinished, std::move(proc));
  return waiting;
}

std::unique_ptr<CONVIF_Proc> CProcQueue::PullFinished() {
  const CGXLock lock(m_Lock);
  std::unique_ptr<CONVIF_Proc> first(std::exchange(m_pFinished, nullptr));
  if (first == nullptr) return nullptr;
  DeleteAll(first->Next());
  first->Next(nullptr);
  return first;
}

void CProcQueue::DropAll() {
  const CGXLock lock(m_Lock);
  DeleteAll(std::exchange(m_pPending, nullptr));
  DeleteAll(std::exchange(m_pFinished, nullptr));
}
