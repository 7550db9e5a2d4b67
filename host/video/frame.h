// Pictures on their way from a camera to viewers and recorders.
#pragma once

#include "host/base/gxstring.h"

#include <cstdint>
#include <memory>
#include <vector>

// One JPEG picture of the frame pool. Its memory stays with it, so that filling it again costs no allocation.
class CJPEGBuffer {
 public:
  void SetData(const unsigned char* data, int length);  // copies
  const unsigned char* Data() const { return m_Data.data(); }
  int Length() const { return static_cast<int>(m_Data.size()); }

  // The stream that it came from, 0 to 2; `fromStream` 1: a stream of the camera of that resolution index.
  void ResMode(int stream, int fromStream) {
    m_iStream = stream;
    m_iFromStream = fromStream;
  }
  int ResMode() const { return m_iStream; }
  int MotionData() const { return m_iMotion; }  // -1 unknown, 0 none, 100 motion
  void MotionData(int motion) { m_iMotion = motion; }

 private:
  std::vector<unsigned char> m_Data;
  int m_iStream = 0, m_iFromStream = 0, m_iMotion = -1;
};

// Kinds of CFrameData.
inline constexpr int FRAME_KIND_JPEG = 2;
inline constexpr int FRAME_KIND_H264 = 9;

// One piece of a recording. Of kind 9: NAL units in Annex B form with three-byte start codes; Options() is the
// type of the last one (ITU-T H.264 table 7-1): 5 begins with parameter sets, 1 to 4 is one slice. The slices
// of one picture come as an object each.
class CFrameData {
 public:
  // Copies the bytes; `camera` may go away afterwards, only its id is kept. Times are the receiver's business.
  CFrameData(int kind, const void* time, int timeHigh, int timeLow, const class CSystemComponent* camera,
             const unsigned char* data, int length, int motion, int reserved);
  virtual ~CFrameData();

  int Kind() const { return m_iKind; }
  int CameraID() const { return m_iCameraID; }
  const unsigned char* Data() const { return m_Data.data(); }
  int Length() const { return static_cast<int>(m_Data.size()); }
  int Motion() const { return m_iMotion; }
  int Options() const { return m_iOptions; }
  void Options(int options) { m_iOptions = options; }

 private:
  int m_iKind, m_iCameraID;
  std::vector<unsigned char> m_Data;
  int m_iMotion, m_iOptions = 0;
};

// Receives the pieces of a recording.
class CDVRTarget {
 public:
  virtual ~CDVRTarget();
  // A stream of kind 9 has been opened: what is delivered from now on does not continue what came before. The
  // thread that will deliver, before the first piece; never blocks.
  virtual void BeginStream() = 0;
  // Takes ownership; any thread; never blocks. When it cannot keep up it drops up to the next key frame.
  virtual void DeliverFrame(std::unique_ptr<CFrameData> frame) = 0;
};
