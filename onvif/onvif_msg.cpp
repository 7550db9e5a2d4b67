#include "onvif/onvif_msg.h"

#include "onvif/namespaces.h"
#include "onvif/onvif.h"
#include "onvif/xml_document.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

namespace {

constexpr size_t NPOS = std::string_view::npos;
constexpr size_t TYPICAL_DEPTH = 32;

std::string_view View(const CGXString& text) {
  return text.Str();
}

std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

std::string_view TrimQuotes(std::string_view text) {
  while (!text.empty() && text.front() == '"') text.remove_prefix(1);
  while (!text.empty() && text.back() == '"') text.remove_suffix(1);
  return text;
}

std::string_view TextBetween(const char* begin, const char* end) {
  return {begin, begin < end ? static_cast<size_t>(end - begin) : 0};
}

size_t FindDeclaration(std::string_view text) {
  for (size_t mark = text.find('?'); mark != NPOS; mark = text.find('?', mark + 1)) {
    if (mark > 0 && text[mark - 1] == '<' && text.substr(mark + 1, 3) == "xml") return mark;
  }
  return NPOS;
}

// Closes the gaps that carriage returns and line feeds leave in the first `length` bytes, moves the rest up to
// the NUL down behind them, and returns what the first bytes have become. A NUL among them is the end.
std::string_view RemoveLineBreaks(char* buffer, size_t length) {
  length = strnlen(buffer, length);
  const char* const end = buffer + length;
  const auto find = [end](const char* from, char c) {
    const void* const found = memchr(from, c, static_cast<size_t>(end - from));
    return found != nullptr ? static_cast<const char*>(found) : end;
  };
  const char* from = buffer;
  const char* carriageReturn = find(from, '\r');
  const char* lineFeed = find(from, '\n');
  char* to = buffer;
  for (;;) {
    const char* const stop = std::min(carriageReturn, lineFeed);
    const size_t run = static_cast<size_t>(stop - from);
    if (to != from) memmove(to, from, run);
    to += run;
    if (stop == end) break;
    from = stop + 1;
    if (stop == carriageReturn) carriageReturn = find(from, '\r');
    if (stop == lineFeed) lineFeed = find(from, '\n');
  }
  if (to != end) memmove(to, end, strlen(end) + 1);
  return {buffer, static_cast<size_t>(to - buffer)};
}

}  // namespace

void CXmlSlice::Copy(std::string_view text) {
  if (text.empty()) return;
  char* const copy = new char[text.size()];
  memcpy(copy, text.data(), text.size());
  Borrow({copy, text.size()});
  m_bOwned = true;
}

// ---- Making and deleting ----

CONVIFMsg::CONVIFMsg(CGXString name) : m_qwLetters(LettersOf(View(name))) {
  m_Name.Copy(View(name));
}

CONVIFMsg::CONVIFMsg(CGXString tag, char* content, int length) : CONVIFMsg(CGXString()) {
  m_pDocument = new CXmlDocument(this, content != nullptr ? content : "");
  m_pDocument->ReadRoot(m_pDocument->CopyText(View(tag)),
                        m_pDocument->Text().substr(0, length > 0 ? static_cast<size_t>(length) : 0));
}

// Children are deleted one after the other, not each by its parent: trees may be deeper than the stack.
CONVIFMsg::~CONVIFMsg() {
  while (m_pAttributes != nullptr && m_pDocument == nullptr)
    delete std::exchange(m_pAttributes, m_pAttributes->m_pNext);
  while (m_pValues != nullptr && m_pDocument == nullptr) delete std::exchange(m_pValues, m_pValues->m_pNext);
  CONVIFMsg* pending = nullptr;
  ReleaseChildren(&pending);
  while (pending != nullptr) {
    CONVIFMsg* const node = std::exchange(pending, pending->m_pNext);
    node->ReleaseChildren(&pending);
    delete node;
  }
}

// Puts the heap nodes below this node in front of `pending` (linked by m_pNext) and forgets them. A document's
// arena goes when its root does, so the nodes that it adopted are linked while it still stands.
void CONVIFMsg::ReleaseChildren(CONVIFMsg** pending) {
  if (m_pDocument != nullptr) {
    std::vector<CONVIFMsg*> adopted = m_pDocument->TakeAdopted();
    AddLinked(&adopted);
    for (auto node = adopted.rbegin(); node != adopted.rend(); ++node) {
      (*node)->m_pNext = *pending;
      *pending = *node;
    }
    delete std::exchange(m_pDocument, nullptr);
    m_pAttributes = m_pValues = nullptr;
  } else if (m_pFirst != nullptr) {
    LastChild()->m_pNext = *pending;
    *pending = m_pFirst;
  }
  m_pFirst = m_pLast = nullptr;
}

