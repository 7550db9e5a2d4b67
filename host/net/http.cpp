#include "host/net/http.h"

#include "host/base/gxwait.h"
#include "host/net/http_answer.h"
#include "host/net/socket.h"
#include "util/base64.h"

#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <string_view>

namespace {

constexpr size_t RECEIVE_BYTES = 16 * 1024;
// The silence after which an answer that looks complete is taken as complete.
constexpr unsigned SETTLE_MS = 500;

std::string Base64(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  if (av_base64_encode(text.data(), static_cast<int>(text.size()),
                       reinterpret_cast<const unsigned char*>(bytes.data()),
                       static_cast<int>(bytes.size())) == nullptr)
    return {};
  text.pop_back();
  return text;
}

// A value that a device chose must not end its line.
std::string OneLine(const CGXString& value) {
  std::string line = value.Str();
  std::erase_if(line, [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
  return line;
}

class CExchangeSocket {
 public:
  CExchangeSocket() : m_iSocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}
  ~CExchangeSocket() { CloseSocket(m_iSocket); }
  CExchangeSocket(const CExchangeSocket&) = delete;
  CExchangeSocket& operator=(const CExchangeSocket&) = delete;

  bool Open(const CGXString& address, const char* bindAddress, unsigned short defaultPort,
            const CGXDeadline& deadline) {
    sockaddr_in server{};
    if (m_iSocket == -1 || !Bind(bindAddress)) return false;
    if (ResolveAddress(address, &server, defaultPort, Left(deadline)) == 0) return false;
    return ConnectSocket(m_iSocket, &server, Left(deadline)) == 0;
  }

  // A server may answer without having read everything, and close: what it said still counts.
  void Send(const std::string& request, const CGXDeadline& deadline) {
    SendSocket(m_iSocket, request.data(), static_cast<int>(request.size()), Left(deadline));
  }

  void Receive(CHTTPAnswer* answer, const CGXDeadline& deadline) {
    char bytes[RECEIVE_BYTES];
    auto progress = GXT_HTTP_PROGRESS::More;
    while (progress != GXT_HTTP_PROGRESS::Complete) {
      const unsigned wait =
          progress == GXT_HTTP_PROGRESS::Settled ? std::min(SETTLE_MS, Left(deadline)) : Left(deadline);
      if (wait == 0 || !WaitSocketReadState(m_iSocket, wait)) return;
      const ssize_t count = recv(m_iSocket, bytes, sizeof bytes, MSG_DONTWAIT);
      if (count <= 0) return;
      progress = answer->Feed({bytes, static_cast<size_t>(count)});
    }
  }

 private:
  static unsigned Left(const CGXDeadline& deadline) { return static_cast<unsigned>(deadline.Left()); }

  bool Bind(const char* bindAddress) {
    if (bindAddress == nullptr) return true;
    unsigned address = 0;
    unsigned short port = 0;
    if (!ParseIP(bindAddress, &address, &port)) return false;
    sockaddr_in own{};
    SetIP(address, &own);
    return bind(m_iSocket, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
  }

  const int m_iSocket;
};

// The character that `reference` (between & and ;) stands for; 0 when it is none that is known.
char32_t ReferencedCharacter(std::string_view reference) {
  constexpr std::pair<std::string_view, char32_t> NAMES[] = {
      {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
  for (const auto& [name, character] : NAMES)
    if (reference == name) return character;
  if (!reference.starts_with('#')) return 0;
  reference.remove_prefix(1);
  const bool hexadecimal = reference.starts_with('x');
  if (hexadecimal) reference.remove_prefix(1);
  unsigned number = 0;
  const char* end = reference.data() + reference.size();
  const auto result = std::from_chars(reference.data(), end, number, hexadecimal ? 16 : 10);
  const bool surrogate = number >= 0xD800 && number <= 0xDFFF;
  return result.ec == std::errc() && result.ptr == end && number <= 0x10FFFF && !surrogate ? number : 0;
}

}  // namespace

void CHTTPHeader::SetBasicAuthorization(CGXString user, CGXString password) {
  m_Authorization = user.IsEmpty() && password.IsEmpty()
                        ? CGXString()
                        : CGXString("Basic " + Base64(user.Str() + ":" + password.Str()));
}

CGXString CHTTPHeader::CreateString() const {
  std::string text = OneLine(m_Command) + " HTTP/1.1\r\n";
  const auto field = [&text](const char* name, const CGXString& value) {
    if (!value.IsEmpty()) text += name + (": " + OneLine(value)) + "\r\n";
  };
  field("Host", m_Host);
  field("Authorization", m_Authorization);
  field("User-Agent", m_UserAgent);
  field("Accept", m_Accept);
  field("Accept-Language", m_Language);
  field("Content-Type", m_ContentType);
  if (m_bHasContent) field("Content-Length", std::to_string(m_Content.GetLength()));
  field("Connection", m_Connection);
  return text + "\r\n" + m_Content.Str();
}

CHTMLPage::~CHTMLPage() = default;

CHTMLPage* DoHTTPExchange(CGXString address, CGXString request, const char* bindAddress, int /*flags*/,
                          unsigned short defaultPort, int timeout) {
  const CGXDeadline deadline(static_cast<unsigned>(timeout > 0 ? timeout : HTTP_DEFAULT_TIMEOUT_MS));
  CExchangeSocket connection;
  if (!connection.Open(address, bindAddress, defaultPort, deadline)) return nullptr;
  CHTTPAnswer answer(HTTP_MAX_ANSWER_BYTES);
  connection.Send(request.Str(), deadline);
  connection.Receive(&answer, deadline);
  std::string bytes = answer.Take();
  return bytes.empty() ? nullptr : new CHTMLPage(std::move(bytes));
}

CGXString UnformatHTTPString(const CGXString& text) {
  constexpr size_t LONGEST_REFERENCE = 12;
  const std::string_view rest = text.Str();
  std::string plain;
  for (size_t at = 0; at < rest.size(); ++at) {
    const size_t end = rest[at] == '&' ? rest.substr(at, LONGEST_REFERENCE).find(';') : std::string_view::npos;
    const char32_t character =
        end == std::string_view::npos ? 0 : ReferencedCharacter(rest.substr(at + 1, end - 1));
    if (character != 0) {
      AppendUTF8(&plain, character);
      at += end;
    } else {
      plain += rest[at];
    }
  }
  return CGXString(std::move(plain));
}
