// The video side of a component: what every camera offers to the host, and what the host does for every camera.
#pragma once

#include "host/base/gxmsg.h"
#include "host/system/component.h"
#include "host/system/sink_server.h"
#include "host/video/frame.h"
#include "host/video/report.h"
#include "host/video/rtsp_profile.h"

#include <atomic>
#include <memory>
#include <vector>

// Bits of the option word: what the camera can do.
inline constexpr unsigned VIDEO_OPTION_PAN_TILT = 0x2;
inline constexpr unsigned VIDEO_OPTION_AUDIO = 0x8;
inline constexpr unsigned VIDEO_OPTION_ZOOM = 0x80;
inline constexpr unsigned VIDEO_OPTION_PRESETS = 0x100;
inline constexpr unsigned VIDEO_OPTION_CONTINUOUS_MOVE = 0x20000;
inline constexpr int CAMERA_FLAG_ALARM_BRAND = 0x40000;
inline constexpr unsigned char DVR_FLAG_WANTED = 0x80;  // of DVRFlags: the user wants recording

// Format of the camera's audio towards the host, in the usual wave-format fields.
struct GXT_AUDIO_FORMAT {
  int FormatTag = 0;  // 1 PCM
  int Channels = 0;
  int SamplesPerSecond = 0;
  int BytesPerSecond = 0;
  int BlockAlign = 0;
  int BitsPerSample = 0;
  int ExtraBytes = 0;
};

// A viewer of a camera's pictures. CameraRes is the stream that it wants, 0 to 2 (-1: the first); a stream that
// the camera does not have counts as its last. Frames come on the main thread.
class CVideoSink : public CComponentSink {
 public:
  explicit CVideoSink(CGXString name);
  ~CVideoSink() override;
  CGXString Name() const { return m_Name; }
  int CameraRes() const { return m_iCameraRes; }
  void CameraRes(int stream) { m_iCameraRes = stream; }
  double OutgoingFPS() const;                      // pictures taken in the last two seconds, a second
  void ProcessFrame(const CJPEGBuffer* frame);     // counts, then OnFrame
  virtual void OnFrame(const CJPEGBuffer* frame);  // the frame stays the host's

 private:
  struct Rate;
  CGXString m_Name;
  std::atomic<int> m_iCameraRes{0};
  std::unique_ptr<Rate> m_pRate;
};

// Somebody who takes a camera's stream by RTSP; reports a name and a rate (frames a second times 100).
class CObjectSink {
 public:
  virtual ~CObjectSink();
  virtual CGXString SinkName() = 0;
  virtual int SinkRate() = 0;
};

// One stream that a camera offers. The camera fills it in.
class CResolutionDescriptor {
 public:
  int ResNo() const { return m_iResNo; }
  void ResNo(int number) { m_iResNo = number; }
  CGXString Description() const { return m_Description; }
  void Description(CGXString text) { m_Description = text; }
  int DriverDataInt() const {
    return m_iDriverData;
  }  // OR'ed with 2: the code of the notice that the stream is ready
  void DriverDataInt(int data) { m_iDriverData = data; }
  void* DriverDataPtr() const { return m_pDriverData; }
  void DriverDataPtr(void* data) { m_pDriverData = data; }
  GXT_RESOLUTION Size() const { return m_Size; }
  void Size(GXT_RESOLUTION size) { m_Size = size; }
  int EncodeType() const { return m_iEncodeType; }  // FRAME_KIND_JPEG or FRAME_KIND_H264
  void EncodeType(int type) { m_iEncodeType = type; }

 private:
  int m_iResNo = 0;
  CGXString m_Description;
  int m_iDriverData = 0;
  void* m_pDriverData = nullptr;
  GXT_RESOLUTION m_Size;
  int m_iEncodeType = 0;
};

class CVideoSystem : public CSystemComponent {
 public:
  explicit CVideoSystem(CSystemComponentDef* definition);
  ~CVideoSystem() override;

