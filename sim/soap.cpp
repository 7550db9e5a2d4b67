#include "sim/soap.h"

#include <sstream>

namespace {

std::string Trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t\r\n") - begin + 1);
}

pugi::xml_node FirstElement(const pugi::xml_node& parent) {
  for (const pugi::xml_node& node : parent.children())
    if (node.type() == pugi::node_element) return node;
  return {};
}

pugi::xml_node DirectChild(const pugi::xml_node& parent, const std::string& name) {
  for (const pugi::xml_node& node : parent.children())
    if (node.type() == pugi::node_element && LocalName(node) == name) return node;
  return {};
}

}  // namespace

std::string LocalName(const pugi::xml_node& node) {
  const std::string name = node.name();
  const size_t colon = name.find(':');
  return colon == std::string::npos ? name : name.substr(colon + 1);
}

std::string NamespaceOf(const pugi::xml_node& node) {
  const std::string name = node.name();
  const size_t colon = name.find(':');
  const std::string key = colon == std::string::npos ? "xmlns" : "xmlns:" + name.substr(0, colon);
  for (pugi::xml_node at = node; at; at = at.parent())
    if (const pugi::xml_attribute found = at.attribute(key.c_str())) return found.value();
  return "";
}

pugi::xml_node Child(const pugi::xml_node& parent, const std::string& path) {
  pugi::xml_node node = parent;
  std::istringstream parts(path);
  for (std::string part; node && std::getline(parts, part, '/');) node = DirectChild(node, part);
  return node;
}

std::string Text(const pugi::xml_node& parent, const std::string& path) {
  return Trimmed(Child(parent, path).text().get());
}

bool CSOAPRequest::Parse(const std::string& text) {
  if (!m_Document.load_buffer(text.data(), text.size())) return false;
  const pugi::xml_node envelope = m_Document.document_element();
  if (LocalName(envelope) != "Envelope") return false;
  m_Header = DirectChild(envelope, "Header");
  m_Operation = FirstElement(DirectChild(envelope, "Body"));
  return static_cast<bool>(m_Operation);
}

pugi::xml_node Add(pugi::xml_node parent, const char* name, const std::string& text) {
  pugi::xml_node node = parent.append_child(name);
  if (!text.empty()) node.text().set(text.c_str());
  return node;
}

pugi::xml_node Add(pugi::xml_node parent, const char* name, int number) {
  return Add(parent, name, std::to_string(number));
}

pugi::xml_node Attr(pugi::xml_node element, const char* name, const std::string& value) {
  element.append_attribute(name).set_value(value.c_str());
  return element;
}

CSOAPReply::CSOAPReply(const std::string& prefix) : m_Prefix(prefix) {
  m_Envelope = m_Document.append_child(Prefixed("Envelope").c_str());
  Attr(m_Envelope, ("xmlns:" + m_Prefix).c_str(), ns::ENVELOPE);
  const std::pair<const char*, const char*> prefixes[] = {
      {"xmlns:tt", ns::SCHEMA}, {"xmlns:tds", ns::DEVICE},     {"xmlns:trt", ns::MEDIA},
      {"xmlns:tptz", ns::PTZ},  {"xmlns:tev", ns::EVENTS},     {"xmlns:wsnt", ns::NOTIFY},
      {"xmlns:ter", ns::ERROR}, {"xmlns:wsa5", ns::ADDRESSING}};
  for (const auto& [name, uri] : prefixes) Attr(m_Envelope, name, uri);
  m_Body = m_Envelope.append_child(Prefixed("Body").c_str());
}

pugi::xml_node CSOAPReply::Header() {
  if (!m_Header) m_Header = m_Envelope.insert_child_before(Prefixed("Header").c_str(), m_Body);
  return m_Header;
}

void CSOAPReply::SetFault(const CFault& fault) {
  m_Body.remove_children();
  pugi::xml_node node = Add(m_Body, Prefixed("Fault").c_str());
  pugi::xml_node code = Add(node, Prefixed("Code").c_str());
  Add(code, Prefixed("Value").c_str(), Prefixed(fault.Code));
  pugi::xml_node subcode = Add(code, Prefixed("Subcode").c_str());
  Add(subcode, Prefixed("Value").c_str(), fault.Subcode);
  if (fault.DetailCode != nullptr)
    Add(Add(subcode, Prefixed("Subcode").c_str()), Prefixed("Value").c_str(), fault.DetailCode);
  Attr(Add(Add(node, Prefixed("Reason").c_str()), Prefixed("Text").c_str(), fault.Reason), "xml:lang", "en");
}

std::string CSOAPReply::ToString(const std::string& empty) const {
  unsigned flags = pugi::format_raw;
  if (empty == "pair") flags |= pugi::format_no_empty_element_tags;
  if (empty == "spaced") flags = 0;
  std::ostringstream out;
  m_Document.save(out, "", flags | pugi::format_no_declaration, pugi::encoding_utf8);
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n" + out.str();
}
