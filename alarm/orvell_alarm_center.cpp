#include "alarm/orvell_alarm_center.h"

#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "util/udp_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

constexpr int BUFFER_BYTES = 4096;
constexpr unsigned WAIT_MS = 500;  // for a datagram, or until the port is tried again
constexpr unsigned STOP_MS = 5000;

// Of the group, on the interface of that address. A failure is ignored: alarms sent to this machine come
// anyway.
void SetMembership(int socket, int option, unsigned address) {
  ip_mreq group{};
  inet_pton(AF_INET, COrvellAlarmCenter::GROUP, &group.imr_multiaddr);
  group.imr_interface.s_addr = address;
  setsockopt(socket, IPPROTO_IP, option, &group, sizeof group);
}

}  // namespace

CGXCritical COrvellAlarmCenter::g_LifeLock;
COrvellAlarmCenter* COrvellAlarmCenter::g_pInstance = nullptr;

COrvellAlarmCenter::~COrvellAlarmCenter() {
  Stop();
}

void COrvellAlarmCenter::RegisterCamera(CAlarmCamera* camera) {
  const CGXLock lock(g_LifeLock);
  if (g_pInstance == nullptr) g_pInstance = new COrvellAlarmCenter();
  g_pInstance->Start();  // also when its thread could not be had before
  g_pInstance->InstanceRegisterCamera(camera);
}

void COrvellAlarmCenter::UnRegisterCamera(CAlarmCamera* camera) {
  const CGXLock lock(g_LifeLock);
  if (g_pInstance == nullptr || !g_pInstance->InstanceUnRegisterCamera(camera)) return;
  g_pInstance->Stop();
  delete g_pInstance;
  g_pInstance = nullptr;
}

void COrvellAlarmCenter::InstanceRegisterCamera(CAlarmCamera* camera) {
  const CGXLock lock(m_RegistryLock);
  if (m_iNCameras < MAX_CAMERAS) m_Cameras[m_iNCameras++] = camera;
}

bool COrvellAlarmCenter::InstanceUnRegisterCamera(CAlarmCamera* camera) {
  const CGXLock lock(m_RegistryLock);
  m_iNCameras = static_cast<int>(std::remove(m_Cameras, m_Cameras + m_iNCameras, camera) - m_Cameras);
  return m_iNCameras == 0;
}

void COrvellAlarmCenter::Start() {
  m_bRunning = 1;
  if (!m_Thread.IsRunning()) m_Thread.Start(ThreadProc, this, 0, "OrvellAlarmCenter");
}

void COrvellAlarmCenter::Stop() {
  m_bRunning = 0;
  m_Thread.Cancel();  // ends its wait
  m_Thread.WaitComplete(STOP_MS);
}

unsigned COrvellAlarmCenter::ThreadProc(void* center) {
  static_cast<COrvellAlarmCenter*>(center)->Run();
  return 0;
}

int COrvellAlarmCenter::CreateSocket() {
  COwnedSocket created = CreateUDPNoWait();
  SetReuseAddress(created.Get());
  if (!BindUDP(created, PORT)) return -1;
  m_dwJoined = GetPrimaryIP();
  SetMembership(created.Get(), IP_ADD_MEMBERSHIP, m_dwJoined);
  return created.Release();
}

// A controller may have its address only after its cameras, or get another one.
void COrvellAlarmCenter::FollowAddress(int socket) {
  const unsigned address = GetPrimaryIP();
  if (address == m_dwJoined) return;
  SetMembership(socket, IP_DROP_MEMBERSHIP, m_dwJoined);
  SetMembership(socket, IP_ADD_MEMBERSHIP, address);
  m_dwJoined = address;
}

void COrvellAlarmCenter::Run() {
  const auto buffer = std::make_unique<unsigned char[]>(BUFFER_BYTES);
  COwnedSocket listener(CreateSocket());
  while (m_bRunning != 0) {
    if (!listener.IsOpen()) {
      Sleep(WAIT_MS);
      if (m_bRunning != 0) listener.Reset(CreateSocket());
    } else if (WaitSocketReadState(listener.Get(), WAIT_MS)) {
      Receive(listener.Get(), buffer.get());
    } else {
      FollowAddress(listener.Get());
    }
  }
}

void COrvellAlarmCenter::Receive(int socket, unsigned char* buffer) {
  std::memset(buffer, 0, BUFFER_BYTES);
  const ssize_t count = recv(socket, buffer, BUFFER_BYTES, 0);
  if (count < 1) return;
  const CGXLock lock(m_RegistryLock);
  for (int i = 0; i < m_iNCameras; ++i) m_Cameras[i]->FileThreadProcessEvent(buffer, static_cast<int>(count));
}
