#pragma once
// SOAP 1.2 in and out: one request read, one answer written, with prefixes and empty forms as makers use them.
#include <optional>
#include <pugixml.hpp>
#include <string>

// The namespaces that the services answer to.
namespace ns {
inline constexpr char kEnvelope[] = "http://www.w3.org/2003/05/soap-envelope";
inline constexpr char kDevice[] = "http://www.onvif.org/ver10/device/wsdl";
inline constexpr char kMedia[] = "http://www.onvif.org/ver10/media/wsdl";
inline constexpr char kPtz[] = "http://www.onvif.org/ver20/ptz/wsdl";
inline constexpr char kEvents[] = "http://www.onvif.org/ver10/events/wsdl";
inline constexpr char kSchema[] = "http://www.onvif.org/ver10/schema";
inline constexpr char kError[] = "http://www.onvif.org/ver10/error";
inline constexpr char kNotify[] = "http://docs.oasis-open.org/wsn/b-2";
inline constexpr char kAddressing[] = "http://www.w3.org/2005/08/addressing";
inline constexpr char kWsdAddressing[] = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
inline constexpr char kWsdDiscovery[] = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
inline constexpr char kNetwork[] = "http://www.onvif.org/ver10/network/wsdl";
}  // namespace ns

// Element names without their prefix, and the namespace that the prefix stands for where the node is.
std::string LocalName(const pugi::xml_node& node);
std::string NamespaceOf(const pugi::xml_node& node);
// First child by local name, by a path of local names ("Configuration/H264"), and its trimmed text ("" when
// missing).
pugi::xml_node Child(const pugi::xml_node& parent, const std::string& path);
std::string Text(const pugi::xml_node& parent, const std::string& path);

// One received envelope. Points into its own document.
class CSoapRequest {
 public:
  bool Parse(const std::string& text);  // false: not an envelope with one operation in its body

  const pugi::xml_node& Header() const { return m_header; }
  const pugi::xml_node& Operation() const { return m_operation; }
  std::string Name() const { return LocalName(m_operation); }
  std::string Namespace() const { return NamespaceOf(m_operation); }
  std::string MessageId() const { return Text(m_header, "MessageID"); }

 private:
  pugi::xml_document m_document;
  pugi::xml_node m_header, m_operation;
};

// Appends an element, with text when given, and returns it.
pugi::xml_node Add(pugi::xml_node parent, const char* name, const std::string& text = "");
pugi::xml_node Add(pugi::xml_node parent, const char* name, int number);
// Appends an attribute and returns the element.
pugi::xml_node Attr(pugi::xml_node element, const char* name, const std::string& value);

struct CFault {
  int httpStatus = 400;
  const char* code = "Sender";       // Sender or Receiver
  const char* subcode = "";          // ter:NotAuthorized ...
  const char* detailCode = nullptr;  // second level: ter:NoProfile ...
  std::string reason;
};

// One answer under construction.
class CSoapReply {
 public:
  explicit CSoapReply(const std::string& prefix);  // prefix of the envelope: "s", "SOAP-ENV"
  pugi::xml_node Body() { return m_body; }
  pugi::xml_node Header();  // made at the first call, in front of the body
  void SetFault(const CFault& fault);
  // The text; `empty` is the form of empty elements: "pair", "short" or "spaced".
  std::string ToString(const std::string& empty) const;

 private:
  std::string Prefixed(const char* name) const { return m_prefix + ":" + name; }

  std::string m_prefix;
  pugi::xml_document m_document;
  pugi::xml_node m_envelope, m_header, m_body;
};
