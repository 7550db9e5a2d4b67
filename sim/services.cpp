#include "sim/services.h"

#include <ctime>
#include <string_view>

namespace {

const CService* FindService(const CCameraModel& model, const std::string& uri) {
  for (const CService* service : {&DeviceService(), &MediaService(), &EventService()})
    if (uri == service->uri) return service;
  if (uri == ns::kPtz && model.identity.kind == "ptz") return &PtzService();
  // Subscriptions are asked for in the WS-BaseNotification namespace.
  return uri == ns::kNotify ? &EventService() : nullptr;
}

const COperation* FindOperation(const CService& service, const std::string& name) {
  for (const COperation& operation : service.operations)
    if (name == operation.name) return &operation;
  return nullptr;
}

}  // namespace

std::string UtcText(std::chrono::system_clock::time_point at) {
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

AuthResult CSoapServer::Authorise(const CSoapRequest& request, const std::string& authorization,
                                  const std::string& nonce) {
  const auto tolerance = std::chrono::seconds(m_model.quirks.clockTolerance);
  const AuthResult token = m_tokens.Check(request.Header(), m_model.user, m_model.password, m_model.Clock(),
                                          tolerance, m_model.quirks.rejectReplay);
  if (token != AuthResult::missing) return token;
  return CheckHttpAuth(authorization, "POST", m_model.user, m_model.password, nonce);
}

bool CSoapServer::NeedsLogin(const COperation& operation) const {
  if (std::string_view(operation.name) == "GetDeviceInformation") return m_model.quirks.authDeviceInfo;
  return !operation.preAuth;
}

CSoapAnswer CSoapServer::Fail(CSoapReply& reply, const std::string& operation, const CFault& fault) {
  m_model.Note(operation, fault.subcode);
  reply.SetFault(fault);
  return {fault.httpStatus, reply.ToString(m_model.quirks.xmlEmpty)};
}

CSoapAnswer CSoapServer::Handle(const std::string& path, const std::string& text,
                                const std::string& authorization, const std::string& nonce,
                                std::vector<std::string>* changedProfiles) {
  CSoapReply reply(m_model.identity.soapPrefix);
  CSoapRequest request;
  const std::lock_guard guard(m_model.lock);
  if (!request.Parse(text))
    return Fail(reply, "?", {400, "Sender", "ter:WellFormed", nullptr, "Not well formed"});
  const std::string name = request.Name();
  const CService* service = FindService(m_model, request.Namespace());
  const COperation* operation = service == nullptr ? nullptr : FindOperation(*service, name);
  if (operation == nullptr) return Fail(reply, name, NotSupported("Operation not implemented: " + name));
  if (NeedsLogin(*operation)) {
    const AuthResult login = Authorise(request, authorization, nonce);
    if (login != AuthResult::ok) {
      ++m_model.authFailures;
      const int status = login == AuthResult::missing ? 401 : 400;
      CSoapAnswer answer =
          Fail(reply, name, {status, "Sender", "ter:NotAuthorized", nullptr, "Sender not authorized"});
      if (m_model.quirks.bare401) answer = {401, ""};
      return answer;
    }
  }
  const std::string response = std::string(service->prefix) + ":" + name + "Response";
  CCall call{m_model, request.Operation(), Add(reply.Body(), response.c_str()), reply, path, {}};
  if (const COutcome fault = operation->run(call)) return Fail(reply, name, *fault);
  *changedProfiles = call.changedProfiles;
  m_model.Note(name, "ok");
  return {200, reply.ToString(m_model.quirks.xmlEmpty)};
}
