#include "camera/camera_identity.h"

CCameraIdentity::CNames CCameraIdentity::Names() const {
  const CGXLock lock(m_Lock);
  return m_Names;
}

void CCameraIdentity::Names(const CNames& names) {
  const CGXLock lock(m_Lock);
  m_Names = names;
}

void CCameraIdentity::Name(CGXString CNames::*name, const CGXString& value) {
  const CGXLock lock(m_Lock);
  m_Names.*name = value;
}

CGXString CCameraIdentity::ServiceURL() const {
  const CGXLock lock(m_Lock);
  return m_ServiceURL;
}

CGXString CCameraIdentity::PTZURL() const {
  const CGXLock lock(m_Lock);
  return m_PTZURL;
}

CGXString CCameraIdentity::MediaURL() const {
  const CGXLock lock(m_Lock);
  return m_MediaURL;
}

void CCameraIdentity::ServiceURL(const CGXString& url) {
  const CGXLock lock(m_Lock);
  m_ServiceURL = url;
}

void CCameraIdentity::PTZURL(const CGXString& url) {
  const CGXLock lock(m_Lock);
  m_PTZURL = url;
}

void CCameraIdentity::MediaURL(const CGXString& url) {
  const CGXLock lock(m_Lock);
  m_MediaURL = url;
}

void CCameraIdentity::MoveTo(const CGXString& serviceURL) {
  const CGXLock lock(m_Lock);
  m_ServiceURL = m_PTZURL = serviceURL;
}
