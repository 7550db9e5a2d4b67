// The queues that procs pass through: pending ones in the order pushed, then finished ones.
#pragma once

#include "camera/ONVIF_proc.h"
#include "host/base/gxworker.h"

#include <memory>

// Any thread. One worker drains the pending queue: whoever is told to start it starts it, and it ends when Pull
// says that there is no more.
class CProcQueue {
 public:
  CProcQueue() = default;
  ~CProcQueue();
  CProcQueue(const CProcQueue&) = delete;
  CProcQueue& operator=(const CProcQueue&) = delete;

  void Push(std::unique_ptr<CONVIF_Proc> proc);
  void Kill(int type);  // drops the pending procs of that type; a running one is not touched
  // Kill of the procs of its type and Push in one: of many callers at once, one proc is left pending.
  void Replace(std::unique_ptr<CONVIF_Proc> proc);
  bool Claim();  // true: no worker runs, the caller starts Worker() now
  CGXWorker& Worker() { return m_Worker; }

  std::unique_ptr<CONVIF_Proc> Pull();                   // the next one to run; null: the worker has ended
  bool PushFinished(std::unique_ptr<CONVIF_Proc> proc);  // true when another one waits already

  // The first finished one; null when none. The others are dropped: completions ask for the whole state of the
  // camera, and a host that saw several for one pass would open the same stream once for each.
  std::unique_ptr<CONVIF_Proc> PullFinished();
  void DropAll();

 private:
  static void Append(CONVIF_Proc** head, std::unique_ptr<CONVIF_Proc> proc);
  static void DeleteAll(CONVIF_Proc* head);

  void KillPending(int type) REQUIRES(m_Lock);

  CGXCritical m_Lock;
  CONVIF_Proc* m_pPending GUARDED_BY(m_Lock) = nullptr;   // owned
  CONVIF_Proc* m_pFinished GUARDED_BY(m_Lock) = nullptr;  // owned
  CGXWorker m_Worker;
};
