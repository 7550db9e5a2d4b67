// The media profiles that a camera offers, completed on demand with stream URI, session description and
// presets.
#pragma once

#include "media/media_camera.h"
#include "media/onvif_settings.h"
#include "media/owned_list.h"
#include "media/session_description.h"

#include <memory>
#include <vector>

// One PTZ preset of a camera.
class CONVIFPreset {
 public:
  CONVIFPreset(CGXString token, CGXString name) : m_Token(token), m_Name(name) {}
  CGXString Token() const { return m_Token; }
  CGXString Name() const { return m_Name; }
  CONVIFPreset* Next() const { return m_pNext; }
  void Next(CONVIFPreset* next) { m_pNext = next; }

 private:
  const CGXString m_Token, m_Name;
  CONVIFPreset* m_pNext = nullptr;
};

// One media profile. Any thread may use it while its CProfileConfig lives; what readers hand out are copies.
// The operations that take a camera exchange messages with it without holding the lock, and store the result
// afterwards.
class CProfile {
 public:
  static constexpr int STATE_DESCRIBED = 1;  // bit of State(): the session description is loaded

  explicit CProfile(const CONVIFMsg* profile);  // from one "Profiles" element of GetProfilesResponse

  // Refreshes names, encoders and settings from a newer copy and clears State(). False when it is another
  // profile's.
  bool ReloadFrom(const CONVIFMsg* profile);

  bool LoadStreamUri(CMediaCamera* camera);     // GetStreamUri; true when the camera named one
  bool LoadPresetConfig(CMediaCamera* camera);  // GetPresets; true when the camera answered at all
  // DESCRIBE of StreamUri(), again when the profile was reloaded meanwhile; false changes nothing.
  bool LoadRTSPConfig(CMediaCamera* camera, CGXString* reason = nullptr);

  // LoadRTSPConfig unless STATE_DESCRIBED is set, and sets it, unless the profile was reloaded meanwhile.
  // `reason`, may be null: of a failure, in plain words.
  bool EnsureRTSPConfig(CMediaCamera* camera, CGXString* reason = nullptr);

  // Stream URI and session description of an older copy of this profile, until the camera names another URI.
  // STATE_DESCRIBED stays clear: the next stream start describes the stream again.
  void TakeStreamFrom(const CProfile& older);

  // Grows whenever the description is declared out of date: a stream that began before shows the old settings.
  unsigned Reloads() const;

  // Copy the parameters of this profile's streams. The audio record has the sample rate as its bit rate.
  void ConfigureVideo(CRTSPProfile* rtsp) const;
  void ConfigureAudio(CRTSPProfile* rtsp) const;

  void RemoveAll();      // drops the session description's lines and the startup data
  void RemovePresets();  // readers that hold one keep it

  CGXString Token() const { return m_Token; }
  CGXString PTZConfigToken() const { return m_PTZ.ConfigToken; }  // empty: no PTZ
  CGXString NodeToken() const { return m_PTZ.NodeToken; }
  CGXString PTZRelPositionSpace() const { return m_PTZ.RelPositionSpace; }  // URI of the default relative space
  GXT_PTZ_RANGE RangePan() const { return m_PTZ.Pan; }
  GXT_PTZ_RANGE RangeTilt() const { return m_PTZ.Tilt; }
  GXT_PTZ_RANGE RangeZoom() const { return m_PTZ.Zoom; }

  int State() const;  // STATE_...
  void State(int state);
  CGXString Name() const;
  CGXString SnapshotUri() const;
  void SnapshotUri(const CGXString& uri);
  CGXString StreamUri() const;
  CGXString ContentBase() const;
  CGXString ControlURLVideo() const;
  CGXString ControlURLAudio() const;
  int VideoFormatTag() const;
  int AudioFormatTag() const;
  std::vector<unsigned char> StartupData() const;  // H.264 parameter sets, Annex B
  int NStartupData() const;                        // bytes
  CGXString VideoEncoderToken() const;
  CGXString AudioEncoderToken() const;
  int SampleRate() const;  // of the audio encoder, as the camera wrote it
  const CONVIFSettings* CurrentSettings() const { return &m_CurrentSettings; }
  CGXString VideoEncoderType() const { return m_CurrentSettings.VideoEncoderType(); }
  CGXString AudioEncoderType() const { return m_CurrentSettings.AudioEncoderType(); }

  int NPresets() const;
  std::shared_ptr<const CONVIFPreset> Preset(int index) const;  // null when out of range

  void WriteTo(CGXMSG* msg) const;

  CProfile* Next() const { return m_pNext; }
  void Next(CProfile* next) { m_pNext = next; }

 private:
  using CPresetList = COwnedList<CONVIFPreset>;
  struct CPTZ {
    CGXString ConfigToken, NodeToken, RelPositionSpace;
    GXT_PTZ_RANGE Pan, Tilt, Zoom;
  };

  enum class Described { FAILED, STALE, STORED };
  Described Describe(CMediaCamera* camera, CGXString* reason);
  static CPTZ ExtractPTZ(const CONVIFMsg* profile);
  static void ExtractPTZRange(const CONVIFMsg* element, GXT_PTZ_RANGE* range);
  void LoadEncoders(const CONVIFMsg* profile);
  void TakeStreamUri(const CGXString& uri);
  std::shared_ptr<const CPresetList> Presets() const;

  const CGXString m_Token;
  const CPTZ m_PTZ;
  CProfile* m_pNext = nullptr;  // set before the list is shared
  CONVIFSettings m_CurrentSettings;

  mutable CGXCritical m_Lock;
  int m_iState GUARDED_BY(m_Lock) = 0;
  unsigned m_nReloads GUARDED_BY(m_Lock) = 0;    // how often the description was declared out of date
  unsigned m_nDescribed GUARDED_BY(m_Lock) = 0;  // m_nReloads when that description was asked for
  CGXString m_Name GUARDED_BY(m_Lock), m_SnapshotUri GUARDED_BY(m_Lock), m_StreamUri GUARDED_BY(m_Lock);
  CGXString m_VideoEncoderToken GUARDED_BY(m_Lock), m_AudioEncoderToken GUARDED_BY(m_Lock);
  int m_iSampleRate GUARDED_BY(m_Lock) = 0;
  CSessionDescription m_Description GUARDED_BY(m_Lock);
  std::shared_ptr<const CPresetList> m_pPresets GUARDED_BY(m_Lock);  // never null
};

// All profiles of one camera in its order: one generation. It is filled by one thread, then shared (shared_ptr)
// and never added to again; whoever uses a profile across an exchange with the camera holds the generation.
class CProfileConfig {
 public:
  CProfile* AddProfile(const CONVIFMsg* profile);  // at the tail; stays owned by the list
  void RemoveAll() { m_Profiles.RemoveAll(); }

  CProfile* Profiles() const { return m_Profiles.Head(); }  // walk with Next()
  CProfile* ProfileByToken(const CGXString& token) const;   // the first one; null when none

  // The first profile with that encoding (any letter case) or, given a size in pixels, the one nearest to it.
  CProfile* GetProfileWithEncoding(const char* encoding, const GXT_RESOLUTION* wanted) const;

  void WriteTo(CGXMSG* msg) const;  // the number of profiles, then each

 private:
  COwnedList<CProfile> m_Profiles;
};
