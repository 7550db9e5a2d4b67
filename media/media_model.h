// What a camera offers (profiles, encoders) and what the user wants of it (stream settings), each as the list
// last loaded or set: a generation.
#pragma once

#include "media/encoder.h"
#include "media/onvif_config.h"
#include "media/profile.h"

#include <memory>

// What an entry of the media model is handed out as: it keeps alive the whole list (generation) that it is
// from, so it may be used across an exchange with the camera while the lists are loaded anew.
using CProfileRef = std::shared_ptr<CProfile>;
using CEncoderRef = std::shared_ptr<CEncoder>;
using CUserSettingsRef = std::shared_ptr<CONVIFUserSettings>;

// Any thread. The lock guards which lists are current; what they hold looks after itself.
class CMediaModel {
 public:
  using CProfilesRef = std::shared_ptr<CProfileConfig>;
  using CEncodersRef = std::shared_ptr<CEncoderConfig>;
  using CUserConfigRef = std::shared_ptr<CONVIFUserConfig>;

  static constexpr int NO_INDEX = 255;  // of an unknown token: the indices travel as bytes

  CMediaModel();

  CProfilesRef Profiles() const;  // never null, like the following three
  CEncodersRef Encoders() const;
  CUserConfigRef H264Settings() const;
  CUserConfigRef JPEGSettings() const;
  CUserConfigRef UserConfig(RTSP_PROFILE_TYPE type) const;  // null for any other type

  // ---- New generations ----
  // Profiles as the camera has just named them. Until they are asked for their streams, they answer with what
  // was known of those of the same token: a recorder or a microphone may be using it. Entries that follow the
  // camera get its new settings.
  void Take(const CProfilesRef& profiles);
  void Take(const CEncodersRef& encoders);
  void Take(const CUserConfigRef& h264, const CUserConfigRef& jpeg);
  void ForgetCamera();  // no profiles and no encoders until another camera has been loaded
  // Of a record: false when it ends early; what was read before is kept.
  bool ReadUserConfig(CGXFile* file, int version, RTSP_PROFILE_TYPE type);
  bool HasEmptyUserSettings() const;
  bool LoadDefaultUserSettings();  // gives each empty list an entry; always true

  // ---- Search; null when there is none ----
  CProfileRef ProfileByToken(const CGXString& token) const;
  CEncoderRef EncoderByToken(const CGXString& token) const;
  int IndexOfProfile(const CGXString& token) const;  // position in the camera's order, or NO_INDEX
  int IndexOfEncoder(const CGXString& token) const;
  CProfileRef RelativeMoveProfile() const;                     // the first profile with PTZ
  CProfileRef AudioProfile() const;                            // the first profile with described G.711 audio
  CUserSettingsRef FindUserSettings(const void* entry) const;  // the entry itself if it is one of ours
  CUserSettingsRef UserSettings(RTSP_PROFILE_TYPE type, int index) const;
  CUserSettingsRef DVRSettings(int index) const;  // the JPEG entries count first, then the H.264 entries
  CProfileRef DVRProfile(int index) const;

  bool IsH264(const CONVIFUserSettings& entry) const;  // by its profile; false without
  int NSettings(RTSP_PROFILE_TYPE type) const;
  int ActiveIndex(RTSP_PROFILE_TYPE type, int index) const;  // see GetRTSPResolution; -1: none

  static CProfile* PTZProfile(const CProfileConfig& profiles);  // the first one with PTZ; null: none

 private:
  mutable CGXCritical m_Lock;
  CProfilesRef m_pProfiles GUARDED_BY(m_Lock);
  CEncodersRef m_pEncoders GUARDED_BY(m_Lock);
  CUserConfigRef m_pH264Settings GUARDED_BY(m_Lock), m_pJPEGSettings GUARDED_BY(m_Lock);
};
