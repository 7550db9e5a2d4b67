// One installed camera: started, watched, viewed and recorded. Belongs to the main thread.
#pragma once

#include "controller/core/trace_book.h"
#include "controller/panel/call_book.h"
#include "controller/recording/picture_store.h"
#include "controller/recording/recorder.h"
#include "controller/site/camera_config.h"
#include "controller/site/camera_status.h"
#include "controller/site/reachability.h"
#include "controller/site/stream_keeper.h"
#include "host/video/video.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

inline constexpr int TYPE_FINDER = 8073;  // component types that the driver offers
inline constexpr int TYPE_STATIC_CAMERA = 8074;
inline constexpr int TYPE_FOUND_CAMERA = 8072;

struct CCameraWishes {
  std::string RecordFolder;  // empty: no recording
  int Transport = -1;        // RTP_TRANSPORT of its streams; -1: as the record has it
  CPictureStore* Pictures = nullptr;
  CCallBook* Calls = nullptr;
};

// The five texts that a camera's record begins with. Empty ones when the record could not be written.
struct CIdentityTexts {
  std::string Manufacturer, Model, Firmware, Serial, HardwareID;
};
CIdentityTexts IdentityOf(CSystemComponent* component);

class CCamera {
 public:
  // Streams whose settings change pause for that long, so that the camera has closed them before it is told; a
  // camera that takes the settings has done so after the other.
  static constexpr std::chrono::seconds PAUSE_AT_LEAST{1},
      APPLIED_WITHIN = PAUSE_AT_LEAST + CProfileRequest::ASK_AGAIN;

  // `video` is in the system's list already, with name and record.
  CCamera(CVideoSystem* video, CTraceBook* book, CCameraWishes wishes);
  // Takes viewers and recorder away and finishes the recording; the component itself stays in the system's
  // list.
  ~CCamera();
  CCamera(const CCamera&) = delete;
  CCamera& operator=(const CCamera&) = delete;

  int ID() const { return m_iID; }
  CVideoSystem* Video() const { return m_pVideo; }

  void Leave();         // takes viewers and recorder away; under the main-thread lock
  void Start();         // the connection thread, unless it runs
  void EndRecording();  // finishes the files; what comes afterwards is neither recorded nor counted

  // Attaches what the camera is ready for. Again and again, under the main-thread lock. True when something
  // changed that belongs into the site file.
  bool Tick();

  // The following under the main-thread lock.
  CCameraStatus Status();
  bool InService() const;                    // loaded, and nothing has failed since
  bool Config(CCameraConfig* config) const;  // false when there is none to be had

  // Gives the camera other user stream settings: what changes is stopped, the camera brought into line, and
  // what was stopped started again. StreamState tells how that goes.
  void ApplyStreams(const CCameraConfig& config);
  EStreamState StreamState(RTSP_PROFILE_TYPE list, int index) const { return m_Keeper.State(list, index); }

  void CountEvent() { ++m_nEvents; }
  void NoteCommand(const std::string& name, bool seen);  // a further one, or the outcome of one noted before

 private:
  class CViewer;

  bool Failed() const;
  bool ApplyTransport();
  bool KeepStreams();
  bool Paused() const;
  void AttachViewers();
  void DetachViewers();
  bool StartRecording();
  void AnswerRecorder();
  void DescribeStreamToRecorder();
  void DescribeState(CCameraStatus* status) const;
  void DescribeService(CCameraStatus* status) const;
  void DescribeFailure(CCameraStatus* status) const;
  void DescribeStreams(CCameraStatus* status) const;
  void DescribeRecording(CCameraStatus* status) const;
  void DescribeProblems(CCameraStatus* status) const;
  void DescribeCalls(CCameraStatus* status) const;
  double Seconds() const;
  void NotePicture();

  CVideoSystem* const m_pVideo;
  const int m_iID;
  CTraceBook* const m_pBook;
  const CCameraWishes m_Wishes;
  const std::string m_FileName;
  std::vector<std::unique_ptr<CViewer>> m_Viewers;
  std::shared_ptr<CRecorder> m_pRecorder;
  CReachability m_Reachability;
  std::chrono::steady_clock::time_point m_Started;
  bool m_bTransportDone = false, m_bDVRDone = false;
  CStreamKeeper m_Keeper;
  bool m_bKeeping = false, m_bChanged = false;                          // m_bChanged: for the site file
  bool m_bAttached = false;                                             // the viewers, to the component
  std::chrono::steady_clock::time_point m_PauseAtLeast, m_PauseAtMost;  // of streams whose settings changed
  int64_t m_nPastFrames = 0;                                            // of viewers that are gone
  int64_t m_nEvents = 0;
  std::vector<CAskedCommand> m_Commands;
  double m_fSecondsToRunning = -1, m_fSecondsToPicture = -1;
};
