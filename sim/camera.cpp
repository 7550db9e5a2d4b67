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

CSimCamera::CSimCamera(const CSimIdentity& identity, const std::string& address, int httpPort, int rtspPort,
                       CRTSPLoop& loop)
    : m_Model(identity, address, httpPort, rtspPort),
      m_SOAP(m_Model),
      m_Nonce(RandomNonce()),
      m_HTTP([this](const CHTTPRequest& request) { return Answer(request); }, [this] { return Manner(); }),
      m_RTSP(m_Model, loop),
      m_Notifier(m_Model) {
  FillKind(m_Model);
  m_Model.Powered = false;
  if (identity.Kind == "door") m_PDoor = std::make_unique<CDoorStation>(m_Model);
}

CSimCamera::~CSimCamera() {
  PowerOff();
}

bool CSimCamera::PowerOn(std::string* error) {
  const std::lock_guard guard(m_PowerLock);
  return PowerOnLocked(error);
}

void CSimCamera::PowerOff() {
  const std::lock_guard guard(m_PowerLock);
  PowerOffLocked();
}

bool CSimCamera::Move(const std::string& address, std::string* error) {
  const std::lock_guard guard(m_PowerLock);
  const bool wasOn = m_BOn;
  PowerOffLocked();
  {
    const std::lock_guard model(m_Model.Lock);
    m_Model.Address = address;
  }
  return !wasOn || PowerOnLocked(error);
}

bool CSimCamera::PowerOnLocked(std::string* error) {
  if (m_BOn) return true;
  if (!m_HTTP.Start(m_Model.Address, m_Model.HTTPPort, error)) return false;
  if (!m_RTSP.Start(error)) return m_HTTP.Stop(), false;
  if (m_PDoor && !m_PDoor->Start(error)) return m_RTSP.Stop(), m_HTTP.Stop(), false;
  m_Notifier.Start();
  m_BOn = true;
  const std::lock_guard guard(m_Model.Lock);
  m_Model.Powered = true;
  return true;
}

void CSimCamera::PowerOffLocked() {
  if (!m_BOn) return;
  {
    const std::lock_guard guard(m_Model.Lock);
    m_Model.Powered = false;
    m_Model.Subscriptions.clear();
  }
  m_Notifier.Stop();
  if (m_PDoor) m_PDoor->Stop();
  m_RTSP.Stop();
  m_HTTP.Stop();
  m_BOn = false;
}

CHTTPManner CSimCamera::Manner() const {
  const std::lock_guard guard(m_Model.Lock);
  const CQuirks& q = m_Model.Quirks;
  return {q.HTTP, q.HTTPKeepOpen, q.HTTPContinue, q.HTTPSegmentMs};
}

CHTTPReply CSimCamera::Answer(const CHTTPRequest& request) {
  if (request.Method == "POST" && request.Path.starts_with("/onvif/")) return AnswerSOAP(request);
  if (request.Method == "GET" && request.Path.starts_with("/snapshot.jpg?")) return AnswerSnapshot(request);
  return {404, "text/plain", "", "no such page\n"};
}

CHTTPReply CSimCamera::AnswerSnapshot(const CHTTPRequest& request) {
  CVideoEncoder encoder;
  const std::string token = request.Path.substr(request.Path.rfind('=') + 1);
  {
    const std::lock_guard guard(m_Model.Lock);
    const std::string authorization = request.Header("authorization");
    const EAuth login = CheckHTTPAuth(authorization, "GET", m_Model.User, m_Model.Password, m_Nonce);
    if (login != EAuth::OK) {
      ++m_Model.AuthFailures;
      m_Model.Note("snapshot", "unauthorized");
      return {401, "text/plain", HTTPChallenges(m_Nonce), "unauthorized\n"};
    }
    const CSimProfile* profile = m_Model.ProfileByToken(token);
    const bool offered = profile != nullptr && !m_Model.Quirks.NoSnapshot;
    m_Model.Note("snapshot", offered ? "ok" : "not found");
    if (!offered) return {404, "text/plain", "", "no such picture\n"};
    encoder = *m_Model.EncoderByToken(profile->VideoEncoder);
  }
  return {200, "image/jpeg", "", EncodeJPEG(TakePicture(m_Model, token, encoder), encoder.Quality)};
}

nlohmann::json CSimCamera::State() {
  m_RTSP.CountSessions();
  const nlohmann::json door = m_PDoor ? m_PDoor->ToJSON() : nlohmann::json();
  const std::lock_guard guard(m_Model.Lock);
  nlohmann::json state = m_Model.ToJSON();
  if (m_PDoor) state["door"] = door;
  return state;
}

CHTTPReply CSimCamera::AnswerSOAP(const CHTTPRequest& request) {
  std::vector<std::string> changedProfiles;
  CSOAPAnswer answer =
      m_SOAP.Handle(request.Path, request.Body, request.Header("authorization"), m_Nonce, &changedProfiles);
  for (const std::string& token : changedProfiles) m_RTSP.Restart(token);
  const std::string extra = answer.Status == 401 ? HTTPChallenges(m_Nonce) : "";
  return {answer.Status, "application/soap+xml; charset=utf-8", extra, std::move(answer.Body)};
}
