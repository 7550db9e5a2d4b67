#include "media/onvif_config.h"

#include "host/base/gxassert.h"

namespace {

// Records written before this version begin with the number of entries.
constexpr int VERSION_DEFAULT_PROFILE = 532;

constexpr GXT_RESOLUTION DEFAULT_SIZE = {640, 480};  // pixels; what a viewer shows without being told

int FirstIndexOfProfile(const CONVIFUserConfig& list, const CGXString& token) {
  int index = 0;
  for (const CONVIFUserSettings* entry = list.Settings(); entry != nullptr; entry = entry->Next(), ++index)
    if (entry->ProfileToken() == token) return index;
  return -1;
}

void AddDefault(CONVIFUserConfig* list, const CProfile& profile) {
  auto entry = std::make_unique<CONVIFUserSettings>();
  entry->Name(profile.Name());
  entry->ProfileToken(profile.Token());
  entry->EncoderToken(USER_SETTINGS_DEFAULT_ENCODER);
  entry->Settings()->CopyDataFrom(profile.CurrentSettings());
  list->AddSettings(std::move(entry));
}

}  // namespace

bool CONVIFUserSettings::ReadOnlyProfile() const {
  return m_EncoderToken == USER_SETTINGS_DEFAULT_ENCODER;
}

void CONVIFUserSettings::WriteTo(CGXMSG* msg) const {
  msg->PutString(m_Name);
  msg->PutString(m_ProfileToken);
  msg->PutString(m_EncoderToken);
  msg->PutInt(m_iTransport);
  m_Settings.WriteTo(msg);
}

void CONVIFUserSettings::ReadFrom(CGXMSG* msg) {
  m_Name = msg->GetString();
  m_ProfileToken = msg->GetString();
  m_EncoderToken = msg->GetString();
  m_iTransport = msg->GetInt();
  m_Settings.ReadFrom(msg);
}

bool CONVIFUserSettings::Write(CGXFile* file, int version) const {
  return file->WriteString(m_Name) && file->WriteString(m_ProfileToken) && file->WriteString(m_EncoderToken) &&
         file->WriteInt(m_iTransport) && m_Settings.Write(file, version);
}

bool CONVIFUserSettings::Read(CGXFile* file, int version) {
  return file->ReadString(&m_Name) && file->ReadString(&m_ProfileToken) && file->ReadString(&m_EncoderToken) &&
         file->ReadInt(&m_iTransport) && m_Settings.Read(file, version);
}

CONVIFUserSettings* CONVIFUserConfig::AddNewSettings() {
  return AddSettings(std::make_unique<CONVIFUserSettings>());
}

CONVIFUserSettings* CONVIFUserConfig::AddSettings(std::unique_ptr<CONVIFUserSettings> entry) {
  return m_Entries.Append(std::move(entry));
}

void CONVIFUserConfig::DeleteSettings(CONVIFUserSettings* entry) {
  if (m_Entries.Remove(entry) == nullptr) AssertWrap("onvif_config", 331);
}

void CONVIFUserConfig::WriteTo(CGXMSG* msg) const {
  msg->PutString(m_DefaultProfile);
  int left = NSettings();  // an entry may be added meanwhile
  msg->PutInt(left);
  for (const CONVIFUserSettings* entry = Settings(); left > 0; --left, entry = entry->Next())
    entry->WriteTo(msg);
}

void CONVIFUserConfig::ReadFrom(CGXMSG* msg) {
  RemoveAll();
  m_DefaultProfile = msg->GetString();
  // A count beyond what the message holds would otherwise make entries out of nothing.
  for (int count = msg->GetInt(); count > 0 && !msg->Items().AtEnd(); --count) {
    auto entry = std::make_unique<CONVIFUserSettings>();
    entry->ReadFrom(msg);
    AddSettings(std::move(entry));
  }
}

bool CONVIFUserConfig::Write(CGXFile* file, int version) const {
  int left = NSettings();  // as above
  if (!file->WriteString(m_DefaultProfile) || !file->WriteInt(left)) return false;
  for (const CONVIFUserSettings* entry = Settings(); left > 0; --left, entry = entry->Next())
    if (!entry->Write(file, version)) return false;
  return true;
}

bool CONVIFUserConfig::Read(CGXFile* file, int version) {
  RemoveAll();
  if (version >= VERSION_DEFAULT_PROFILE && !file->ReadString(&m_DefaultProfile)) return false;
  int count = 0;
  if (!file->ReadInt(&count)) return false;
  for (; count > 0; --count) {
    auto entry = std::make_unique<CONVIFUserSettings>();
    if (!entry->Read(file, version)) return false;
    AddSettings(std::move(entry));
  }
  return true;
}

CONVIFUserSettings* FindUserSettings(const CONVIFUserConfig& h264, const CONVIFUserConfig& jpeg,
                                     const void* entry) {
  for (const CONVIFUserConfig* list : {&h264, &jpeg})
    for (CONVIFUserSettings* own = list->Settings(); own != nullptr; own = own->Next())
      if (own == entry) return own;
  return nullptr;
}

bool IsSettingsActive(const CONVIFUserSettings& entry, const CProfileConfig& profiles,
                      const CEncoderConfig& encoders) {
  const CProfile* const profile = profiles.ProfileByToken(entry.ProfileToken());
  if (profile == nullptr) return false;
  if (entry.ReadOnlyProfile()) return true;
  const CEncoder* const encoder = encoders.EncoderByToken(entry.EncoderToken());
  if (encoder == nullptr || !(profile->VideoEncoderToken() == entry.EncoderToken())) return false;
  return encoder->CurrentConfig()->IsSameConfig(entry.Settings());
}

int GetRTSPResolution(const CONVIFUserConfig& list, int index, const CProfileConfig& profiles,
                      const CEncoderConfig& encoders) {
  if (index < 0) index = FirstIndexOfProfile(list, list.DefaultProfile());
  const CONVIFUserSettings* const wanted = list.Settings(index);
  if (wanted != nullptr && IsSettingsActive(*wanted, profiles, encoders)) return index;
  int first = 0;
  for (const CONVIFUserSettings* entry = list.Settings(); entry != nullptr; entry = entry->Next(), ++first)
    if (IsSettingsActive(*entry, profiles, encoders)) return first;
  return -1;
}

void UpdateDefaults(CONVIFUserConfig* list, const CProfile& profile) {
  for (CONVIFUserSettings* entry = list->Settings(); entry != nullptr; entry = entry->Next())
    if (entry->ReadOnlyProfile() && entry->ProfileToken() == profile.Token())
      entry->Settings()->CopyDataFrom(profile.CurrentSettings());
}

bool LoadDefaultUserSettings(const CProfileConfig& profiles, CONVIFUserConfig* h264, CONVIFUserConfig* jpeg) {
  const CProfile* const jpegProfile = profiles.GetProfileWithEncoding("JPEG", &DEFAULT_SIZE);
  if (jpeg->Settings() == nullptr && jpegProfile != nullptr) AddDefault(jpeg, *jpegProfile);
  if (h264->Settings() != nullptr) return true;
  const CProfile* const h264Profile = profiles.GetProfileWithEncoding("H264", &DEFAULT_SIZE);
  if (const CProfile* profile = h264Profile != nullptr ? h264Profile : jpegProfile) AddDefault(h264, *profile);
  return true;
}
