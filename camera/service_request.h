// One logged-in request of a proc to a service of its camera.
#pragma once

#include "camera/ONVIFCam.h"
#include "onvif/login_header.h"
#include "onvif/onvif.h"

#include <memory>

// Queue thread.
class CServiceRequest {
 public:
  CServiceRequest(CONVIFCam* camera, CGXString url, const char* operation, const char* ns)
      : m_URL(std::move(url)),
        m_pOperation(operation),
        m_pNamespace(ns),
        m_pEnvelope(std::make_unique<CONVIFEnvelope>()) {
    m_pEnvelope->AppendMSG(camera->CreateLoginHeader());
    m_pBody = m_pEnvelope->AddBody()->AddMSG_XMLNS(operation, ns);
  }
  const char* Operation() const { return m_pOperation; }
  CONVIFMsg* Body() const { return m_pBody; }  // the operation's element, to be filled before Send
  // The answer, a fault included; null when no XML came back.
  std::unique_ptr<CONVIFMsg> Send() const {
    return std::unique_ptr<CONVIFMsg>(CONVIF::DoQuery_HTTP(m_URL, m_pOperation, m_pNamespace, m_pEnvelope.get(),
                                                           CONVIFCam::QUERY_TIMEOUT_MS));
  }

 private:
  CGXString m_URL;
  const char* m_pOperation;
  const char* m_pNamespace;
  std::unique_ptr<CONVIFEnvelope> m_pEnvelope;
  CONVIFMsg* m_pBody;
};
