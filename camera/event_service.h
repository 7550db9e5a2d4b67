// A camera's events: the subscription at the camera, the listener on the port that it is told, how both stand.
#pragma once

#include "camera/run_state.h"
#include "host/base/gxlock.h"
#include "host/base/gxthread.h"
#include "host/base/gxwait.h"
#include "host/video/report.h"
#include "util/gxtimer.h"

class CCameraClock;
class CONVIFCam;

class CEventService {
 public:
  // The three outlive it. `port`: for the camera to send to; 0: there is none, and no events.
  CEventService(CONVIFCam* camera, CRunState* state, CCameraClock* clock, unsigned short port);

  unsigned short Port() const { return m_wPort; }
  // Subscribes once, for a minute; true when the camera agreed. Connection thread, or the listener's own.
  bool Subscribe();

  // ---- Connection thread ----
  // The listener, until the run state is reset (`since`: its epoch as of now). An earlier one is ended first.
  void Start(CRunState::Epoch since);
  void Watch();  // in every pass: a listener that had not got its port is started again once it is time

  // ---- Any thread ----
  GXT_REPORT Report() const;
  void Cancel() { m_Thread.Cancel(); }
  void Join() { m_Thread.Join(); }
  void Reset() { m_Thread.Reset(); }

 private:
  static unsigned ThreadProc(void* service);
  void Run();
  bool RenewalDue();
  void Renew();
  void Running();
  void Failed(const CGXString& reason, int retryMs);

  CONVIFCam* const m_pCamera;
  CRunState* const m_pState;
  CCameraClock* const m_pClock;
  const unsigned short m_wPort;

  CGXThread m_Thread;
  CRunState::Epoch m_Epoch = 0;  // of the listener's start; like the following written while it does not run
  CGXTimer m_SinceSubscribed;    // then the listener's
  unsigned m_nSteps = 0;         // of the clock, at that time

  mutable CGXCritical m_Lock;
  GXT_REPORT m_Report GUARDED_BY(m_Lock);
  CGXDeadline m_Retry GUARDED_BY(m_Lock){0};  // of a report that announces one
};
