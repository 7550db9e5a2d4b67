// The settings of one video stream, as the camera runs them or as the user wants them.
#pragma once

#include "host/base/gxfile.h"
#include "host/base/gxmsg.h"
#include "host/base/gxthread.h"
#include "host/video/rtsp_profile.h"

#include <array>

class CONVIFMsg;

// Codes of H.264 profiles; H264_PROFILE_NONE also means "any" in a comparison.
enum H264_PROFILE : int {
  H264_PROFILE_BASELINE = 0,
  H264_PROFILE_MAIN = 1,
  H264_PROFILE_EXTENDED = 2,
  H264_PROFILE_HIGH = 3,
  H264_PROFILE_NONE = 4
};

// One record for the whole media model. It has a lock of its own, so any thread may read, change, copy or
// compare it at any time; a copy is a consistent picture of the moment.
class CONVIFSettings {
 public:
  CONVIFSettings() = default;
  CONVIFSettings(const CONVIFSettings& other) : m_Fields(other.Get()) {}
  CONVIFSettings& operator=(const CONVIFSettings& other);
  void CopyDataFrom(const CONVIFSettings* other) { *this = *other; }  // all nine fields

  // Fills the record from a VideoEncoderConfiguration-shaped element and, unless null, the audio encoding from
  // an AudioEncoderConfiguration element (ONVIF media service 1.0). What is missing reads as empty or 0.
  void LoadFrom(const CONVIFMsg* video, const CONVIFMsg* audio);

  // Whether `other` asks for what this record runs. Frame rates are not compared; GOV length and profile only
  // of H.264; an `other` without profile takes any; encodings other than JPEG and H264 never count as the same.
  bool IsSameConfig(const CONVIFSettings* other) const;

  static int H264ProfileType(const CGXString& name);  // H264_PROFILE_..., exact spelling
  static const char* H264ProfileName(int profile);    // the ONVIF name; empty for H264_PROFILE_NONE

  // Encodings as the camera spells them: "JPEG", "H264", ...
  CGXString VideoEncoderType() const { return Get(&CFields::VideoEncoderType); }
  CGXString AudioEncoderType() const { return Get(&CFields::AudioEncoderType); }
  int Quality() const { return Get(&CFields::Quality); }
  int GovLength() const { return Get(&CFields::GovLength); }              // frames between key frames
  int EncoderInterval() const { return Get(&CFields::EncoderInterval); }  // every n-th frame is sent
  int FrameRate() const { return Get(&CFields::FrameRate); }              // limit, frames per second
  int Bitrate() const { return Get(&CFields::Bitrate); }                  // limit, kbit/s
  GXT_RESOLUTION Resolution() const { return Get(&CFields::Resolution); }
  int H264Profile() const { return Get(&CFields::H264Profile); }  // H264_PROFILE_...

  void VideoEncoderType(const CGXString& encoding) { Set(&CFields::VideoEncoderType, encoding); }
  void AudioEncoderType(const CGXString& encoding) { Set(&CFields::AudioEncoderType, encoding); }
  void Quality(int quality) { Set(&CFields::Quality, quality); }
  void GovLength(int frames) { Set(&CFields::GovLength, frames); }
  void EncoderInterval(int interval) { Set(&CFields::EncoderInterval, interval); }
  void FrameRate(int rate) { Set(&CFields::FrameRate, rate); }
  void Bitrate(int rate) { Set(&CFields::Bitrate, rate); }
  void Resolution(GXT_RESOLUTION size) { Set(&CFields::Resolution, size); }
  void H264Profile(int profile) { Set(&CFields::H264Profile, profile); }

  // The message form: video encoding and eight numbers; it does not carry the audio encoding.
  void WriteTo(CGXMSG* msg) const;
  void ReadFrom(CGXMSG* msg);

  // The file form: both encodings and eight numbers; the audio encoding came with version 813. False at the
  // first item that fails; what was read before it stays.
  bool Read(CGXFile* file, int version);
  bool Write(CGXFile* file, int version) const;

 private:
  struct CFields {
    CGXString VideoEncoderType, AudioEncoderType;
    int Quality = 0, GovLength = 0, EncoderInterval = 0, FrameRate = 0, Bitrate = 0;
    GXT_RESOLUTION Resolution;
    int H264Profile = H264_PROFILE_NONE;
    std::array<int*, 8> Numbers();  // in the order of both stored forms
  };

  CFields Get() const;
  template <class T>
  T Get(T CFields::*field) const {
    CGXLock lock(m_Lock);
    return m_Fields.*field;
  }
  template <class T>
  void Set(T CFields::*field, const T& value) {
    CGXLock lock(m_Lock);
    m_Fields.*field = value;
  }

  mutable CGXCritical m_Lock;
  CFields m_Fields GUARDED_BY(m_Lock);
};
