// One SOAP request to a camera's service, and what a refusal says.
#pragma once

#include "onvif/login_header.h"
#include "onvif/onvif_msg.h"

#include <memory>

class CSOAPRequest {
 public:
  // The login becomes the request's own; null: none.
  CSOAPRequest(CGXString url, CGXString operation, CGXString ns, CONVIFLoginHeader* login);

  const CGXString& Operation() const { return m_Operation; }
  CONVIFMsg* Envelope() const { return m_pEnvelope.get(); }
  CONVIFMsg* Body() const { return m_pBody; }
  CONVIFMsg* Element();  // the operation's in the body, in its namespace by default; made by the first call

  // The answer, a fault included; null when no XML came back. `timeout` in ms, 0: the host's default.
  std::unique_ptr<CONVIFMsg> Send(int timeout = 0) { return SendAs(m_Operation, m_Namespace, timeout); }
  std::unique_ptr<CONVIFMsg> SendAs(const CGXString& action, const CGXString& ns, int timeout = 0);

 private:
  CGXString m_URL, m_Operation, m_Namespace;
  std::unique_ptr<CONVIFEnvelope> m_pEnvelope;
  CONVIFMsg* m_pBody;
  CONVIFMsg* m_pElement = nullptr;
};

// What a camera says when it refuses a request (SOAP 1.2 part 1, 5.4).
struct CSOAPFault {
  CGXString Text;        // fit for a log; empty: the answer is no fault
  bool OfLogin = false;  // user name, password or time of the login (ONVIF Core 5.12.2, WS-Security 12)

  static CSOAPFault Of(const CONVIFMsg* answer);  // null: none
};