  // Credentials of the device; any thread.
  CGXString UserName() const;
  void UserName(const CGXString& user);
  CGXString Password() const;
  void Password(const CGXString& password);

  unsigned Options() const { return m_dwOptions; }  // VIDEO_OPTION_...
  void Options(unsigned options) { m_dwOptions = options; }
  void AddOptions(unsigned bits) { m_dwOptions |= bits; }
  GXT_AUDIO_FORMAT AudioFormat() const { return m_AudioFormat; }

  // ---- Sinks (any thread; they take the main-thread lock) ----
  void AddVideoSink(CComponentSink* sink);  // then SinkAdded(); ignored on a component that is leaving
  // Afterwards the sink gets no frame any more; then SinkRemoved() unless `quiet`. An unknown one is ignored.
  void RemoveVideoSink(CComponentSink* sink, int quiet);
  // The streams that the attached video sinks want: bit clamp(CameraRes, 0, 2) of each. 0 without sinks.
  unsigned GetResMask() const;

  // ---- Frames. The pool owns all of them; a pointer is ownership for a time ----
  CJPEGBuffer* GetFreeFrame();             // stream threads; null when the pool is exhausted: drop the picture
  void SetReadyFrame(CJPEGBuffer* frame);  // hands it to the main thread
  CJPEGBuffer* GetReadyFrame();            // main thread; null when none waits
  void SetFreeFrame(CJPEGBuffer* frame);
  // Main thread: to every video sink whose CameraRes, cut to the JPEG streams there are, is the frame's stream.
  // Updates IncomingFPS and Motion. The frame stays the caller's.
  void ProcessFrame(CJPEGBuffer* frame);
  // A picture that arrived as an HTTP answer with its header: from FF D8 on it is queued as a ready frame of
  // stream 0.
  void ProcessVideoChunk(const char* data, int length, int width, int height);
  // Sends at most that many bytes of queued audio, never blocking; how many it sent. Cameras of this host queue
  // none (0): their sound goes from their own thread to whom listens, see host/intercom/rtsp_server.h.
  int SendAudio(int bytes);
  void
  RestartActivityTimer();    // a viewer has come: a camera gets the whole time for a first picture; any thread
  void ProcessDeadCamera();  // main thread, when a pass had no frame; notes a camera without pictures
  bool Dead() const { return m_bDead; }     // no picture for that long although somebody watches
  double IncomingFPS() const;               // pictures a second over the last two seconds, all streams
  int Motion() const { return m_iMotion; }  // of the last frame: -1 unknown, 0 none, 100 motion
  int CheckLockConfig();                    // 0 while a tool holds the configuration
  void LockConfig(bool held) { m_bConfigLocked = held; }

  // ---- Recording ----
  unsigned char DVRFlags() const { return m_bDVRFlags; }  // DVR_FLAG_WANTED and others
  // Sets or takes back the user's wish. On a loaded camera (DVREncodeType() is known) setting it calls
  // StartDVR(), also when it was set before, so that a changed index takes effect; taking it back calls
  // StopDVR(). On the calling thread, under the main-thread lock.
  void WantDVR(bool wanted);
  int DVRResolutionIndex() const { return m_iDVRIndex; }  // JPEG entries first, then the H.264 entries
  void DVRResolutionIndex(int index);                     // a change bumps DVRGeneration
  unsigned DVRGeneration() const { return m_dwDVRGeneration; }
  CVideoSink* DVRSink() const { return m_pDVRSink.get(); }  // takes JPEG pictures for the recorder; never null
  void DVRTarget(std::shared_ptr<CDVRTarget> target);       // the recorder; null: none
  std::shared_ptr<CDVRTarget> DVRTarget() const;

