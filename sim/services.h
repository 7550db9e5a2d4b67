#pragma once
// The camera's SOAP services as tables of operations, and the server that finds, authorises and runs one.
#include "sim/auth.h"
#include "sim/model.h"
#include "sim/soap.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

// One operation under way. Handlers run with the model's lock held.
struct CCall {
  CCameraModel& model;
  const pugi::xml_node in;  // the operation's element in the request
  pugi::xml_node out;       // the ...Response element
  CSoapReply& reply;
  const std::string& path;                   // that the request was posted to
  std::vector<std::string> changedProfiles;  // tokens of profiles whose stream must start anew
};

using COutcome = std::optional<CFault>;  // nothing: success

struct COperation {
  const char* name;
  bool preAuth;  // ONVIF access class PRE_AUTH: no login needed
  COutcome (*run)(CCall&);
};

struct CService {
  const char *uri, *prefix;
  std::span<const COperation> operations;
};

const CService& DeviceService();
const CService& MediaService();
const CService& PtzService();
const CService& EventService();

// The PTZ configuration of a camera that can move, as profiles and the PTZ service show it.
void AddPtzConfiguration(const CCameraModel& model, pugi::xml_node parent, const char* name);

// "2026-11-22T20:15:30Z"
std::string UtcText(std::chrono::system_clock::time_point at);

// Faults that several services give.
CFault InvalidArgument(const char* detailCode, const std::string& reason);
CFault NotSupported(const std::string& reason);

struct CSoapAnswer {
  int status = 200;
  std::string body;
};

class CSoapServer {
 public:
  explicit CSoapServer(CCameraModel& model) : m_model(model) {}

  // Runs one request that was posted to `path`. `authorization` is the HTTP header of that name ("" when
  // missing), `nonce` the one of our HTTP challenges. Tokens of profiles whose stream must start anew come back
  // in `changedProfiles`.
  CSoapAnswer Handle(const std::string& path, const std::string& text, const std::string& authorization,
                     const std::string& nonce, std::vector<std::string>* changedProfiles);

 private:
  AuthResult Authorise(const CSoapRequest& request, const std::string& authorization, const std::string& nonce);
  bool NeedsLogin(const COperation& operation) const;
  CSoapAnswer Fail(CSoapReply& reply, const std::string& operation, const CFault& fault);

  CCameraModel& m_model;
  CTokenChecker m_tokens;
};
