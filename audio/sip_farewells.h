// Who winds down the calls that were given up while they were being set up, when the camera and the talk that
// they belonged to may be long gone.
#pragma once

#include "audio/sip_farewell.h"
#include "host/base/gxthread.h"
#include "util/owned_socket.h"

#include <netinet/in.h>

#include <memory>
#include <vector>

// One for the whole driver, with a thread while there is something to do. Any thread.
class CSIPFarewells {
 public:
  static constexpr size_t MOST = 256;  // beyond, the oldest is given up

  // Its end is that of the process, which it keeps waiting for END_MS at most.
  static CSIPFarewells* Instance();

  // Never blocks. The socket is the one that the camera answers to.
  void Add(COwnedSocket socket, const sockaddr_in& camera, CSIPFarewell farewell);
  // Whether the camera at that address may have a call of ours that is being wound down: a strict one is busy.
  bool Owes(const sockaddr_in& camera) const;

 private:
  static constexpr std::chrono::milliseconds END_PATIENCE{2000}, END_TIME{3000};
  struct CEntry {
    COwnedSocket Socket;
    sockaddr_in Camera;
    CSIPFarewell Farewell;
  };
  using Clock = CSIPFarewell::Clock;

  CSIPFarewells();
  ~CSIPFarewells();
  CSIPFarewells(const CSIPFarewells&) = delete;
  CSIPFarewells& operator=(const CSIPFarewells&) = delete;

  void StartThread();
  static unsigned ThreadProc(void* self);
  void Run();
  bool Pass();
  bool DecideToEnd() REQUIRES(m_Lock);
  void Wait();
  static void Send(const CEntry& entry, const CSIPFarewell::Requests& requests);
  static void Receive(CEntry* entry);

  const COwnedSocket m_Wake;  // eventfd
  CGXThread m_Thread;
  mutable CGXCritical m_Lock;
  std::vector<std::unique_ptr<CEntry>> m_Entries GUARDED_BY(m_Lock);
  bool m_bRuns GUARDED_BY(m_Lock) = false;  // the thread has not decided to end
  Clock::time_point m_End GUARDED_BY(m_Lock) = Clock::time_point::max();
};