  // ---- Operations of the camera; the base class is a camera that can do none of it ----
  virtual void FindNewDevices(CGXString user, CGXString password, CGXObList* records);
  virtual void ResMode(int mode);
  virtual bool IsVelmoraDevice();
  virtual CGXString EDRVName();
  virtual int CameraFlags();
  virtual int NResolutions(RTSP_PROFILE_TYPE type);
  virtual void LoadResolutionDescriptor(int index, CResolutionDescriptor* descriptor, RTSP_PROFILE_TYPE type);
  virtual int GetRTSPResolution(RTSP_PROFILE_TYPE type, int index);
  virtual void SetRTSPResolution(RTSP_PROFILE_TYPE type, int index);
  virtual void GetVideoStats(CGXMSG* msg);
  virtual CRTSPProfile* LoadRTSPProfile(
      CResolutionDescriptor* descriptor);  // the caller owns it; null: not ready
  virtual CRTSPProfile* LoadAudioRTSP();   // likewise; null: no audio
  virtual void AddRTSPSink(CObjectSink* sink);
  virtual void RemoveRTSPSink(CObjectSink* sink);
  virtual int DVREncodeType();  // -1: not known yet; FRAME_KIND_JPEG or FRAME_KIND_H264
  virtual GXT_RESOLUTION DVREncodeDimensions();
  virtual int DVREncodeProfile(CRTSPProfile* profile);  // fills it; 0: none
  virtual void StartDVR();  // attaches the DVR sink, or makes the camera look again at what stream it wants
  virtual void StopDVR();   // detaches it
  virtual int CameraOrientation(RTSP_PROFILE_TYPE type, int index);  // 1: wide
  virtual bool HasAudioRX();
  virtual int BeginReceiveAudioFrom(CIntercomClient* client);
  virtual int StopReceiveAudio();
  virtual void GetONVIFConfig(CGXMSG* msg);
  virtual void SetONVIFConfig(CGXMSG* msg);
  virtual int MoveFrame(int pan, int tilt, int reserved1, int reserved2);  // speeds in percent, -100 to 100
  virtual int StopMove();
  virtual int ZoomInOut(int direction);
  virtual int PresetControl(int store, int index);
  virtual int NPresets();
  virtual CGXString PresetName(int index);
  virtual GXT_SERVICE_REPORT ServiceReport();              // any thread, like the following
  virtual GXT_REPORT EventReport();                        // of motion and other events that the camera sends
  virtual std::vector<GXT_STREAM_REPORT> StreamReports();  // of those that are wanted, by number
  virtual void AddONVIF_Client(CNotifySink* client);
  virtual void RemoveONVIF_Client(CNotifySink* client);

  bool ReadData(CGXFile* file, int version) override;  // user, password, mode, DVR flags and index
  bool WriteData(CGXFile* file, int version) override;
  void OnComponentIdle() override;

  bool TrackerOn() const { return m_bTracker; }  // the host follows motion in the picture
  void TrackerOn(bool on) { m_bTracker = on; }
  void TrackerOff() { m_bTracker = false; }

 protected:
  GXT_AUDIO_FORMAT m_AudioFormat;
  std::atomic<int> m_iResMode{0};        // as the user chose it
  std::atomic<unsigned> m_dwResMask{0};  // streams to run: bits 0 to 2
  int m_iDeadStrikes = 0;                // periods without pictures before a camera counts as dead
  unsigned m_dwDeadPeriod = 0;           // length of such a period, ms; 0: never

 private:
  struct State;
  std::unique_ptr<State> m_pState;
  std::unique_ptr<CVideoSink> m_pDVRSink;
  std::atomic<unsigned> m_dwOptions{0};
  std::atomic<unsigned char> m_bDVRFlags{0};
  std::atomic<int> m_iDVRIndex{0};
  std::atomic<unsigned> m_dwDVRGeneration{0};
  std::atomic<int> m_iMotion{-1};
  std::atomic<bool> m_bDead{false}, m_bConfigLocked{false}, m_bTracker{false};
};
