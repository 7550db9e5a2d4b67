#include "audio/sip_farewells.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

CSIPFarewells* CSIPFarewells::Instance() {
  static CSIPFarewells g_Farewells;
  return &g_Farewells;
}

CSIPFarewells::CSIPFarewells() : m_Wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

CSIPFarewells::~CSIPFarewells() {
  {
    const CGXLock hold(m_Lock);
    const Clock::time_point now = Clock::now();
    m_End = now + END_TIME;
    for (const auto& entry : m_Entries) entry->Farewell.Hurry(now + END_PATIENCE);
  }
  eventfd_write(m_Wake.Get(), 1);
  m_Thread.Join();
}

void CSIPFarewells::Add(COwnedSocket socket, const sockaddr_in& camera, CSIPFarewell farewell) {
  {
    const CGXLock hold(m_Lock);
    if (m_Entries.size() >= MOST) m_Entries.erase(m_Entries.begin());
    m_Entries.push_back(std::make_unique<CEntry>(CEntry{std::move(socket), camera, std::move(farewell)}));
  }
  StartThread();
  eventfd_write(m_Wake.Get(), 1);
}

bool CSIPFarewells::Owes(const sockaddr_in& camera) const {
  const CGXLock hold(m_Lock);
  return std::any_of(m_Entries.begin(), m_Entries.end(), [&camera](const auto& entry) {
    return entry->Farewell.Owes() && entry->Camera.sin_addr.s_addr == camera.sin_addr.s_addr;
  });
}

void CSIPFarewells::StartThread() {
  const CGXLock hold(m_Lock);
  if (m_bRuns) return;
  m_Thread.Join();  // the one before has decided to end
  m_bRuns = m_Thread.Start(ThreadProc, this, 0, "SIP Farewell") != 0;
  if (m_bRuns) return;
  // Without a thread: what can be said at once.
  for (const auto& entry : m_Entries) Send(*entry, entry->Farewell.Tick(Clock::now()));
  m_Entries.clear();
}

unsigned CSIPFarewells::ThreadProc(void* self) {
  static_cast<CSIPFarewells*>(self)->Run();
  return 0;
}

void CSIPFarewells::Run() {
  while (Pass()) Wait();
}

// What has come and what is due. False when there is nothing left to do.
bool CSIPFarewells::Pass() {
  const CGXLock hold(m_Lock);
  for (const auto& entry : m_Entries) {
    Receive(entry.get());
    Send(*entry, entry->Farewell.Tick(Clock::now()));
  }
  std::erase_if(m_Entries, [](const auto& entry) { return entry->Farewell.Over(); });
  m_bRuns = !DecideToEnd();
  return m_bRuns;
}

bool CSIPFarewells::DecideToEnd() {
  if (m_Entries.empty() || Clock::now() >= m_End) return true;
  return m_End != Clock::time_point::max() &&
         std::none_of(m_Entries.begin(), m_Entries.end(), [](const auto& e) { return e->Farewell.Owes(); });
}

void CSIPFarewells::Wait() {
  std::vector<pollfd> waits{{m_Wake.Get(), POLLIN, 0}};
  Clock::time_point next;
  {
    const CGXLock hold(m_Lock);
    next = m_End;
    for (const auto& entry : m_Entries) {
      waits.push_back({entry->Socket.Get(), POLLIN, 0});
      next = std::min(next, entry->Farewell.NextTimer());
    }
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
  poll(waits.data(), waits.size(), static_cast<int>(std::max<long long>(left, 0)));
  eventfd_t added;
  static_cast<void>(eventfd_read(m_Wake.Get(), &added));
}

void CSIPFarewells::Send(const CEntry& entry, const CSIPFarewell::Requests& requests) {
  for (const CGXString& request : requests)
    sendto(entry.Socket.Get(), request.Str().data(), request.Str().size(), MSG_NOSIGNAL | MSG_DONTWAIT,
           reinterpret_cast<const sockaddr*>(&entry.Camera), sizeof entry.Camera);
}

// Only of the camera: its word ends calls.
void CSIPFarewells::Receive(CEntry* entry) {
  static constexpr int MOST_AT_ONCE = 16;
  char message[SIP_MESSAGE_BYTES];
  for (int i = 0; i < MOST_AT_ONCE && !entry->Farewell.Over(); ++i) {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t length = recvfrom(entry->Socket.Get(), message, sizeof message, MSG_DONTWAIT,
                                    reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 0) return;
    if (from.sin_addr.s_addr != entry->Camera.sin_addr.s_addr) continue;
    Send(*entry, entry->Farewell.Take({message, static_cast<size_t>(length)}, Clock::now()));
  }
}
