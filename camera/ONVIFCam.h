// One configured ONVIF camera: what it is and how it is stored, how it is brought into service and kept there,
// and the streams that it delivers to the controller.
//
// Source files by role: ONVIFCam.cpp identity, record and configuration; CLoading brings it into service,
// CCameraStreams has the streams; ONVIFCam_run.cpp the connection thread and the queue; ONVIFCam_ptz.cpp moves
// and presets; ONVIFCam_offer.cpp what tells the host about the streams; ONVIFCam_event.cpp the camera's
// events; ONVIFCam_alarm.cpp alarm datagrams; ONVIFCam_icom.cpp calls and the speaker; ONVIFCam_audio.cpp the
// microphone.
#pragma once

#include "alarm/alarm_camera.h"
#include "audio/audio_camera.h"
#include "camera/audio_squelch.h"
#include "camera/camera_clock.h"
#include "camera/camera_identity.h"
#include "camera/camera_streams.h"
#include "camera/event_service.h"
#include "camera/loading.h"
#include "camera/proc_queue.h"
#include "camera/run_state.h"
#include "host/base/gxtime.h"
#include "host/base/trace.h"
#include "host/intercom/intercom.h"
#include "host/net/port_table.h"
#include "host/system/comm_thread.h"
#include "host/system/sink_server.h"
#include "host/video/video.h"
#include "media/media_camera.h"
#include "media/media_model.h"
#include "util/gxtimer.h"

#include <netinet/in.h>

#include <atomic>
#include <memory>
#include <span>
#include <vector>

class CONVIFMsg;
class CONVIF_AudioOut;
class COutboundCall;
class CRTSPServer;

