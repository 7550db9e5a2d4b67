#include "onvif/xml_regular.h"

#include "onvif/closing_tags.h"

#include <cstring>

namespace {

constexpr size_t MAX_DEPTH = 64;

// What ends a name in an opening tag; the text ends with a NUL.
constexpr bool EndsName(char c) {
  return c == '>' || c == ' ' || c == '"' || c == '<' || c == '/' || c == '\0';
}

size_t Distance(const char* from, const char* to) {
  return static_cast<size_t>(to - from);
}

const char* FindChar(const char* from, const char* end, char c) {
  return static_cast<const char*>(memchr(from, c, Distance(from, end)));
}

}  // namespace

CXmlRegularReader::CXmlRegularReader(CXmlDocument& document, CONVIFMsg* root, std::string_view content,
                                     Rule rule)
    : m_Document(document),
      m_Pos(content.data()),
      m_pRootEnd(content.data() + content.size()),
      m_pTextEnd(document.Text().data() + document.Text().size()),
      m_bNested(rule == Rule::NESTED) {
  m_Open.reserve(MAX_DEPTH);
  m_Open.push_back({root, &root->m_pValues});
}

bool CXmlRegularReader::Read() {
  Result result;
  do result = ReadPiece();
  while (result == GO_ON);
  return result == DONE;
}

CXmlRegularReader::Result CXmlRegularReader::ReadPiece() {
  while (*m_Pos == ' ') ++m_Pos;
  if (InRoot() && m_Pos >= m_pRootEnd) return DONE;
  if (*m_Pos != '<') return ReadValue();
  return m_Pos[1] == '/' ? ReadClosing() : ReadOpening();
}

CXmlRegularReader::Result CXmlRegularReader::ReadValue() {
  const char* const end = FindChar(m_Pos, m_pTextEnd, '<');
  if (InRoot() || end == nullptr || (FindChar(m_Pos, end, '"') != nullptr && !m_bNested)) return GIVE_UP;
  Open& open = m_Open.back();
  *open.NextValue = m_Document.NewText({m_Pos, Distance(m_Pos, end)});
  open.NextValue = &(*open.NextValue)->m_pNext;
  m_Pos = end;
  return GO_ON;
}

CXmlRegularReader::Result CXmlRegularReader::ReadClosing() {
  const std::string_view name = m_Open.back().Node->m_Name.View();
  const char* const close = m_Pos + 2 + name.size();
  if (InRoot() || close >= m_pTextEnd || *close != '>' || memcmp(m_Pos + 2, name.data(), name.size()) != 0) {
    return GIVE_UP;
  }
  m_Open.pop_back();
  m_Pos = close + 1;
  return GO_ON;
}

CXmlRegularReader::Result CXmlRegularReader::ReadOpening() {
  const char* const name = m_Pos + 1;
  const char* p = name;
  while (!EndsName(*p)) ++p;
  // The slash stays with the name, by which a part of it is found all the same, and so does that of the last
  // attribute: cameras get their tokens back as they wrote them.
  if (*p == '/' && p[1] == '>') ++p;
  CONVIFMsg* const node = m_Document.NewNode({name, Distance(name, p)});
  const char* const close = *p == ' ' ? ReadAttributes(node, p) : p;
  if (p == name || close == nullptr || *close != '>' || Distance(name, close) > MAX_TAG_TEXT) return GIVE_UP;
  if (InRoot() ? close >= m_pRootEnd : m_Open.size() == MAX_DEPTH || (IsOpen(*node) && !m_bNested))
    return GIVE_UP;
  CONVIFMsg* const parent = m_Open.back().Node;
  (parent->m_pFirst == nullptr ? parent->m_pFirst : parent->m_pLast->m_pNext) = node;
  parent->m_pLast = node;
  m_Pos = close + 1;
  if (close[-1] == '/') return m_bNested ? GO_ON : SkipBehindSelfClosing();
  m_Open.push_back({node, &node->m_pValues});
  return GO_ON;
}

// The tag behind a self-closing element is skipped with it: the closing tag of its parent, or another
// self-closing one. What is read at the parent then counts on values being there (see CXmlReader).
CXmlRegularReader::Result CXmlRegularReader::SkipBehindSelfClosing() {
  while (*m_Pos == ' ') ++m_Pos;
  if (*m_Pos != '<') return GIVE_UP;
  if (m_Pos[1] == '/') return ReadClosing();
  const char* const close = FindChar(m_Pos, m_pTextEnd, '>');
  if (close == nullptr || close[-1] != '/' || FindChar(m_Pos + 1, close, '<') != nullptr) return GIVE_UP;
  m_Pos = close + 1;
  return GO_ON;
}

// The attributes from the blank behind the name on; returns the tag's end, or null to give up.
const char* CXmlRegularReader::ReadAttributes(CONVIFMsg* node, const char* blank) {
  const char* const close = FindChar(blank, m_pTextEnd, '>');
  if (close == nullptr || FindChar(blank, close, '<') != nullptr) return nullptr;
  CTagWords words({blank, Distance(blank, close)});
  CONVIFText** link = &node->m_pAttributes;
  for (std::string_view word; words.Next(&word); link = &(*link)->m_pNext) *link = m_Document.NewText(word);
  return close;
}

// Whether one of the open elements has the name of the node.
bool CXmlRegularReader::IsOpen(const CONVIFMsg& node) const {
  for (const Open& open : m_Open) {
    if (open.Node->m_qwLetters == node.m_qwLetters && open.Node->m_Name.View() == node.m_Name.View())
      return true;
  }
  return false;
}
