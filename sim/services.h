// The camera's SOAP services as tables of operations, and the server that finds, authorises and runs one.
#pragma once

#include "sim/auth.h"
#include "sim/model.h"
#include "sim/soap.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

// One operation under way. Handlers run with the model's lock held.
struct CSOAPCall {
  CCameraModel& Model;
  const pugi::xml_node In;  // the operation's element in the request
  pugi::xml_node Out;       // the ...Response element
  CSOAPReply& Reply;
  const std::string& Path;                   // that the request was posted to
  std::vector<std::string> ChangedProfiles;  // tokens of profiles whose stream must start anew
};

using COutcome = std::optional<CFault>;  // nothing: success

struct CSOAPOperation {
  const char* Name;
  bool PreAuth;  // ONVIF access class PRE_AUTH: no login needed
  COutcome (*Run)(CSOAPCall&);
};

struct CService {
  const char *URI, *Prefix;
  std::span<const CSOAPOperation> Operations;
};

const CService& DeviceService();
const CService& MediaService();
const CService& PTZService();
const CService& EventService();

// The PTZ configuration of a camera that can move, as profiles and the PTZ service show it.
void AddPTZConfiguration(const CCameraModel& model, pugi::xml_node parent, const char* name);

// "2026-11-22T20:15:30Z"
std::string UTCText(std::chrono::system_clock::time_point at);

// Faults that several services give.
CFault InvalidArgument(const char* detailCode, const std::string& reason);
CFault NotSupported(const std::string& reason);

struct CSOAPAnswer {
  int Status = 200;
  std::string Body;
};

class CSOAPServer {
 public:
  explicit CSOAPServer(CCameraModel& model) : m_Model(model) {}

  // Runs one request that was posted to `path`. `authorization` is the HTTP header of that name ("" when
  // missing), `nonce` the one of our HTTP challenges. Tokens of profiles whose stream must start anew come back
  // in `changedProfiles`.
  CSOAPAnswer Handle(const std::string& path, const std::string& text, const std::string& authorization,
                     const std::string& nonce, std::vector<std::string>* changedProfiles);

 private:
  EAuth Authorise(const CSOAPRequest& request, const std::string& authorization, const std::string& nonce);
  bool NeedsLogin(const CSOAPOperation& operation) const;
  CSOAPAnswer Fail(CSOAPReply& reply, const std::string& operation, const CFault& fault);

  CCameraModel& m_Model;
  CTokenChecker m_Tokens;
};