// Adds the heap nodes that were linked behind adopted ones by Next, which knows of no document.
void CONVIFMsg::AddLinked(std::vector<CONVIFMsg*>* adopted) const {
  std::vector<CONVIFMsg*> known(*adopted), linked;
  std::sort(known.begin(), known.end());
  for (CONVIFMsg* const node : *adopted) {
    linked.push_back(node);
    for (CONVIFMsg* next = node->m_pNext; next != nullptr && next->m_pDocument != m_pDocument &&
                                          !std::binary_search(known.begin(), known.end(), next);
         next = next->m_pNext)
      linked.push_back(next);
  }
  *adopted = std::move(linked);
}

CONVIFMsg* CONVIFMsg::CreateMSG(char* buffer, int length) {
  if (buffer == nullptr || length <= 0) return nullptr;
  const std::string_view text = RemoveLineBreaks(buffer, static_cast<size_t>(length));
  size_t start = 0;
  if (const size_t declaration = FindDeclaration(text); declaration != NPOS) {
    const size_t end = text.find('>', declaration);
    if (end == NPOS) return nullptr;
    start = end + 1;
  }
  const size_t open = text.find('<', start);
  if (open == NPOS) return nullptr;
  const size_t close = text.find('>', open);
  if (close == NPOS) return nullptr;
  const size_t last = text.rfind('>');
  const size_t closing = text.rfind('<', last - 1);
  if (closing == NPOS || closing <= close) return nullptr;

  std::unique_ptr<CONVIFMsg> root(new CONVIFMsg{CGXString()});
  // What follows the document in the buffer is kept: closing tags are looked for up to the NUL.
  root->m_pDocument = new CXmlDocument(root.get(), text.data() + open);
  const char* const copy = root->m_pDocument->Text().data() - open;
  // The character in front of the root's closing tag is not read. Answers end there with a closing tag, whose
  // `>` is found all the same; a text of the root itself was never of use.
  root->m_pDocument->ReadRoot(TagText(copy + open + 1, copy + close),
                              TextBetween(copy + close + 1, copy + closing - 1));
  return root.release();
}

void CONVIFMsg::Next(CONVIFMsg* next) {
  if (next != nullptr && m_pDocument != nullptr && !m_pDocument->IsRoot(this)) m_pDocument->Adopt(next);
  m_pNext = next;
}

CONVIFMsg* CONVIFMsg::LastChild() const {
  CONVIFMsg* last = m_pLast;
  while (last != nullptr && last->m_pNext != nullptr) last = last->m_pNext;
  return last;
}

// ---- Lookups ----

const CONVIFMsg* CONVIFMsg::FindSubMSG(const char* needle) const {
  if (needle == nullptr) return nullptr;
  const std::string_view wanted(needle);
  const uint64_t letters = LettersOf(wanted);
  std::vector<const CONVIFMsg*> later;  // siblings to go on with, one for each level
  for (const CONVIFMsg* node = this;;) {
    if ((letters & ~node->m_qwLetters) == 0 && node->m_Name.View().find(wanted) != NPOS) return node;
    const CONVIFMsg* const sibling = node != this ? node->m_pNext : nullptr;
    if (node->m_pFirst != nullptr) {
      if (sibling != nullptr) {
        if (later.empty()) later.reserve(TYPICAL_DEPTH);
        later.push_back(sibling);
      }
      node = node->m_pFirst;
    } else if (sibling != nullptr) {
      node = sibling;
    } else if (!later.empty()) {
      node = later.back();
      later.pop_back();
    } else {
      return nullptr;
    }
  }
}

CONVIFMsg* CONVIFMsg::FindResponseMSG(const char* operation) {
  return FindSubMSG(CGXString(operation) + "Response");
}

CGXString CONVIFMsg::Value(int index) const {
  if (index < 0) return {};
  const CONVIFText* item = m_pValues;
  for (; item != nullptr && index > 0; --index) item = item->Next();
  return item != nullptr ? item->Text() : CGXString();
}

CGXString CONVIFMsg::FindSubMSGValue(const char* needle, int index) const {
  const CONVIFMsg* const node = FindSubMSG(needle);
  return node != nullptr ? node->Value(index) : CGXString();
}

