#include "sim/services.h"

#include <ctime>
#include <string_view>

namespace {

const CService* FindService(const CCameraModel& model, const std::string& uri) {
  for (const CService* service : {&DeviceService(), &MediaService(), &EventService()})
    if (uri == service->URI) return service;
  if (uri == ns::PTZ && model.Identity.Kind == "ptz") return &PTZService();
  // Subscriptions are asked for in the WS-BaseNotification namespace.
  return uri == ns::NOTIFY ? &EventService() : nullptr;
}

const CSOAPOperation* FindOperation(const CService& service, const std::string& name) {
  for (const CSOAPOperation& operation : service.Operations)
    if (name == operation.Name) return &operation;
  return nullptr;
}

}  // namespace

std::string UTCText(std::chrono::system_clock::time_point at) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
  std::tm tm{};
  gmtime_r(&seconds, &tm);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return text;
}

CFault InvalidArgument(const char* detailCode, const std::string& reason) {
  return {400, "Sender", "ter:InvalidArgVal", detailCode, reason};
}

CFault NotSupported(const std::string& reason) {
  return {500, "Receiver", "ter:ActionNotSupported", nullptr, reason};
}

EAuth CSOAPServer::Authorise(const CSOAPRequest& request, const std::string& authorization,
                             const std::string& nonce) {
  const auto tolerance = std::chrono::seconds(m_Model.Quirks.ClockTolerance);
  const EAuth token = m_Tokens.Check(request.Header(), m_Model.User, m_Model.Password, m_Model.Clock(),
                                     tolerance, m_Model.Quirks.RejectReplay);
  if (token != EAuth::MISSING) return token;
  return CheckHTTPAuth(authorization, "POST", m_Model.User, m_Model.Password, nonce);
}

bool CSOAPServer::NeedsLogin(const CSOAPOperation& operation) const {
  if (std::string_view(operation.Name) == "GetDeviceInformation") return m_Model.Quirks.AuthDeviceInfo;
  return !operation.PreAuth;
}

CSOAPAnswer CSOAPServer::Fail(CSOAPReply& reply, const std::string& operation, const CFault& fault) {
  m_Model.Note(operation, fault.Subcode);
  reply.SetFault(fault);
  return {fault.HTTPStatus, reply.ToString(m_Model.Quirks.XMLEmpty)};
}

CSOAPAnswer CSOAPServer::Handle(const std::string& path, const std::string& text,
                                const std::string& authorization, const std::string& nonce,
                                std::vector<std::string>* changedProfiles) {
  CSOAPReply reply(m_Model.Identity.SOAPPrefix);
  CSOAPRequest request;
  const std::lock_guard guard(m_Model.Lock);
  if (!request.Parse(text))
    return Fail(reply, "?", {400, "Sender", "ter:WellFormed", nullptr, "Not well formed"});
  const std::string name = request.Name();
  const CService* service = FindService(m_Model, request.Namespace());
  const CSOAPOperation* operation = service == nullptr ? nullptr : FindOperation(*service, name);
  if (operation == nullptr) return Fail(reply, name, NotSupported("Operation not implemented: " + name));
  if (NeedsLogin(*operation)) {
    const EAuth login = Authorise(request, authorization, nonce);
    if (login != EAuth::OK) {
      ++m_Model.AuthFailures;
      const int status = login == EAuth::MISSING ? 401 : 400;
      CSOAPAnswer answer =
          Fail(reply, name, {status, "Sender", "ter:NotAuthorized", nullptr, "Sender not authorized"});
      if (m_Model.Quirks.Bare401) answer = {401, ""};
      return answer;
    }
  }
  const std::string response = std::string(service->Prefix) + ":" + name + "Response";
  CSOAPCall call{m_Model, request.Operation(), Add(reply.Body(), response.c_str()), reply, path, {}};
  if (const COutcome fault = operation->Run(call)) return Fail(reply, name, *fault);
  *changedProfiles = call.ChangedProfiles;
  m_Model.Note(name, "ok");
  return {200, reply.ToString(m_Model.Quirks.XMLEmpty)};
}
