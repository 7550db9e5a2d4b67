#include "media/media_model.h"

#include <utility>

namespace {

CUserSettingsRef EntryOf(const CMediaModel::CUserConfigRef& list, int index) {
  if (list == nullptr) return nullptr;
  return {list, list->Settings(index)};
}

}  // namespace

CMediaModel::CMediaModel()
    : m_pProfiles(std::make_shared<CProfileConfig>()),
      m_pEncoders(std::make_shared<CEncoderConfig>()),
      m_pH264Settings(std::make_shared<CONVIFUserConfig>()),
      m_pJPEGSettings(std::make_shared<CONVIFUserConfig>()) {}

// ---- Generations ----

CMediaModel::CProfilesRef CMediaModel::Profiles() const {
  const CGXLock lock(m_Lock);
  return m_pProfiles;
}

CMediaModel::CEncodersRef CMediaModel::Encoders() const {
  const CGXLock lock(m_Lock);
  return m_pEncoders;
}

CMediaModel::CUserConfigRef CMediaModel::H264Settings() const {
  const CGXLock lock(m_Lock);
  return m_pH264Settings;
}

CMediaModel::CUserConfigRef CMediaModel::JPEGSettings() const {
  const CGXLock lock(m_Lock);
  return m_pJPEGSettings;
}

CMediaModel::CUserConfigRef CMediaModel::UserConfig(RTSP_PROFILE_TYPE type) const {
  switch (type) {
    case RTSP_PROFILE_H264:
      return H264Settings();
    case RTSP_PROFILE_JPEG:
      return JPEGSettings();
    default:
      return nullptr;
  }
}

void CMediaModel::Take(const CProfilesRef& profiles) {
  const CProfilesRef before = Profiles();
  for (CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next())
    if (const CProfile* const known = before->ProfileByToken(profile->Token())) profile->TakeStreamFrom(*known);
  {
    const CGXLock lock(m_Lock);
    m_pProfiles = profiles;
  }
  const CUserConfigRef lists[] = {H264Settings(), JPEGSettings()};
  for (const CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next())
    for (const CUserConfigRef& list : lists) UpdateDefaults(list.get(), *profile);
}

void CMediaModel::Take(const CEncodersRef& encoders) {
  const CGXLock lock(m_Lock);
  m_pEncoders = encoders;
}

void CMediaModel::Take(const CUserConfigRef& h264, const CUserConfigRef& jpeg) {
  const CGXLock lock(m_Lock);
  m_pH264Settings = h264;
  m_pJPEGSettings = jpeg;
}

void CMediaModel::ForgetCamera() {
  const CGXLock lock(m_Lock);
  m_pProfiles = std::make_shared<CProfileConfig>();
  m_pEncoders = std::make_shared<CEncoderConfig>();
}

bool CMediaModel::ReadUserConfig(CGXFile* file, int version, RTSP_PROFILE_TYPE type) {
  const auto read = std::make_shared<CONVIFUserConfig>();
  const bool complete = read->Read(file, version);
  const CGXLock lock(m_Lock);
  (type == RTSP_PROFILE_H264 ? m_pH264Settings : m_pJPEGSettings) = read;
  return complete;
}

bool CMediaModel::HasEmptyUserSettings() const {
  return H264Settings()->NSettings() == 0 || JPEGSettings()->NSettings() == 0;
}

bool CMediaModel::LoadDefaultUserSettings() {
  return ::LoadDefaultUserSettings(*Profiles(), H264Settings().get(), JPEGSettings().get());
}

// ---- Search ----

CProfileRef CMediaModel::ProfileByToken(const CGXString& token) const {
  const CProfilesRef profiles = Profiles();
  return {profiles, profiles->ProfileByToken(token)};
}

CEncoderRef CMediaModel::EncoderByToken(const CGXString& token) const {
  const CEncodersRef encoders = Encoders();
  return {encoders, encoders->EncoderByToken(token)};
}

int CMediaModel::IndexOfProfile(const CGXString& token) const {
  const CProfilesRef profiles = Profiles();
  int index = 0;
  for (const CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next(), ++index)
    if (profile->Token() == token) return index;
  return NO_INDEX;
}

int CMediaModel::IndexOfEncoder(const CGXString& token) const {
  const CEncodersRef encoders = Encoders();
  int index = 0;
  for (const CEncoder* encoder = encoders->Encoders(); encoder != nullptr; encoder = encoder->Next(), ++index)
    if (encoder->Token() == token) return index;
  return NO_INDEX;
}

CProfileRef CMediaModel::RelativeMoveProfile() const {
  const CProfilesRef profiles = Profiles();
  return {profiles, PTZProfile(*profiles)};
}

CProfile* CMediaModel::PTZProfile(const CProfileConfig& profiles) {
  CProfile* profile = profiles.Profiles();
  while (profile != nullptr && profile->PTZConfigToken().IsEmpty()) profile = profile->Next();
  return profile;
}

CProfileRef CMediaModel::AudioProfile() const {
  const CProfilesRef profiles = Profiles();
  for (CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next())
    if (profile->AudioEncoderType().CompareNoCase("G711") == 0 && !profile->ControlURLAudio().IsEmpty())
      return {profiles, profile};
  return nullptr;
}

CUserSettingsRef CMediaModel::FindUserSettings(const void* entry) const {
  const CUserConfigRef h264 = H264Settings(), jpeg = JPEGSettings();
  CONVIFUserSettings* const own = ::FindUserSettings(*h264, *jpeg, entry);
  if (own == nullptr) return nullptr;
  return {std::make_shared<std::pair<CUserConfigRef, CUserConfigRef>>(h264, jpeg), own};
}

CUserSettingsRef CMediaModel::UserSettings(RTSP_PROFILE_TYPE type, int index) const {
  return EntryOf(UserConfig(type), index);
}

CUserSettingsRef CMediaModel::DVRSettings(int index) const {
  const CUserConfigRef jpeg = JPEGSettings();
  const int count = jpeg->NSettings();
  return index < count ? EntryOf(jpeg, index) : EntryOf(H264Settings(), index - count);
}

CProfileRef CMediaModel::DVRProfile(int index) const {
  const CUserSettingsRef settings = DVRSettings(index);
  return settings != nullptr ? ProfileByToken(settings->ProfileToken()) : nullptr;
}

bool CMediaModel::IsH264(const CONVIFUserSettings& entry) const {
  const CProfileRef profile = ProfileByToken(entry.ProfileToken());
  return profile != nullptr && profile->VideoEncoderType().CompareNoCase("H264") == 0;
}

int CMediaModel::NSettings(RTSP_PROFILE_TYPE type) const {
  const CUserConfigRef list = UserConfig(type);
  return list != nullptr ? list->NSettings() : 0;
}

int CMediaModel::ActiveIndex(RTSP_PROFILE_TYPE type, int index) const {
  const CUserConfigRef list = UserConfig(type);
  return list != nullptr ? ::GetRTSPResolution(*list, index, *Profiles(), *Encoders()) : -1;
}
