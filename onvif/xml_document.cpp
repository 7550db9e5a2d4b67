#include "onvif/xml_document.h"

#include "onvif/xml_reader.h"
#include "onvif/xml_regular.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t FIRST_BLOCK_MIN = 4096, FIRST_BLOCK_MAX = 256 * 1024, BLOCK_MAX = 1024 * 1024;
constexpr size_t ARENA_PER_TEXT = 3;  // bytes of nodes for a byte of text, in answers of cameras

}  // namespace

CXmlDocument::CXmlDocument(CONVIFMsg* root, std::string_view text)
    : m_pRoot(root), m_NextBlock(std::clamp(text.size() * ARENA_PER_TEXT, FIRST_BLOCK_MIN, FIRST_BLOCK_MAX)) {
  std::unique_ptr<char[]> copy(new char[text.size() + 1]);
  if (!text.empty()) memcpy(copy.get(), text.data(), text.size());
  copy[text.size()] = '\0';
  m_Text = {copy.get(), text.size()};
  m_Blocks.push_back(std::move(copy));
}

CXmlDocument::~CXmlDocument() = default;

void CXmlDocument::NewBlock(size_t bytes) {
  m_Left = std::max(bytes, m_NextBlock);
  m_Blocks.push_back(std::unique_ptr<char[]>(new char[m_Left]));
  m_pFree = m_Blocks.back().get();
  m_NextBlock = std::min(m_NextBlock * 2, BLOCK_MAX);
}

std::string_view CXmlDocument::CopyText(std::string_view text) {
  if (text.empty()) return "";
  auto* const copy = static_cast<char*>(Allocate(text.size()));
  memcpy(copy, text.data(), text.size());
  return {copy, text.size()};
}

void CXmlDocument::Adopt(CONVIFMsg* node) {
  m_Adopted.push_back(node);
}

std::vector<CONVIFMsg*> CXmlDocument::TakeAdopted() {
  return std::exchange(m_Adopted, {});
}

void CXmlDocument::ReadRoot(std::string_view tag, std::string_view content) {
  CTagWords words(tag);
  std::string_view word;
  if (!words.Next(&word)) word = tag;
  m_pRoot->BorrowName(word);
  CONVIFText** link = &m_pRoot->m_pAttributes;
  for (; words.Next(&word); link = &(*link)->m_pNext) *link = NewText(word);
  using Rule = CXmlRegularReader::Rule;
  if (CXmlRegularReader(*this, m_pRoot, content, Rule::STRICT).Read()) return;
  ClearRoot();
  if (CXmlReader(*this).Read(m_pRoot, content)) return;
  CONVIFMsg* const first = m_pRoot->m_pFirst;
  CONVIFMsg* const last = m_pRoot->m_pLast;
  CONVIFText* const values = m_pRoot->m_pValues;
  ClearRoot();
  if (CXmlRegularReader(*this, m_pRoot, content, Rule::NESTED).Read()) return;
  m_pRoot->m_pFirst = first;  // rather a part than nothing
  m_pRoot->m_pLast = last;
  m_pRoot->m_pValues = values;
}

void CXmlDocument::ClearRoot() {
  m_pRoot->m_pFirst = m_pRoot->m_pLast = nullptr;
  m_pRoot->m_pValues = nullptr;
}

std::string_view TagText(const char* begin, const char* end) {
  if (end <= begin || static_cast<size_t>(end - begin) > MAX_TAG_TEXT) return "";
  return {begin, static_cast<size_t>(end - begin)};
}

bool CTagWords::Next(std::string_view* word) {
  if (m_Pos == 0 && m_Text.find(' ') == std::string_view::npos) {  // most tags are a name and nothing else
    *word = m_Text;
    m_Pos = m_Text.size();
    return !word->empty();
  }
  while (m_Pos < m_Text.size()) {
    if (m_bAfterBlank) {  // up to what begins a word
      while (m_Pos < m_Text.size() && (m_Text[m_Pos] == ' ' || m_Text[m_Pos] == '"')) {
        m_bInQuotes ^= m_Text[m_Pos++] == '"';
      }
      if (m_Pos == m_Text.size()) return false;
    }
    m_bAfterBlank = false;
    m_bBeganInQuotes = m_bInQuotes;
    const size_t start = m_Pos;
    for (; m_Pos < m_Text.size(); ++m_Pos) {
      const char c = m_Text[m_Pos];
      if (c == '"') m_bInQuotes = !m_bInQuotes;
      if (c == ' ' && !m_bInQuotes) break;
    }
    *word = m_Text.substr(start, m_Pos - start);
    if (m_Pos < m_Text.size()) {
      ++m_Pos;
      m_bAfterBlank = true;
    }
    if (!word->empty()) return true;
  }
  return false;
}
