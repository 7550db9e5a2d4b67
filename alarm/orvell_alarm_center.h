// The listener for alarm datagrams: one for all cameras of the process, there while a camera is registered.
#pragma once

#include "alarm/alarm_camera.h"
#include "host/base/gxthread.h"

#include <atomic>

class COrvellAlarmCenter {
 public:
  static constexpr unsigned short PORT = 30004;
  static constexpr const char* GROUP = "239.255.30.4";  // IPv4 multicast, site-local scope (RFC 2365)

  virtual ~COrvellAlarmCenter();
  COrvellAlarmCenter(const COrvellAlarmCenter&) = delete;
  COrvellAlarmCenter& operator=(const COrvellAlarmCenter&) = delete;

  // Any thread but the listener's. A registered camera is told of every datagram, of all cameras; the first
  // MAX_CAMERAS are, and whoever comes later never is. When UnRegisterCamera has returned, the camera is told
  // no more; with the last one the listener has ended.
  static void RegisterCamera(CAlarmCamera* camera) EXCLUDES(g_LifeLock);
  static void UnRegisterCamera(CAlarmCamera* camera) EXCLUDES(g_LifeLock);

 private:
  static constexpr int MAX_CAMERAS = 32;

  COrvellAlarmCenter() = default;
  void InstanceRegisterCamera(CAlarmCamera* camera) EXCLUDES(m_RegistryLock);
  bool InstanceUnRegisterCamera(CAlarmCamera* camera) EXCLUDES(m_RegistryLock);  // true: none is left
  void Start();
  void Stop();
  static unsigned ThreadProc(void* center);
  void Run();
  void Receive(int socket, unsigned char* buffer);
  int CreateSocket();  // -1 on failure
  void FollowAddress(int socket);

  // The last unregistration waits for the listener under the first lock, while the listener takes the second.
  static CGXCritical g_LifeLock;  // creation and end of the instance
  static COrvellAlarmCenter* g_pInstance GUARDED_BY(g_LifeLock);

  CGXCritical m_RegistryLock;  // held while cameras are told
  CAlarmCamera* m_Cameras[MAX_CAMERAS] GUARDED_BY(m_RegistryLock) = {};
  int m_iNCameras GUARDED_BY(m_RegistryLock) = 0;
  std::atomic<int> m_bRunning{0};
  unsigned m_dwJoined = 0;  // interface of the group, network order; listener's thread only
  CGXThread m_Thread;
};
