// Who may: WS-Security UsernameToken digests, HTTP Basic and HTTP Digest.
#pragma once

#include "sim/soap.h"

#include <chrono>
#include <deque>
#include <mutex>
#include <string>

enum class EAuth { MISSING, WRONG, OK };

// Logins by UsernameToken at a camera's clock.
class CTokenChecker {
 public:
  // `clock` is the camera's; a Created more than `tolerance` away from it is refused. With `once`, so is a
  // token that was used before (not the default of cameras: some clients make a new nonce only once a second).
  EAuth Check(const pugi::xml_node& header, const std::string& user, const std::string& password,
              std::chrono::system_clock::time_point clock, std::chrono::seconds tolerance, bool once);

 private:
  bool FirstUse(const std::string& key);

  std::mutex m_Lock;
  std::deque<std::string> m_Used;
};

// Checks an Authorization header value (Basic, or Digest as RFC 2617 has it, with qop=auth or without).
EAuth CheckHTTPAuth(const std::string& authorization, const std::string& method, const std::string& user,
                    const std::string& password, const std::string& nonce);
// The challenges of a 401: WWW-Authenticate header lines.
std::string HTTPChallenges(const std::string& nonce);

std::string Base64Encode(const std::string& bytes);
bool Base64Decode(const std::string& text, std::string* bytes);
