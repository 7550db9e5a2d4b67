// One installed camera: started, watched, viewed and recorded. Belongs to the main thread.
#pragma once

#include "controller/camera_config.h"
#include "controller/camera_status.h"
#include "controller/picture_store.h"
#include "controller/reachability.h"
#include "controller/recorder.h"
#include "controller/trace_book.h"
#include "host/video.h"

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
};

// The five texts that a camera's record begins with. Empty ones when the record could not be written.
struct CIdentityTexts {
  std::string Manufacturer, Model, Firmware, Serial, HardwareID;
};
CIdentityTexts IdentityOf(CSystemComponent* component);

class CCamera {
 public:
  // `video` is in the system's list already, with name and record.
  CCamera(CVideoSystem* video, CTraceBook* book, CCameraWishes wishes);
  // Takes viewers and recorder away and finishes the recording; the component itself stays in the system's
  // list.
  ~CCamera();
  CCamera(const CCamera&) = delete;
  CCamera& operator=(const CCamera&) = delete;

  int ID() const { return m_iID; }

  void Start();  // the connection thread, unless it runs

  // Attaches what the camera is ready for. Again and again, under the main-thread lock. True when something
  // changed that belongs into the site file.
  bool Tick();

  CCameraStatus Status();  // under the main-thread lock

 private:
  class CViewer;

  bool Registered() const;
  bool HasProfiles() const;
  bool ApplyTransport();
  void AttachViewers();
  bool StartRecording();
  void AnswerRecorder();
  void DescribeStreamToRecorder();
  void DescribeState(CCameraStatus* status) const;
  void DescribeStreams(CCameraStatus* status) const;
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
  double m_fSecondsToRunning = -1, m_fSecondsToPicture = -1;
};
