#include "sim/camera.h"

#include <nlohmann/json.hpp>
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

CCamera::CCamera(const CIdentity& identity, const std::string& address, int httpPort, int rtspPort,
                 CRtspLoop& loop)
    : m_model(identity, address, httpPort, rtspPort),
      m_soap(m_model),
      m_nonce(RandomNonce()),
      m_http([this](const CHttpRequest& request) { return Answer(request); }, [this] { return Manner(); }),
      m_rtsp(m_model, loop),
      m_notifier(m_model) {
  FillKind(m_model);
  m_model.powered = false;
  if (identity.kind == "door") m_door = std::make_unique<CDoorStation>(m_model);
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
  if (!m_rtsp.Start(error)) return m_http.Stop(), false;
  if (m_door && !m_door->Start(error)) return m_rtsp.Stop(), m_http.Stop(), false;
  m_notifier.Start();
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
  m_notifier.Stop();
  if (m_door) m_door->Stop();
  m_rtsp.Stop();
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
  if (request.method == "GET" && request.path.starts_with("/snapshot.jpg?")) return AnswerSnapshot(request);
  return {404, "text/plain", "", "no such page\n"};
}

CHttpReply CCamera::AnswerSnapshot(const CHttpRequest& request) {
  CVideoEncoder encoder;
  const std::string token = request.path.substr(request.path.rfind('=') + 1);
  {
    const std::lock_guard guard(m_model.lock);
    const std::string authorization = request.Header("authorization");
    const AuthResult login = CheckHttpAuth(authorization, "GET", m_model.user, m_model.password, m_nonce);
    if (login != AuthResult::ok) {
      ++m_model.authFailures;
      m_model.Note("snapshot", "unauthorized");
      return {401, "text/plain", HttpChallenges(m_nonce), "unauthorized\n"};
    }
    const CSimProfile* profile = m_model.ProfileByToken(token);
    const bool offered = profile != nullptr && !m_model.quirks.noSnapshot;
    m_model.Note("snapshot", offered ? "ok" : "not found");
    if (!offered) return {404, "text/plain", "", "no such picture\n"};
    encoder = *m_model.EncoderByToken(profile->videoEncoder);
  }
  return {200, "image/jpeg", "", EncodeJpeg(TakePicture(m_model, token, encoder), encoder.quality)};
}

nlohmann::json CCamera::State() {
  m_rtsp.CountSessions();
  const nlohmann::json door = m_door ? m_door->ToJson() : nlohmann::json();
  const std::lock_guard guard(m_model.lock);
  nlohmann::json state = m_model.ToJson();
  if (m_door) state["door"] = door;
  return state;
}

CHttpReply CCamera::AnswerSoap(const CHttpRequest& request) {
  std::vector<std::string> changedProfiles;
  CSoapAnswer answer =
      m_soap.Handle(request.path, request.body, request.Header("authorization"), m_nonce, &changedProfiles);
  for (const std::string& token : changedProfiles) m_rtsp.Restart(token);
  const std::string extra = answer.status == 401 ? HttpChallenges(m_nonce) : "";
  return {answer.status, "application/soap+xml; charset=utf-8", extra, std::move(answer.body)};
}
