#include "sim/camera.h"

#include <random>
#include <sstream>

namespace {

std::string RandomNonce() {
  std::random_device random;
  std::ostringstream text;
  for (int i = 0; i < 4; ++i) text << std::hex << random();
  return text.str();
}

}  // namespace

CCamera::CCamera(const CIdentity& identity, const std::string& address, int httpPort, int rtspPort)
    : m_model(identity, address, httpPort, rtspPort),
      m_soap(m_model),
      m_nonce(RandomNonce()),
      m_http([this](const CHttpRequest& request) { return Answer(request); }, [this] { return Manner(); }) {
  FillKind(m_model);
  m_model.powered = false;
}

CCamera::~CCamera() {
  PowerOff();
}

bool CCamera::PowerOn(std::string* error) {
  const std::lock_guard guard(m_powerLock);
  return PowerOnLocked(error);
}

void CCamera::PowerOff() {
  const std::lock_guard guard(m_powerLock);
  PowerOffLocked();
}

bool CCamera::Move(const std::string& address, std::string* error) {
  const std::lock_guard guard(m_powerLock);
  const bool wasOn = m_on;
  PowerOffLocked();
  {
    const std::lock_guard model(m_model.lock);
    m_model.address = address;
  }
  return !wasOn || PowerOnLocked(error);
}

bool CCamera::PowerOnLocked(std::string* error) {
  if (m_on) return true;
  if (!m_http.Start(m_model.address, m_model.httpPort, error)) return false;
  m_on = true;
  const std::lock_guard guard(m_model.lock);
  m_model.powered = true;
  return true;
}

void CCamera::PowerOffLocked() {
  if (!m_on) return;
  {
    const std::lock_guard guard(m_model.lock);
    m_model.powered = false;
    m_model.subscriptions.clear();
  }
  m_http.Stop();
  m_on = false;
}

CHttpManner CCamera::Manner() const {
  const std::lock_guard guard(m_model.lock);
  const CQuirks& q = m_model.quirks;
  return {q.http, q.httpKeepOpen, q.httpContinue, q.httpSegmentMs};
}

CHttpReply CCamera::Answer(const CHttpRequest& request) {
  if (request.method == "POST" && request.path.starts_with("/onvif/")) return AnswerSoap(request);
  return {404, "text/plain", "", "no such page\n"};
}

CHttpReply CCamera::AnswerSoap(const CHttpRequest& request) {
  std::vector<std::string> changedProfiles;
  CSoapAnswer answer = m_soap.Handle(request.body, request.Header("authorization"), m_nonce, &changedProfiles);
  const std::string extra = answer.status == 401 ? HttpChallenges(m_nonce) : "";
  return {answer.status, "application/soap+xml; charset=utf-8", extra, std::move(answer.body)};
}
