#include "sim/auth.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <map>

namespace {

constexpr size_t REMEMBERED_NONCES = 4096;
constexpr char REALM[] = "camera";

std::string Digest(const EVP_MD* kind, const std::string& data) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned length = 0;
  EVP_Digest(data.data(), data.size(), out, &length, kind, nullptr);
  return {reinterpret_cast<const char*>(out), length};
}

std::string Md5Hex(const std::string& data) {
  std::string hex;
  for (const char byte : Digest(EVP_md5(), data)) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(byte));
    hex += two;
  }
  return hex;
}

// "2026-11-22T20:15:30Z", with or without a fraction.
bool ParseUtc(const std::string& text, std::chrono::system_clock::time_point* out) {
  std::tm tm{};
  const char* rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &tm);
  if (rest == nullptr) return false;
  if (*rest == '.')
    for (++rest; std::isdigit(static_cast<unsigned char>(*rest));) ++rest;
  if (std::string(rest) != "Z") return false;
  *out = std::chrono::system_clock::from_time_t(timegm(&tm));
  return true;
}

// Splits `a="x", b=y` into its pairs.
std::map<std::string, std::string> Parameters(const std::string& text) {
  std::map<std::string, std::string> all;
  for (size_t at = 0; at < text.size();) {
    const size_t equal = text.find('=', at);
    if (equal == std::string::npos) break;
    const size_t start = text.find_first_not_of(" ,", at);
    if (start > equal) break;
    const bool quoted = equal + 1 < text.size() && text[equal + 1] == '"';
    const size_t from = equal + (quoted ? 2 : 1);
    const size_t to = std::min(text.find(quoted ? '"' : ',', from), text.size());
    all[text.substr(start, equal - start)] = text.substr(from, to - from);
    at = to + 1;
  }
  return all;
}

EAuth CheckDigest(const std::string& text, const std::string& method, const std::string& user,
                  const std::string& password, const std::string& nonce) {
  auto p = Parameters(text);
  const std::string ha1 = Md5Hex(user + ":" + REALM + ":" + password);
  const std::string ha2 = Md5Hex(method + ":" + p["uri"]);
  const std::string middle =
      p["qop"].empty() ? p["nonce"] : p["nonce"] + ":" + p["nc"] + ":" + p["cnonce"] + ":" + p["qop"];
  const bool good =
      p["username"] == user && p["nonce"] == nonce && p["response"] == Md5Hex(ha1 + ":" + middle + ":" + ha2);
  return good ? EAuth::OK : EAuth::WRONG;
}

}  // namespace

EAuth CTokenChecker::Check(const pugi::xml_node& header, const std::string& user, const std::string& password,
                           std::chrono::system_clock::time_point clock, std::chrono::seconds tolerance,
                           bool once) {
  const pugi::xml_node token = Child(header, "Security/UsernameToken");
  if (!token) return EAuth::MISSING;
  const std::string created = Text(token, "Created");
  std::string nonce;
  std::chrono::system_clock::time_point at;
  if (Text(token, "Username") != user || !Base64Decode(Text(token, "Nonce"), &nonce)) return EAuth::WRONG;
  if (!ParseUtc(created, &at) || std::chrono::abs(at - clock) > tolerance) return EAuth::WRONG;
  const std::string expected = Base64Encode(Digest(EVP_sha1(), nonce + created + password));
  if (Text(token, "Password") != expected) return EAuth::WRONG;
  return FirstUse(nonce + created) || !once ? EAuth::OK : EAuth::WRONG;
}

bool CTokenChecker::FirstUse(const std::string& key) {
  const std::lock_guard guard(m_Lock);
  if (std::find(m_Used.begin(), m_Used.end(), key) != m_Used.end()) return false;
  m_Used.push_back(key);
  if (m_Used.size() > REMEMBERED_NONCES) m_Used.pop_front();
  return true;
}

EAuth CheckHTTPAuth(const std::string& authorization, const std::string& method, const std::string& user,
                    const std::string& password, const std::string& nonce) {
  if (authorization.empty()) return EAuth::MISSING;
  if (authorization.starts_with("Basic ")) {
    std::string pair;
    const bool good = Base64Decode(authorization.substr(6), &pair) && pair == user + ":" + password;
    return good ? EAuth::OK : EAuth::WRONG;
  }
  if (authorization.starts_with("Digest "))
    return CheckDigest(authorization.substr(7), method, user, password, nonce);
  return EAuth::WRONG;
}

std::string HTTPChallenges(const std::string& nonce) {
  return std::string("WWW-Authenticate: Digest realm=\"") + REALM + "\", qop=\"auth\", nonce=\"" + nonce +
         "\"\r\nWWW-Authenticate: Basic realm=\"" + REALM + "\"\r\n";
}

std::string Base64Encode(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<size_t>(length));
  return text;
}

bool Base64Decode(const std::string& text, std::string* bytes) {
  bytes->assign(text.size() / 4 * 3 + 3, '\0');
  const int length =
      EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes->data()),
                      reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  if (length < 0) return false;
  const size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
  bytes->resize(static_cast<size_t>(length) - std::min(padding, static_cast<size_t>(length)));
  return true;
}
