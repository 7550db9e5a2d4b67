// How a camera is brought into service: the pass over the loading steps, and how that stands.
#pragma once

#include "camera/run_state.h"
#include "host/base/gxlock.h"
#include "host/base/gxstring.h"
#include "host/base/gxwait.h"
#include "host/video/report.h"

#include <atomic>
#include <memory>
#include <optional>

class CCameraClock;
class CCameraIdentity;
class CEncoder;
class CEventService;
class CMediaModel;
class CONVIFCam;
class CONVIFMsg;
class CProfile;

// Each step is done once, in order, and its bit is set in the run state; a failed one is left to the next pass.
// What a camera was asked with a wrong time it may have refused: when the controller's clock is stepped during
// a step, the camera's is read again and the step repeated.
class CLoading {
 public:
  static constexpr unsigned RETRY_MS = 5000;  // from a failure to the next pass

  // What the steps fill, and what they have of the camera. All outlive it.
  struct CRooms {
    CONVIFCam* Camera;
    CCameraIdentity* Identity;
    CCameraClock* Clock;
    CMediaModel* Model;
    CRunState* State;
    CEventService* Events;
  };
  explicit CLoading(const CRooms& rooms) : m_Rooms(rooms) {}

  // ---- Connection thread ----
  bool Pass();  // true when all steps are done
  // Whether a stream has failed since the last call: then the next pass waits as after a failure of its own.
  bool TakeFailure() { return m_bFailed.exchange(false); }

  // ---- Any thread ----
  bool Loaded() const;
  void StreamFailed();  // loading starts over
  bool SyncTime();      // reads the camera's clock now; false when it does not tell it
  GXT_SERVICE_REPORT Report() const;

 private:
  struct CStep;
  enum class Result { SKIPPED, DONE, DONE_WITHOUT, AGAIN, FAILED };

  Result Do(const CStep& step);
  Result DoOnce(const CStep& step, std::optional<unsigned> clockSteps);  // empty: the clock does not matter
  bool Passes(const CStep& step) { return Do(step) != Result::FAILED; }
  bool Identify();
  void CheckTime();
  bool CheckEvents();
  bool IsStatic() const;

  // The steps.
  bool FindONVIF_ServiceURL();
  bool LoadDeviceInfo();
  bool LoadMediaURLs();
  bool LoadONVIF_MediaURL1();
  bool LoadONVIF_MediaURL2();
  bool LoadONVIF_EncoderConfig();
  bool LoadONVIF_EncoderOptions(CEncoder* encoder);
  bool LoadONVIF_Capabilities();
  bool LoadONVIF_ProfileConfig();
  bool LoadONVIF_SnapshotConfig();
  bool LoadStreams();
  bool LoadONVIF_MediaConfig();
  bool LoadONVIF_RTSPConfig();
  bool LoadONVIF_PTZConfig();
  bool StartONVIF_EventConfig();
  void AddPTZOptions(CProfile* profile);
  bool TakeMediaURL(const CONVIFMsg* service);
  std::unique_ptr<CONVIFMsg> Ask(const CGXString& url, const char* operation, const char* ns,
                                 const char* argument = nullptr, const CGXString& value = {});

  // How it stands.
  void Begin(const char* step);
  void Failed(const CGXString& reason);
  void NoteRefusal(const char* operation, const CONVIFMsg& answer);
  void ForgetRefusals();

  const CRooms m_Rooms;
  CRunState::Epoch m_Since = 0;  // of the step under way
  CGXString m_Reason;            // why the step under way is about to fail; connection thread
  std::atomic<bool> m_bFailed{false};

  mutable CGXCritical m_Lock;
  GXT_SERVICE_REPORT m_Report GUARDED_BY(m_Lock);
  CGXDeadline m_Retry GUARDED_BY(m_Lock){0};  // of a failure
};
