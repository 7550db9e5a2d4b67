#include "onvif/soap_request.h"

#include "onvif/onvif.h"
#include "util/plain_text.h"

namespace {

constexpr size_t MOST_FAULT_BYTES = 200;  // a camera's own words in one line

}  // namespace

CSOAPRequest::CSOAPRequest(CGXString url, CGXString operation, CGXString ns, CONVIFLoginHeader* login)
    : m_URL(std::move(url)),
      m_Operation(std::move(operation)),
      m_Namespace(std::move(ns)),
      m_pEnvelope(std::make_unique<CONVIFEnvelope>()) {
  if (login != nullptr) m_pEnvelope->AppendMSG(login);
  m_pBody = m_pEnvelope->AddBody();
}

CONVIFMsg* CSOAPRequest::Element() {
  if (m_pElement == nullptr) m_pElement = m_pBody->AddMSG_XMLNS(m_Operation, m_Namespace);
  return m_pElement;
}

std::unique_ptr<CONVIFMsg> CSOAPRequest::SendAs(const CGXString& action, const CGXString& ns, int timeout) {
  if (m_pBody->Messages() == nullptr) Element();
  return std::unique_ptr<CONVIFMsg>(CONVIF::DoQuery_HTTP(m_URL, action, ns, m_pEnvelope.get(), timeout));
}

CSOAPFault CSOAPFault::Of(const CONVIFMsg* answer) {
  const CONVIFMsg* const body = answer != nullptr ? answer->FindSubMSG("Body") : nullptr;
  const CONVIFMsg* const fault = body != nullptr ? body->FindSubMSG("Fault") : nullptr;
  if (fault == nullptr) return {};
  const CONVIFMsg* const subcode = fault->FindSubMSG("Subcode");
  const CGXString code = (subcode != nullptr ? subcode : fault)->FindSubMSGValue("Value", 0);
  const CGXString reason = fault->FindSubMSGValue("Text", 0);
  CSOAPFault result;
  result.Text = PlainText(reason.IsEmpty() ? code.Str() : reason.Str(), MOST_FAULT_BYTES);
  if (result.Text.IsEmpty()) result.Text = "a fault without words";
  result.OfLogin = code.Find("NotAuthorized") >= 0 || code.Find("FailedAuthentication") >= 0;
  return result;
}
