// SOAP 1.2 in and out: one request read, one answer written, with prefixes and empty forms as makers use them.
#pragma once

#include <optional>
#include <pugixml.hpp>
#include <string>

// The namespaces that the services answer to.
namespace ns {
inline constexpr char ENVELOPE[] = "http://www.w3.org/2003/05/soap-envelope";
inline constexpr char DEVICE[] = "http://www.onvif.org/ver10/device/wsdl";
inline constexpr char MEDIA[] = "http://www.onvif.org/ver10/media/wsdl";
inline constexpr char PTZ[] = "http://www.onvif.org/ver20/ptz/wsdl";
inline constexpr char EVENTS[] = "http://www.onvif.org/ver10/events/wsdl";
inline constexpr char SCHEMA[] = "http://www.onvif.org/ver10/schema";
inline constexpr char ERROR[] = "http://www.onvif.org/ver10/error";
inline constexpr char NOTIFY[] = "http://docs.oasis-open.org/wsn/b-2";
inline constexpr char ADDRESSING[] = "http://www.w3.org/2005/08/addressing";
inline constexpr char WSD_ADDRESSING[] = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
inline constexpr char WSD_DISCOVERY[] = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
inline constexpr char NETWORK[] = "http://www.onvif.org/ver10/network/wsdl";
}  // namespace ns

// Element names without their prefix, and the namespace that the prefix stands for where the node is.
std::string LocalName(const pugi::xml_node& node);
std::string NamespaceOf(const pugi::xml_node& node);
// First child by local name, by a path of local names ("Configuration/H264"), and its trimmed text ("" when
// missing).
pugi::xml_node Child(const pugi::xml_node& parent, const std::string& path);
std::string Text(const pugi::xml_node& parent, const std::string& path);

// One received envelope. Points into its own document.
class CSOAPRequest {
 public:
  bool Parse(const std::string& text);  // false: not an envelope with one operation in its body

  const pugi::xml_node& Header() const { return m_Header; }
  const pugi::xml_node& Operation() const { return m_Operation; }
  std::string Name() const { return LocalName(m_Operation); }
  std::string Namespace() const { return NamespaceOf(m_Operation); }
  std::string MessageId() const { return Text(m_Header, "MessageID"); }

 private:
  pugi::xml_document m_Document;
  pugi::xml_node m_Header, m_Operation;
};

// Appends an element, with text when given, and returns it.
pugi::xml_node Add(pugi::xml_node parent, const char* name, const std::string& text = "");
pugi::xml_node Add(pugi::xml_node parent, const char* name, int number);
// Appends an attribute and returns the element.
pugi::xml_node Attr(pugi::xml_node element, const char* name, const std::string& value);

struct CFault {
  int HTTPStatus = 400;
  const char* Code = "Sender";       // Sender or Receiver
  const char* Subcode = "";          // ter:NotAuthorized ...
  const char* DetailCode = nullptr;  // second level: ter:NoProfile ...
  std::string Reason;
};

// One answer under construction.
class CSOAPReply {
 public:
  explicit CSOAPReply(const std::string& prefix);  // prefix of the envelope: "s", "SOAP-ENV"
  pugi::xml_node Body() { return m_Body; }
  pugi::xml_node Header();  // made at the first call, in front of the body
  void SetFault(const CFault& fault);
  // The text; `empty` is the form of empty elements: "pair", "short" or "spaced".
  std::string ToString(const std::string& empty) const;

 private:
  std::string Prefixed(const char* name) const { return m_Prefix + ":" + name; }

  std::string m_Prefix;
  pugi::xml_document m_Document;
  pugi::xml_node m_Envelope, m_Header, m_Body;
};