class CONVIFCam : public CVideoSystem,
                  public CGeneralCommThread,
                  public CGXCritical,
                  public CTraceProducer,
                  public CSinkServer,
                  public CIntercomClient,
                  public CIcomCallDelegate,
                  public CMediaCamera,
                  public CAlarmCamera,
                  public CAudioCamera {
 public:
  static constexpr int TYPE_DISCOVERED = 8072;  // found again by its identity wherever it moves
  static constexpr int TYPE_STATIC = 8074;      // asked at the URL that the user entered
  // Relative moves in this space are in parts of the picture; cameras with another are moved by speed.
  static constexpr const char* SPACE_FIELD_OF_VIEW =
      "http://www.onvif.org/ver10/tptz/PanTiltSpaces/TranslationSpaceFov";

  static constexpr int QUERY_TIMEOUT_MS = 0;  // of one exchange: the host's own

  explicit CONVIFCam(CSystemComponentDef* definition);
  // May come at any moment of its life, on any thread but its own: ends and joins every thread of the camera.
  ~CONVIFCam() override;

  // ---- Identity and configuration; any thread ----
  int ConnectionType() override;
  bool IsVelmoraDevice() override;
  int CameraFlags() override;
  CGXString EDRVName() override;
  CGXString SerialNo() const override;
  CGXString ServiceURL() const { return m_Identity.ServiceURL(); }
  CGXString PTZURL() const override { return m_Identity.PTZURL(); }
  CGXString MediaURL() const override { return m_Identity.MediaURL(); }
  void UpdateTraceName();  // after the camera's
  bool IsDoorStation() const;
  CGXString GetConfigURL() override { return ServiceURL(); }
  void SetConfigURL(CGXString url) override;  // main thread; a new address is loaded from at once
  bool IsSameConfig(CDeviceConfig* record) override;
  void LoadFrom(CDeviceConfig* record) override;
  bool ReadData(CGXFile* file, int version) override;
  bool WriteData(CGXFile* file, int version) override;
  void GetONVIFConfig(CGXMSG* msg) override;
  void SetONVIFConfig(CGXMSG* msg) override;
  void ResMode(int mode) override;

  using CVideoSystem::Password;
  using CVideoSystem::UserName;
  CGXString UserName() const override { return CVideoSystem::UserName(); }
  CGXString Password() const override { return CVideoSystem::Password(); }

  // The caller's. Its creation time is the camera's clock at the last sync, advanced since.
  CONVIFLoginHeader* CreateLoginHeader() override;
  // Address that the camera streams from, network order. True without an address when a stream URI names no
  // path.
  bool GetCameraAddress(sockaddr_in* address) const override;

  // ---- The media model; any thread. See CMediaModel ----
  const CMediaModel& Model() const { return m_Model; }
  CProfileRef ProfileByToken(const CGXString& token) const { return m_Model.ProfileByToken(token); }
  CEncoderRef EncoderByToken(const CGXString& token) const { return m_Model.EncoderByToken(token); }
  int IndexOfProfile(const CGXString& token) const { return m_Model.IndexOfProfile(token); }
  int IndexOfEncoder(const CGXString& token) const { return m_Model.IndexOfEncoder(token); }
  CProfileRef RelativeMoveProfile() const { return m_Model.RelativeMoveProfile(); }
  CProfileRef DVRProfile() const { return m_Model.DVRProfile(DVRResolutionIndex()); }  // that is recorded
  CUserSettingsRef FindUserSettings(const void* entry) const { return m_Model.FindUserSettings(entry); }

  // ---- Streams ----
  void SinkAdded(CComponentSink* sink) override;
  void SinkRemoved(CComponentSink* sink) override;
  int NResolutions(RTSP_PROFILE_TYPE type) override;
  void LoadResolutionDescriptor(int index, CResolutionDescriptor* descriptor, RTSP_PROFILE_TYPE type) override;
  int GetRTSPResolution(RTSP_PROFILE_TYPE type, int index) override;
  void SetRTSPResolution(RTSP_PROFILE_TYPE type, int index) override;
  void GetVideoStats(CGXMSG* msg) override;
  CRTSPProfile* LoadRTSPProfile(CResolutionDescriptor* descriptor) override;
  CRTSPProfile* LoadAudioRTSP() override;
  CProfileRef GetAudioProfile() const { return m_Model.AudioProfile(); }
  void AddRTSPSink(CObjectSink* sink) override;
  void RemoveRTSPSink(CObjectSink* sink) override;  // waits for a question in flight
  int DVREncodeType() override;
  GXT_RESOLUTION DVREncodeDimensions() override;
  int DVREncodeProfile(CRTSPProfile* profile) override;
  void StartDVR() override;
  void StopDVR() override;
  int CameraOrientation(RTSP_PROFILE_TYPE type, int index) override;
  void AddONVIF_Client(CNotifySink* client) override { AddNotifySink(client); }
  void RemoveONVIF_Client(CNotifySink* client) override { RemoveNotifySink(client); }

  // Keeps the stream bits 0 to 2 of a mask within the JPEG user settings: a stream that there is not becomes
  // the last one. Returns how many there are.
  int FixResMask(unsigned* mask) const;

  // Each returns when its stream has ended: 1 normally (stopped, or the camera fell silent), 0 after a failure.
  int RunSnapshotMode() {
    return m_Streams.RunSnapshots();
  }  // an alternative to a JPEG stream for cameras without one; no thread runs it by
     // itself
  int RunJPEGMode(int stream) { return m_Streams.RunJPEG(stream); }
  int RunH264DVR() { return m_Streams.RunH264(); }
  std::vector<GXT_STREAM_REPORT> StreamReports() override { return m_Streams.Reports(); }

  // ---- Service ----
  int Run() override;
  bool CheckRunState() { return m_Loading.Pass(); }  // over the loading steps; true when all are done
  void SetErrorState();                              // loading starts over after a pause; any thread
  bool SyncTime() { return m_Loading.SyncTime(); }   // any thread; false when the camera does not tell its time
  GXT_SERVICE_REPORT ServiceReport() override { return m_Loading.Report(); }
  bool LoadDefaultUserSettings();
  unsigned RunState() const { return m_RunState.Bits(); }
  void OnComponentIdle() override;
  void FileThreadOnIdle() override;

  // ---- Moves; any thread. Each queues a proc and returns 1 at once; see ptz_proc.h for what it does ----
  int MoveFrame(int pan, int tilt, int reserved1, int reserved2) override;  // takes the place of a pending move
  int StopMove() override;
  int ZoomInOut(int direction) override;
  int PresetControl(int store, int index) override;
  int NPresets() override;                   // of the first profile with PTZ; 0 without one
  CGXString PresetName(int index) override;  // empty when there is none

  // ---- Queue of procs; any thread. See CProcQueue ----
  void PushProc(std::unique_ptr<CONVIF_Proc> proc);                   // and starts the queue's thread
  std::unique_ptr<CONVIF_Proc> PullProc() { return m_Queue.Pull(); }  // queue's thread only: null ends it
  void KillProc(int type) { m_Queue.Kill(type); }
  void PushFinishedProc(std::unique_ptr<CONVIF_Proc> proc);
  std::unique_ptr<CONVIF_Proc> PullFinishedProc() { return m_Queue.PullFinished(); }
  void StartONVIFThread();  // no effect while it runs

  // ---- Events ----
  static unsigned short GetEventPort();  // 8795, 8797, ...: the first that is free; 0 when the table is full
  static void FreeEventPort(unsigned short port);  // an unknown port changes nothing
  unsigned short EventPort() const { return m_Events.Port(); }
  GXT_REPORT EventReport() override { return m_Events.Report(); }
  void FileThreadProcessEvent(unsigned char* data, int length) override;  // an alarm datagram; any thread
  bool StartONVIF_EventConfig() { return m_Events.Subscribe(); }
  // Reads one notification (altered; NUL-terminated there or later): motion raises the host's event and sets
  // the motion level. Anything else changes nothing. Listener's thread.
  void ProcessEvent(char* body, int length);
  // Name and value of the first simple item in the part ("Source", "Key", "Data") of a message; both are left
  // as they are when there is none.
  static void ExtractSimple(CONVIFMsg* message, const char* part, CGXString* name, CGXString* value);
  int MotionLevel() const { return m_iMotionLevel; }  // -1 unknown, 0 none, 100 motion; what frames carry

  // ---- Intercom client; under the main-thread lock. See CIntercomClient ----
  CIntercomClient* GetIcomClient(ICOM_CLIENT_CTX ctx) override;
  CSystemComponent* IcomBindingObject() override { return this; }
  CVideoSystem* GetVideoSystem() override { return this; }
  CGXString IcomName() override { return Name(); }
  int IcomHardwareType() override;
  unsigned GetIP() override;  // the controller's
  int AnswerMode() override { return ICOM_ANSWER_BY_ITSELF; }
  int AnnounceVolume() override;
  bool HasAudioRX() override;                                   // only door stations are let talk
  int BeginReceiveAudioFrom(CIntercomClient* client) override;  // 0: another one talks, or it has no speaker
  int StopReceiveAudio() override;
  int SetIcomAudioRXState(CIntercomClient* client, int on) override;
  int StreamAudioFromRTSP(CRTSPProfile*, CIntercomClient*, int) override { return 0; }  // not supported
  int StopAudioStream() override { return 0; }
  int HandleAudioStreamTargetAttach(CAudioStreamTarget* target, GXT_RTP_PATH_DESCRIPTOR* path,
                                    STREAM_CTX ctx) override;
  int HandleAudioStreamTargetDetach(CAudioStreamTarget* target) override;
  int HandleBeginSession(CIntercomClient* caller, CALL_TYPE callerType, CALL_TYPE type,
                         INCOMING_CALL_CTX ctx) override;
  int HandleCancelSession() override;
  // The door station's call: rings the default targets, until one accepts, all decline, it is cancelled, or
  // nobody has answered for 15 s. 0: one rings already, or there is nobody to ring.
  int InitiateCall(int button) override;
  int CancelCall(int button) override;
  void CallAccepted(CIntercomClient* client, CIcomCallDelegate* delegate, CALL_TYPE type) override;
  void CallDeclined(CIntercomClient* client) override;

  // ---- For its audio output; any thread ----
  void MicMute(int mute) override { m_iMicMute = mute; }  // kept for later; the squelch does the muting
  CIntercomClient* OwnIntercomClient() override { return this; }
  CTraceProducer* TraceProducer() override { return this; }

  int RunAudioRTSP();  // relays the microphone until nobody listens or it falls silent; 0 in any case

 private:
  static constexpr unsigned WORKER_STACK_BYTES = 256000;
  static constexpr int MOTION_LEVEL_FULL = 100, MOTION_LEVEL_UNKNOWN = -1;

  // ---- Identity (ONVIFCam.cpp) ----
  bool IsStatic() const { return ComponentType() == TYPE_STATIC; }
  bool ReadIdentity(CGXFile* file);
  void ForgetCamera();
  void StopWorkers();  // cancels and joins the threads of streams, sound, queue and listener

  // ---- Service (ONVIFCam_run.cpp); connection thread ----
  bool JoinIntercom();
  bool LeaveIntercom();
  void RequestDVR(CRunState::Epoch since);
  static unsigned ONVIFThreadProc(void* camera);
  void RunThreadProc();
  bool ProcessReadyFrames();

  void ReportMotion(bool motion);  // ONVIFCam_event.cpp

  // ---- Calls and speaker (ONVIFCam_icom.cpp); main thread ----
  bool HasSpeaker() const;
  void SetAudioOut(std::unique_ptr<CONVIF_AudioOut> output);
  void EndLongRinging();

  // ---- Microphone (ONVIFCam_audio.cpp) ----
  bool AddListener(CAudioStreamTarget* target, const GXT_RTP_PATH_DESCRIPTOR* path, STREAM_CTX ctx)
      REQUIRES(m_AudioLock);
  void EndWithoutListeners() REQUIRES(m_AudioLock);
  void DropListeners();
  static unsigned Audio_Proc(void* camera);
  void RunAudioThreadProc();
  bool AudioThreadEnds();
  bool AudioWanted();
  void RelayAudio(unsigned char* packet, int length);

  // ---- What the host is told (ONVIFCam_offer.cpp) ----
  void UpdateResMask();
  int EncodeTypeOf(const CONVIFUserSettings& entry) const;

  // ---- Fields ----
  CCameraIdentity m_Identity;
  CMediaModel m_Model;
  CCameraClock m_Clock;

  // Progress: set by the connection thread, reset by any.
  CRunState m_RunState;
  CGXSemaphore m_Wake;  // ends the connection thread's wait

  // Queue: see CProcQueue.
  CProcQueue m_Queue;

  CCameraStreams m_Streams{this};
  std::atomic<int> m_iMotionLevel{MOTION_LEVEL_UNKNOWN};  // see MotionLevel(); listener's thread and alarms
  CGXCritical m_RTSPSinkLock;
  std::vector<CObjectSink*> m_RTSPSinks GUARDED_BY(m_RTSPSinkLock);

  // Events.
  static unsigned short g_wEventPorts[CPortTable::MOST];  // in use, through the table only, like their count
  static int g_iNEventPorts;
  static CPortTable g_EventPortTable;
  CEventService m_Events;
  CLoading m_Loading;  // uses the ones above

  // Intercom. The lock is not held while a talk begins or ends: the audio thread asks both objects for every
  // packet.
  CGXCritical m_AudioLock;
  std::unique_ptr<CONVIF_AudioOut> m_pAudioOut GUARDED_BY(m_AudioLock);  // replaced by the main thread only
  std::unique_ptr<CRTSPServer> m_pAudioServer GUARDED_BY(m_AudioLock);   // while somebody listens
  CAudioSquelch m_AudioSquelch GUARDED_BY(m_AudioLock);
  CGXTimer m_LevelAsked GUARDED_BY(m_AudioLock);        // since the level of what the speaker plays was asked
  bool m_bAudioThread GUARDED_BY(m_AudioLock) = false;  // it has not decided to end
  CGXThread m_AudioThread;                              // started by the main thread
  std::atomic<int> m_iMicMute{0};
  std::unique_ptr<COutboundCall> m_pOutboundCall;  // main thread only
};
