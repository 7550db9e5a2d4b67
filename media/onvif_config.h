// The user's stream settings of a camera: the lists, their stored forms, and which entry is in force.
#pragma once

#include "media/encoder.h"
#include "media/profile.h"

#include <atomic>
#include <memory>

// One entry. Everything but Settings(), which has its own lock, is set before other threads see the entry.
class CONVIFUserSettings {
 public:
  CONVIFUserSettings() = default;
  virtual ~CONVIFUserSettings() = default;

  CGXString Name() const { return m_Name; }
  void Name(const CGXString& name) { m_Name = name; }
  CGXString ProfileToken() const { return m_ProfileToken; }
  void ProfileToken(const CGXString& token) { m_ProfileToken = token; }
  CGXString EncoderToken() const { return m_EncoderToken; }  // or USER_SETTINGS_DEFAULT_ENCODER
  void EncoderToken(const CGXString& token) { m_EncoderToken = token; }
  RTP_TRANSPORT Transport() const { return static_cast<RTP_TRANSPORT>(m_iTransport); }
  CONVIFSettings* Settings() { return &m_Settings; }  // the wanted settings: the record itself
  const CONVIFSettings* Settings() const { return &m_Settings; }

  // The entry follows the camera's own encoder settings and is never written to the camera.
  bool ReadOnlyProfile() const;

  void WriteTo(CGXMSG* msg) const;
  void ReadFrom(CGXMSG* msg);
  bool Read(CGXFile* file, int version);  // false at the first item that fails
  bool Write(CGXFile* file, int version) const;

  CONVIFUserSettings* Next() const { return m_pNext; }
  void Next(CONVIFUserSettings* next) { m_pNext = next; }

 private:
  CGXString m_Name, m_ProfileToken, m_EncoderToken;
  CONVIFSettings m_Settings;
  int m_iTransport = RTP_TRANSPORT_TCP;
  std::atomic<CONVIFUserSettings*> m_pNext = nullptr;
};

// EncoderToken() of an entry that leaves the profile's encoder as the camera has it.
inline constexpr const char* USER_SETTINGS_DEFAULT_ENCODER = "<DEFAULT>";

// The ordered list of entries of one stream type: one generation. Once shared (shared_ptr) it is only ever
// appended to, by one thread, while others walk it; ReadFrom, Read, DeleteSettings and RemoveAll are for a list
// not yet shared.
class CONVIFUserConfig {
 public:
  CONVIFUserConfig() = default;
  virtual ~CONVIFUserConfig() = default;

  int NSettings() const { return m_Entries.Count(); }
  CONVIFUserSettings* Settings() const { return m_Entries.Head(); }              // walk with Next()
  CONVIFUserSettings* Settings(int index) const { return m_Entries.At(index); }  // null when out of range
  CGXString DefaultProfile() const {
    return m_DefaultProfile;
  }  // ProfileToken of the entry to use without an index

  CONVIFUserSettings* AddNewSettings();  // a default entry at the tail; stays owned by the list
  CONVIFUserSettings* AddSettings(std::unique_ptr<CONVIFUserSettings> entry);  // the same with one made before
  void DeleteSettings(CONVIFUserSettings* entry);
  void RemoveAll() { m_Entries.RemoveAll(); }

  // Replace the whole list by what the message or the record holds. Read gives false at the first item that
  // fails and keeps the entries before it; the default profile came with version 532.
  void WriteTo(CGXMSG* msg) const;
  void ReadFrom(CGXMSG* msg);
  bool Read(CGXFile* file, int version);
  bool Write(CGXFile* file, int version) const;

 private:
  CGXString m_DefaultProfile;
  COwnedList<CONVIFUserSettings> m_Entries;
};

// `entry` itself when it is in the H.264 list or in the JPEG list, otherwise null. It need not point at
// anything.
CONVIFUserSettings* FindUserSettings(const CONVIFUserConfig& h264, const CONVIFUserConfig& jpeg,
                                     const void* entry);

// Whether the entry is what the camera is running.
bool IsSettingsActive(const CONVIFUserSettings& entry, const CProfileConfig& profiles,
                      const CEncoderConfig& encoders);

// Index of the entry to stream with: `index` (negative: that of the default profile) when it is active, else
// that of the first active entry; -1 when none is.
int GetRTSPResolution(const CONVIFUserConfig& list, int index, const CProfileConfig& profiles,
                      const CEncoderConfig& encoders);

// Entries that follow the camera get the settings that it runs in `profile`.
void UpdateDefaults(CONVIFUserConfig* list, const CProfile& profile);

// Gives each empty list one entry, from the profile nearest to 640 x 480 that suits it: JPEG for the JPEG list,
// H.264, or else JPEG, for the H.264 list. Always true.
bool LoadDefaultUserSettings(const CProfileConfig& profiles, CONVIFUserConfig* h264, CONVIFUserConfig* jpeg);
