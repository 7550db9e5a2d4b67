// The streams of one camera: their threads, the modes that these run in, and how each stream stands.
#pragma once

#include "host/base/gxthread.h"
#include "host/video/report.h"
#include "media/media_model.h"
#include "util/gxtimer.h"

#include <atomic>
#include <span>
#include <vector>

class CAccessUnitCollector;
class CH264Depacketizer;
class CONVIFCam;
class CRTSP;
class CRTSPProfile;

class CCameraStreams {
 public:
  static constexpr int JPEG_STREAMS = 3;
  static constexpr int STREAMS = 4;  // and the H.264 stream

  explicit CCameraStreams(CONVIFCam* camera) : m_pCamera(camera) {}  // its own, so it outlives the threads

  // ---- What is wanted; any thread. A stream that is taken back and wanted again starts anew, with the
  // settings of then, however shortly that was ----
  void Mask(unsigned mask);     // bits 0 to 2: the JPEG streams
  void DVRActive(bool active);  // the H.264 stream
  bool DVRActive() const { return m_bDVRActive; }
  bool EndUnwantedDVR();  // takes the H.264 stream back unless the user wants recording; true when he does not
  void SettingsReplaced(const CUserSettingsRef (&before)[STREAMS]);   // those that have another entry now
  void CurrentSettings(CUserSettingsRef (*settings)[STREAMS]) const;  // null for streams without

  // ---- Threads ----
  void Start();   // those that are wanted and do not run; connection thread
  void Cancel();  // tells all of them to end; any thread
  void Join();
  void Reset();  // after Join: they may be started again

  // ---- Modes. Each returns when its stream has ended: 1 normally, 0 after a failure; see CONVIFCam ----
  int RunSnapshots();
  int RunJPEG(int stream);
  int RunH264();
  static CRTSPProfile VideoRTSPProfile(const CONVIFCam& camera, const CProfile& profile,
                                       RTP_TRANSPORT transport);

  // ---- How they stand; any thread ----
  std::vector<GXT_STREAM_REPORT> Reports() const;  // of those that are wanted
  int DVRRate();  // pictures a second times 100, over the last two seconds or more

 private:
  // Of a stream that runs: what it was started with.
  struct CStart {
    int Stream;
    unsigned Epoch, DVRGeneration = 0, Reloads = 0;
    CUserSettingsRef Settings = nullptr;
    CProfileRef Profile = nullptr;
  };
  struct CStream {
    CGXThread Thread;
    std::atomic<unsigned> Epoch{0};   // grows when the stream is taken back or its settings are replaced
    std::atomic<bool> Failed{false};  // its last end
    CGXTimer Started;                 // connection thread
  };
  struct CStanding {
    GXT_STREAM_REPORT Report;
    CGXTimer Since;  // of the last failure
  };

  static unsigned RunStream(void* streams, int stream);
  template <int STREAM>
  static unsigned Entry(void* streams) {
    return RunStream(streams, STREAM);
  }
  bool IsOn(int stream) const;
  bool IsWanted(const CStart& start) const;
  CStart Begin(int stream) const;
  bool Describe(CStart* start);
  int Failed(int stream, const CGXString& reason, int retryMs, const char* trace = nullptr);
  int Quiet(const CStart& start, const CRTSP& session, bool any);
  void Stands(int stream, GXT_REPORT::STATE state, const CGXString& reason = {}, int retryMs = -1);
  int ReceiveJPEG(CRTSP* session, const CStart& start);
  int ReceiveH264(CRTSP* session, const CStart& start);
  void DeliverPicture(int stream, std::span<const unsigned char> picture);
  void DeliverNAL(CAccessUnitCollector* collector, const unsigned char* nal, size_t length);
  void CountTooLarge(unsigned units);

  CONVIFCam* const m_pCamera;
  CStream m_Streams[STREAMS];
  std::atomic<unsigned> m_dwMask{0};

  CGXCritical m_DVRLock;  // for writing m_bDVRActive
  std::atomic<bool> m_bDVRActive{false};
  std::atomic<int> m_nDVRFrames{0};  // delivered since the rate was last computed
  CGXTimer m_DVRStatsTimer GUARDED_BY(m_DVRLock);
  int m_iDVRRate GUARDED_BY(m_DVRLock) = 0;

  mutable CGXCritical m_ReportLock;
  CStanding m_Standing[STREAMS] GUARDED_BY(m_ReportLock);
};
