// Operations that talk to the camera for the host: run one after the other on the camera's own thread,
// completed on the main thread.
#pragma once

#include "host/base/gxstring.h"

class CEncoder;
class CONVIFCam;
class CONVIFMsg;
class CONVIFSettings;
class CONVIFUserSettings;
class CProfile;

class CONVIF_Proc {
 public:
  explicit CONVIF_Proc(int type = 0) : m_iType(type) {}
  virtual int DoProc(CONVIFCam* camera) = 0;  // queue thread; non-zero on success
  virtual int PostProc(CONVIFCam* camera);    // main thread, whatever DoProc returned
  virtual ~CONVIF_Proc() = default;           // behind the two operations, whose slots come first
  CONVIF_Proc(const CONVIF_Proc&) = delete;
  CONVIF_Proc& operator=(const CONVIF_Proc&) = delete;

  int Type() const { return m_iType; }  // procs of a kind that a newer one replaces have a type above 0
  CONVIF_Proc* Next() const { return m_pNext; }
  void Next(CONVIF_Proc* next) { m_pNext = next; }

 protected:
  // Ask the camera anew for one encoder or profile. False when it gave no answer that holds it.
  static bool ReloadEncoder(CONVIFCam* camera, CEncoder* encoder);
  static bool ReloadProfile(CONVIFCam* camera, CProfile* profile);

 private:
  CONVIF_Proc* m_pNext = nullptr;
  int m_iType;
};

// Brings the camera in line with one entry of the user's stream settings, and describes the stream anew when
// needed. Its completion tells the camera's notice sinks: code = profile index << 16 | encoder index << 8 | 2,
// 255 for an index that had no part in it.
class CCheckUserSet : public CONVIF_Proc {
 public:
  explicit CCheckUserSet(CONVIFUserSettings* entry) : m_pEntry(entry) {}
  int DoProc(CONVIFCam* camera) override;
  int PostProc(CONVIFCam* camera) override;

  // The body of SetVideoEncoderConfiguration under `parent`. An H.264 entry that leaves the profile open (code
  // 4) takes that of the camera, in `settings` itself.
  static void WriteEncoder(CONVIFMsg* parent, const CEncoder& encoder, CONVIFSettings* settings);

 private:
  bool AlignEncoder(CONVIFCam* camera, CONVIFUserSettings* entry, bool* changed);
  bool AlignProfile(CONVIFCam* camera, const CONVIFUserSettings& entry, CProfile* profile, bool changed);
  static void AdoptRates(const CONVIFSettings& current, CONVIFSettings* wanted);
  static bool ConfigureEncoder(CONVIFCam* camera, const CEncoder& encoder, CONVIFSettings* settings);
  static bool ConfigureProfileEncoderToken(CONVIFCam* camera, const CProfile& profile,
                                           const CGXString& encoderToken);

  CONVIFUserSettings* const m_pEntry;  // only compared until the camera has confirmed that it still has it
  int m_iProfile = 255, m_iEncoder = 255;
};
