// SIP messages (RFC 3261 7) as bytes and back.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct CSIPText {
  std::string Method, URI;  // of a request
  int Status = 0;           // of a response; 0: this is a request
  std::string Reason;
  std::vector<std::pair<std::string, std::string>> Headers;  // long names, in their order
  std::string Body;

  // The first header of that name (any case; compact names in the message count as long ones), or "".
  std::string Header(const std::string& name) const;
  void Add(const std::string& name, const std::string& value) { Headers.emplace_back(name, value); }
  // With the Content-Length that the body has.
  std::string ToString() const;
  // Number and method of CSeq; {-1, ""} when there is none.
  std::pair<long, std::string> CSeq() const;
};

// Reads one datagram. False when it is no SIP message or is shorter than it says.
bool ParseSip(const std::string& bytes, CSIPText* message);

// The parameter of a header value outside <...> (";tag=x" gives "x"), or "".
std::string SipParameter(const std::string& value, const std::string& name);
// What stands in <...> of a header value, or the value up to its parameters.
std::string SipAddress(const std::string& value);
// Whether a session description has audio in PCMU.
bool OffersPcmu(const std::string& sdp);
