// Which camera it is, and where its services are.
#pragma once

#include "host/base/gxlock.h"
#include "host/base/gxstring.h"

// Written by the record, the tools and the connection thread, read by everybody: any thread, copies.
class CCameraIdentity {
 public:
  struct CNames {
    CGXString Manufacturer, Model, Firmware, SerialNo, HardwareID;
  };

  explicit CCameraIdentity(const CGXString& serviceURL) : m_ServiceURL(serviceURL) {}

  CNames Names() const;
  void Names(const CNames& names);
  void Name(CGXString CNames::*name, const CGXString& value);
  CGXString ServiceURL() const;
  CGXString PTZURL() const;
  CGXString MediaURL() const;
  void ServiceURL(const CGXString& url);
  void PTZURL(const CGXString& url);
  void MediaURL(const CGXString& url);
  // To another address: moves are sent there too until the camera names a service for them.
  void MoveTo(const CGXString& serviceURL);

 private:
  mutable CGXCritical m_Lock;
  CNames m_Names GUARDED_BY(m_Lock);
  CGXString m_ServiceURL GUARDED_BY(m_Lock), m_PTZURL GUARDED_BY(m_Lock), m_MediaURL GUARDED_BY(m_Lock);
};