// By the exact name with its prefix, where elements are found by part of it: `token` must not be answered by
// `xmlns:token` or by a vendor's `SourceToken`.
CGXString CONVIFMsg::Attribute(CGXString name) const {
  for (const CONVIFText* item = m_pAttributes; item != nullptr; item = item->Next()) {
    const std::string_view text = item->View();
    const size_t equals = text.find('=');
    if (equals == NPOS || equals == 0) continue;
    if (TrimBlanks(text.substr(0, equals)) != View(name)) continue;
    return CGXString(TrimQuotes(TrimBlanks(text.substr(equals + 1))));
  }
  return {};
}

// ---- Builders ----

void CONVIFMsg::AppendText(CONVIFText** list, const CGXString& text) {
  CONVIFText* item;
  if (m_pDocument != nullptr) {
    item = m_pDocument->NewText(m_pDocument->CopyText(View(text)));
  } else {
    item = new CONVIFText;
    item->m_Text.Copy(View(text));
  }
  while (*list != nullptr) list = &(*list)->m_pNext;
  *list = item;
}

void CONVIFMsg::AddAttrib(CGXString text) {
  AppendText(&m_pAttributes, text);
}

void CONVIFMsg::AddValue(CGXString text) {
  AppendText(&m_pValues, text);
}

void CONVIFMsg::Link(CONVIFMsg* child) {
  CONVIFMsg* const last = LastChild();
  (last != nullptr ? last->m_pNext : m_pFirst) = child;
  m_pLast = child;
}

CONVIFMsg* CONVIFMsg::AddMSG(CGXString name) {
  CONVIFMsg* const child =
      m_pDocument != nullptr ? m_pDocument->NewNode(m_pDocument->CopyText(View(name))) : new CONVIFMsg(name);
  Link(child);
  return child;
}

void CONVIFMsg::AppendMSG(CONVIFMsg* child) {
  if (child == nullptr) return;
  if (m_pDocument != nullptr) {
    for (CONVIFMsg* node = child; node != nullptr; node = node->m_pNext) m_pDocument->Adopt(node);
  }
  Link(child);
}

CONVIFMsg* CONVIFMsg::AddMSG_XMLNS(CGXString name, CGXString uri) {
  CONVIFMsg* const child = AddMSG(name);
  child->AddAttrib(CONVIF::FormatXMLNS(uri));
  return child;
}

CONVIFMsg* CONVIFMsg::AddMSGVer10_Media(CGXString name) {
  return AddMSG_XMLNS(name, NS_ONVIF_MEDIA);
}

CONVIFMsg* CONVIFMsg::AddMSGVer10_Schema(CGXString name) {
  return AddMSG_XMLNS(name, NS_ONVIF_SCHEMA);
}

CONVIFMsg* CONVIFMsg::AddValue(CGXString name, CGXString value) {
  CONVIFMsg* const child = AddMSG(name);
  child->AddValue(value);
  return child;
}

CONVIFMsg* CONVIFMsg::AddValueVer10_Media(CGXString name, CGXString value) {
  CONVIFMsg* const child = AddMSGVer10_Media(name);
  child->AddValue(value);
  return child;
}

CONVIFMsg* CONVIFMsg::AddValueVer10_Schema(CGXString name, CGXString value) {
  CONVIFMsg* const child = AddMSGVer10_Schema(name);
  child->AddValue(value);
  return child;
}

CONVIFMsg* CONVIFMsg::AddBody() {
  CONVIFMsg* const body = AddMSG("s:Body");
  body->AddAttrib(CONVIF::FormatXMLNS_XSI(NS_XML_SCHEMA_INSTANCE));
  body->AddAttrib(CONVIF::FormatXMLNS_XSD(NS_XML_SCHEMA));
  return body;
}

CONVIFEnvelope::CONVIFEnvelope() : CONVIFMsg("s:Envelope") {
  AddAttrib(CONVIF::FormatXMLNS_S(NS_SOAP_ENVELOPE));
  AddAttrib(CONVIF::FormatXMLNS_A(NS_WS_ADDRESSING));
}

// ---- Texts ----

CGXString CONVIFMsg::StringBetween(char* from, char* to) {
  return CGXString(TagText(from, to));
}

void CONVIFMsg::Separate(CGXString text, CGXObList* words) {
  CTagWords split(View(text));
  for (std::string_view word; split.Next(&word);) words->AddTail(new CGXString(word));
}

int CONVIFMsg::LineLength(char* p) {
  const char* const end = p + strlen(p);
  return static_cast<int>(ValueEnd(p, end) - p);
}
