// Feeds the pictures of one running stream: renders at the profile's frame rate while somebody takes them.
#pragma once

#include "sim/model.h"
#include "sim/picture.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

class CPump {
 public:
  // Pictures of the profile with the settings of `encoder` go into `source` ("appsrc"), as JPEG or as raw I420.
  // `model` outlives the pump.
  CPump(CCameraModel& model, const std::string& profileToken, const CVideoEncoder& encoder, GstAppSrc* source);
  ~CPump();
  CPump(const CPump&) = delete;
  CPump& operator=(const CPump&) = delete;
  // Ends the thread. Any thread but the pump's own; twice does nothing.
  void Stop();

 private:
  void Run();
  void PushPicture();

  CCameraModel& m_Model;
  const std::string m_Token;
  const CVideoEncoder m_Encoder;
  GstAppSrc* const m_PSource;  // a reference of our own
  CPicture m_Picture;
  std::atomic<bool> m_Wanted{false};  // the source asked for a picture
  std::mutex m_Lock;                  // guards what follows
  std::condition_variable m_Stopped;
  bool m_BStop = false;
  std::thread m_Thread;
};

// A picture of the profile as it is now, with the counter that the stream's next one will have. Takes the
// model's lock.
CPicture TakePicture(CCameraModel& model, const std::string& profileToken, const CVideoEncoder& encoder);
