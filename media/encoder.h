// The video encoder configurations that a camera reports, with the options of each.
#pragma once

#include "media/encoder_options.h"
#include "media/onvif_settings.h"
#include "media/owned_list.h"

// One video encoder configuration. Any thread may use it while its CEncoderConfig lives; texts are copies.
class CEncoder {
 public:
  // From one "Configurations" element of GetVideoEncoderConfigurationsResponse.
  explicit CEncoder(const CONVIFMsg* configuration);

  // Takes one child of the "Options" of GetVideoEncoderConfigurationOptionsResponse; call it in document order.
  void AddOptions(const CONVIFMsg* element);

  // Refreshes from a newer copy of the configuration. False, changing nothing, when it is another encoder's.
  bool ReloadFrom(const CONVIFMsg* configuration);

  CGXString Name() const;
  CGXString Token() const { return m_Token; }
  CGXString UseCount() const;                                               // as the camera wrote it
  const CONVIFSettings* CurrentConfig() const { return &m_CurrentConfig; }  // the record itself, as last read

  void WriteTo(CGXMSG* msg) const;

  CEncoder* Next() const { return m_pNext; }
  void Next(CEncoder* next) { m_pNext = next; }

 private:
  void Load(const CONVIFMsg* configuration);

  const CGXString m_Token;
  CEncoder* m_pNext = nullptr;  // set before the list is shared
  CONVIFSettings m_CurrentConfig;

  mutable CGXCritical m_Lock;
  CGXString m_Name GUARDED_BY(m_Lock), m_UseCount GUARDED_BY(m_Lock);
  CEncoderOptions m_JPEGOptions GUARDED_BY(m_Lock), m_H264Options GUARDED_BY(m_Lock);
  GXT_RANGE m_QualityRange GUARDED_BY(m_Lock) = {0, 100};
};

// All encoders of one camera in its order: one generation. It is filled by one thread, then shared (shared_ptr)
// and never added to again; whoever uses an encoder across an exchange with the camera holds the generation.
class CEncoderConfig {
 public:
  CEncoder* AddEncoder(const CONVIFMsg* configuration);  // at the tail; stays owned by the list
  void RemoveAll() { m_Encoders.RemoveAll(); }

  CEncoder* Encoders() const { return m_Encoders.Head(); }  // walk with Next()
  CEncoder* EncoderByToken(const CGXString& token) const;   // the first one; null when none

  void WriteTo(CGXMSG* msg) const;  // the number of encoders, then each

 private:
  COwnedList<CEncoder> m_Encoders;
};
