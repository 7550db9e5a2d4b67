#include "onvif/xml_reader.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t NEAR = 256;  // where the closing tag of an element without children is looked for first

const char* FindChar(const char* from, const char* end, char c) {
  return from < end ? static_cast<const char*>(memchr(from, c, static_cast<size_t>(end - from))) : nullptr;
}

size_t Distance(const char* from, const char* to) {
  return static_cast<size_t>(to - from);
}

// Whether `</name>` stands at `p`.
bool IsClosingTag(const char* p, const char* end, std::string_view name) {
  return Distance(p, end) >= name.size() + 3 && p[1] == '/' && p[2 + name.size()] == '>' &&
         memcmp(p + 2, name.data(), name.size()) == 0;
}

}  // namespace

const char* ValueEnd(const char* p, const char* end) {
  const char* stop = FindChar(p, end, '<');
  for (;;) {
    if (stop != nullptr && stop < p) stop = FindChar(p, end, '<');
    const char* const quote = FindChar(p, stop != nullptr ? stop : end, '"');
    if (quote == nullptr) return stop != nullptr ? stop : end;
    const char* const closing = FindChar(quote + 1, end, '"');
    if (closing == nullptr) return end;
    p = closing + 1;
  }
}

CXmlReader::CXmlReader(CXmlDocument& document)
    : m_Document(document),
      m_pTextEnd(document.Text().data() + document.Text().size()),
      m_Closing(document.Text()),
      m_Left(document.Text().size() * READ_PER_TEXT + READ_EXTRA) {}

bool CXmlReader::Read(CONVIFMsg* root, std::string_view content) {
  m_Open.reserve(32);
  m_Open.push_back({root, &root->m_pValues, content.data(), content.data() + content.size()});
  while (!m_Open.empty() && m_Left > 0) ReadStep();
  return m_Left > 0;
}

// One piece of the innermost open element: a value, a child, or its end.
void CXmlReader::ReadStep() {
  Open& open = m_Open.back();
  open.Pos = SkipBlanks(open.Pos, open.End);
  if (open.Pos < open.End && *open.Pos != '<') {
    const char* const end = ValueEnd(open.Pos, open.End);
    open.NextValue = AddText({open.Pos, Distance(open.Pos, end)}, open.NextValue);
    Spend(Distance(open.Pos, end));
    open.Pos = end;
  } else if (open.Pos >= open.End || !ReadElement(&open)) {
    m_Open.pop_back();
  }
}

// Reads the opening tag at the parent's position and makes the child. False when the parent ends here: the tag
// is not complete, or never closed. `parent` is gone afterwards when the child has elements to read.
bool CXmlReader::ReadElement(Open* parent) {
  const char* const tag = parent->Pos + 1;
  const char* const close = FindChar(tag, parent->End, '>');
  if (close == nullptr) {
    Spend(Distance(parent->Pos, parent->End));
    return false;
  }
  Spend(Distance(parent->Pos, close) + 1);
  CTagWords words(TagText(tag, close));
  std::string_view name;
  if (!words.Next(&name)) name = "";
  const char* const content = close + 1;
  Extent extent{};
  if (close[-1] == '/') {
    extent = SkipSelfClosing(content);
  } else if (!FindExtent(name, content, &extent)) {
    return false;
  }
  parent->Pos = extent.Resume != nullptr ? extent.Resume : parent->End;
  ReadContent(NewChild(parent->Node, name, &words), content, extent);
  return true;
}

void CXmlReader::ReadContent(CONVIFMsg* node, const char* begin, const Extent& extent) {
  if (extent.HasElements) {
    if (begin < extent.ContentEnd) m_Open.push_back({node, &node->m_pValues, begin, extent.ContentEnd});
  } else if (m_Left > 0) {
    begin = SkipBlanks(begin, extent.ContentEnd);
    if (begin == extent.ContentEnd) return;
    AddText({begin, Distance(begin, extent.ContentEnd)}, &node->m_pValues);
    Spend(Distance(begin, extent.ContentEnd));
  }
}

// The tag behind a self-closing one is skipped with it, and the text that it leaves open becomes the parent's:
// code that reads such answers counts on finding values there.
CXmlReader::Extent CXmlReader::SkipSelfClosing(const char* content) {
  const char* const close = FindChar(content, m_pTextEnd, '>');
  Spend(Distance(content, close != nullptr ? close + 1 : m_pTextEnd));
  return {content, close != nullptr ? close + 1 : nullptr};
}

// The first closing tag of that name counts, so an element inside one of the same name ends the outer one
// early. Cameras' answers have no such elements, but some have tags that are never closed: with nesting
// counted, one of them would take the rest of the answer with it.
bool CXmlReader::FindExtent(std::string_view name, const char* content, Extent* extent) {
  const char* const nearEnd = content + std::min(NEAR, Distance(content, m_pTextEnd));
  const char* const next = FindChar(content, nearEnd, '<');
  const bool indexed = name.find('<') == std::string_view::npos;
  if (indexed && next != nullptr && IsClosingTag(next, m_pTextEnd, name)) {
    *extent = {next, next + name.size() + 3, false};
    return true;
  }
  size_t searched = 0;
  const CClosingTag tag = m_Closing.Find(name, content, &searched);
  if (searched > 0) Spend(searched);
  *extent = {tag.Begin, tag.After};
  return tag.Begin != nullptr;
}

// The name of the child is split once more: it was one word of the tag, but taken alone it may be several.
CONVIFMsg* CXmlReader::NewChild(CONVIFMsg* parent, std::string_view name, CTagWords* words) {
  CTagWords nameWords(name);
  const bool split = words->BeganInQuotes() && nameWords.Next(&name);
  CONVIFMsg* const child = m_Document.NewNode(name);
  CONVIFText** link = &child->m_pAttributes;
  if (split) link = AddWords(&nameWords, link);
  AddWords(words, link);
  (parent->m_pFirst == nullptr ? parent->m_pFirst : parent->m_pLast->m_pNext) = child;
  parent->m_pLast = child;
  return child;
}

// Both append at `link` and return where the next item goes.
CONVIFText** CXmlReader::AddWords(CTagWords* words, CONVIFText** link) {
  for (std::string_view word; words->Next(&word);) link = AddText(word, link);
  return link;
}

CONVIFText** CXmlReader::AddText(std::string_view text, CONVIFText** link) {
  *link = m_Document.NewText(text);
  return &(*link)->m_pNext;
}

const char* CXmlReader::SkipBlanks(const char* p, const char* end) {
  const char* const start = p;
  while (p < end && *p == ' ') ++p;
  if (p > start) Spend(Distance(start, p));
  return p;
}
