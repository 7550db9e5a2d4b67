#include "sim/sip_message.h"

#include <strings.h>

#include <cctype>
#include <cstdlib>
#include <sstream>

namespace {

constexpr std::pair<char, const char*> COMPACT_NAMES[] = {
    {'v', "Via"},     {'f', "From"},        {'t', "To"}, {'i', "Call-ID"}, {'l', "Content-Length"},
    {'m', "Contact"}, {'c', "Content-Type"}};

bool Same(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

std::string Trim(const std::string& text) {
  const size_t from = text.find_first_not_of(" \t\r");
  return from == std::string::npos ? "" : text.substr(from, text.find_last_not_of(" \t\r") - from + 1);
}

std::string LongName(const std::string& name) {
  if (name.size() == 1)
    for (const auto& [letter, full] : COMPACT_NAMES)
      if (std::tolower(static_cast<unsigned char>(name[0])) == letter) return full;
  return name;
}

bool ParseFirstLine(const std::string& line, CSIPText* message) {
  std::istringstream words(line);
  std::string first, second, third;
  if (!(words >> first >> second)) return false;
  if (first == "SIP/2.0") {
    message->Status = std::atoi(second.c_str());
    std::getline(words >> std::ws, message->Reason, '\r');
    return message->Status >= 100 && message->Status <= 699;
  }
  message->Method = first;
  message->URI = second;
  return words >> third && third == "SIP/2.0";
}

}  // namespace

std::string CSIPText::Header(const std::string& name) const {
  for (const auto& [key, value] : Headers)
    if (Same(key, name)) return value;
  return "";
}

std::string CSIPText::ToString() const {
  std::string text = Status != 0 ? "SIP/2.0 " + std::to_string(Status) + " " + Reason + "\r\n"
                                 : Method + " " + URI + " SIP/2.0\r\n";
  for (const auto& [key, value] : Headers) text.append(key).append(": ").append(value).append("\r\n");
  return text + "Content-Length: " + std::to_string(Body.size()) + "\r\n\r\n" + Body;
}

std::pair<long, std::string> CSIPText::CSeq() const {
  std::istringstream words(Header("CSeq"));
  long number = -1;
  std::string of;
  return words >> number >> of ? std::pair(number, of) : std::pair(-1L, std::string());
}

bool ParseSip(const std::string& bytes, CSIPText* message) {
  *message = {};
  const size_t end = bytes.find("\r\n\r\n");
  if (end == std::string::npos) return false;
  std::istringstream lines(bytes.substr(0, end));
  std::string line;
  std::getline(lines, line);
  if (!ParseFirstLine(line, message)) return false;
  while (std::getline(lines, line)) {
    const size_t colon = line.find(':');
    if (colon != std::string::npos && line[0] != ' ' && line[0] != '\t') {
      message->Add(LongName(Trim(line.substr(0, colon))), Trim(line.substr(colon + 1)));
    } else if (!message->Headers.empty()) {
      message->Headers.back().second += " " + Trim(line);  // a folded line
    }
  }
  message->Body = bytes.substr(end + 4);
  const std::string length = message->Header("Content-Length");
  if (length.empty()) return true;
  const size_t announced = std::strtoul(length.c_str(), nullptr, 10);
  if (announced > message->Body.size()) return false;
  message->Body.resize(announced);
  return true;
}

std::string SipParameter(const std::string& value, const std::string& name) {
  const size_t close = value.find('>');
  std::istringstream parts(value.substr(close == std::string::npos ? 0 : close));
  std::string part;
  std::getline(parts, part, ';');
  while (std::getline(parts, part, ';')) {
    const size_t equal = part.find('=');
    if (equal != std::string::npos && Same(Trim(part.substr(0, equal)), name))
      return Trim(part.substr(equal + 1));
  }
  return "";
}

std::string SipAddress(const std::string& value) {
  const size_t open = value.find('<'), close = value.find('>');
  if (open != std::string::npos && close != std::string::npos && close > open)
    return value.substr(open + 1, close - open - 1);
  return Trim(value.substr(0, value.find(';')));
}

bool OffersPcmu(const std::string& sdp) {
  std::istringstream lines(sdp);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("m=audio ")) continue;
    std::istringstream words(line);
    std::string media, port, protocol;
    words >> media >> port >> protocol;
    for (std::string format; words >> format;)
      if (format == "0" && protocol == "RTP/AVP") return true;
  }
  return false;
}
