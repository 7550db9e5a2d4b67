// The call that a door station places: whom it rings, and for how long.
#pragma once

#include "util/gxtimer.h"

#include <memory>

class CIntercomClient;
class CONVIFCam;

// Under the main-thread lock. Receivers stay their owners'; one that has left the intercom is not touched.
class COutboundCall {
 public:
  COutboundCall(CIntercomClient** receivers, int count, CONVIFCam* camera);  // copies the array
  virtual ~COutboundCall();
  COutboundCall(const COutboundCall&) = delete;
  COutboundCall& operator=(const COutboundCall&) = delete;

  CONVIFCam* Camera() const { return m_pCamera; }  // whose call it is
  int SecondsElapsed() const;                      // whole seconds since construction
  int NReceivers() const;                          // that have not dropped out

  void CallDeclined(CIntercomClient* receiver);  // it drops out; an unknown one is ignored, as with the next
  void Remove(CIntercomClient* receiver);        // it has accepted, and is not to be cancelled with the others
  void Cancel(CIntercomClient* caller);          // none of the others rings any more

 private:
  CONVIFCam* const m_pCamera;
  const std::unique_ptr<CIntercomClient*[]> m_pReceivers;  // null: has dropped out
  const int m_nReceivers;
  const CGXTimer m_Timer;
};
