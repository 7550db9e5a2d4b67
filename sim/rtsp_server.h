// The camera's RTSP server: Digest authentication, H.264, RTP/JPEG and G.711 over UDP or interleaved in TCP.
#pragma once

#include "sim/model.h"
#include "sim/pump.h"

#include <gst/rtsp-server/rtsp-server.h>

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

// The thread that all RTSP servers of the program share.
class CRTSPLoop {
 public:
  CRTSPLoop();
  ~CRTSPLoop();
  // Runs `work` on the loop's thread and waits for its end.
  void Run(const std::function<void()>& work);

 private:
  GMainLoop* m_Loop;
  std::thread m_Thread;
};

class CRTSPFront {
 public:
  CRTSPFront(CCameraModel& model, CRTSPLoop& loop) : m_Model(model), m_Loop(loop) {}
  ~CRTSPFront() { Stop(); }
  // Opens the RTSP port at the camera's present address. False with a reason in `error`.
  bool Start(std::string* error);
  // Ends all sessions, connections and streams. May start again.
  void Stop();
  // The profile's stream has changed: ends its sessions and their connections; the next ones get the new
  // stream.
  void Restart(const std::string& profileToken);
  // Playing sessions of each profile, into the model.
  void CountSessions();

  // What the GStreamer objects of a stream call back, on threads of theirs.
  GstElement* MakePipeline(const std::string& profileToken);
  void MediaMade(const std::string& profileToken, GstRTSPMedia* media);
  int RTCPIntervalMs() const;

 private:
  bool StartInLoop(std::string* error);
  void StopInLoop();
  void Mount(const CSimProfile& profile);
  CVideoEncoder EncoderOf(const std::string& profileToken) const;

  CCameraModel& m_Model;
  CRTSPLoop& m_Loop;
  GstRTSPServer* m_PServer = nullptr;
  GSource* m_PSource = nullptr;
  guint m_NCleaner = 0;
  std::mutex m_Lock;  // guards what follows
  bool m_BOpen = false;
  std::list<std::weak_ptr<CPump>> m_Pumps;
};
