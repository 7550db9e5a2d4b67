// What a camera allows for one encoding of a video encoder.
#pragma once

#include "host/base/gxmsg.h"
#include "host/video/rtsp_profile.h"

class CONVIFMsg;

// A plain value; its owner guards it.
class CEncoderOptions {
 public:
  // Fills the record from a "JPEG" or "H264" element of GetVideoEncoderConfigurationOptionsResponse; what it
  // held before is forgotten.
  void LoadFrom(const CONVIFMsg* element);

  // Adds a profile by its ONVIF name, once, in the camera's order; unknown names are ignored.
  void AddH264Profile(const CGXString& name);

  static void ExtractRange(const CONVIFMsg* element, GXT_RANGE* range);  // its Min and Max

  // Resolutions, the four ranges, H.264 profiles.
  void WriteTo(CGXMSG* msg) const;

 private:
  static constexpr int MAX_RESOLUTIONS = 16;   // what the configuration screen takes; further ones are dropped
  static constexpr int MAX_H264_PROFILES = 4;  // there are no more

  GXT_RANGE* RangeOf(const char* element);
  void AddH264Profiles(const CGXString& names);

  GXT_RESOLUTION m_Resolutions[MAX_RESOLUTIONS];
  int m_iNResolutions = 0;
  GXT_RANGE m_EncodingIntervalRange, m_GovLengthRange, m_FrameRateRange, m_BitrateRange;
  int m_H264Profiles[MAX_H264_PROFILES] = {};
  int m_iNH264Profiles = 0;
};
