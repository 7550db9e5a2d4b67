// Readers of CProfile: copies, made under its lock.
#include "media/profile.h"

int CProfile::State() const {
  CGXLock lock(m_Lock);
  return m_iState;
}

void CProfile::State(int state) {
  CGXLock lock(m_Lock);
  m_iState = state;
  if ((state & STATE_DESCRIBED) == 0) ++m_nReloads;
}

unsigned CProfile::Reloads() const {
  CGXLock lock(m_Lock);
  return m_nReloads;
}

CGXString CProfile::Name() const {
  CGXLock lock(m_Lock);
  return m_Name;
}

CGXString CProfile::SnapshotUri() const {
  CGXLock lock(m_Lock);
  return m_SnapshotUri;
}

void CProfile::SnapshotUri(const CGXString& uri) {
  CGXLock lock(m_Lock);
  m_SnapshotUri = uri;
}

CGXString CProfile::StreamUri() const {
  CGXLock lock(m_Lock);
  return m_StreamUri;
}

CGXString CProfile::ContentBase() const {
  CGXLock lock(m_Lock);
  return m_Description.ContentBase();
}

CGXString CProfile::ControlURLVideo() const {
  CGXLock lock(m_Lock);
  return m_Description.ControlURLVideo();
}

CGXString CProfile::ControlURLAudio() const {
  CGXLock lock(m_Lock);
  return m_Description.ControlURLAudio();
}

int CProfile::VideoFormatTag() const {
  CGXLock lock(m_Lock);
  return m_Description.VideoFormatTag();
}

int CProfile::AudioFormatTag() const {
  CGXLock lock(m_Lock);
  return m_Description.AudioFormatTag();
}

std::vector<unsigned char> CProfile::StartupData() const {
  CGXLock lock(m_Lock);
  return m_Description.StartupData();
}

int CProfile::NStartupData() const {
  CGXLock lock(m_Lock);
  return static_cast<int>(m_Description.StartupData().size());
}

CGXString CProfile::VideoEncoderToken() const {
  CGXLock lock(m_Lock);
  return m_VideoEncoderToken;
}

CGXString CProfile::AudioEncoderToken() const {
  CGXLock lock(m_Lock);
  return m_AudioEncoderToken;
}

int CProfile::SampleRate() const {
  CGXLock lock(m_Lock);
  return m_iSampleRate;
}
