#include "onvif/xml_document.h"

#include "onvif/xml_reader.h"

#include <algorithm>
#include <cstring>
#include <new>

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

void* CXmlDocument::Allocate(size_t bytes) {
  constexpr size_t ALIGN = alignof(std::max_align_t);
  bytes = (bytes + ALIGN - 1) / ALIGN * ALIGN;
  if (bytes > m_Left) {
    const size_t size = std::max(bytes, m_NextBlock);
    m_Blocks.push_back(std::unique_ptr<char[]>(new char[size]));
    m_pFree = m_Blocks.back().get();
    m_Left = size;
    m_NextBlock = std::min(std::max(m_NextBlock * 2, FIRST_BLOCK_MIN), BLOCK_MAX);
  }
  char* const place = m_pFree;
  m_pFree += bytes;
  m_Left -= bytes;
  return place;
}

CONVIFMsg* CXmlDocument::NewNode(std::string_view name) {
  return new (Allocate(sizeof(CONVIFMsg))) CONVIFMsg(this, name);
}

CONVIFText* CXmlDocument::NewText(std::string_view text) {
  auto* const item = new (Allocate(sizeof(CONVIFText))) CONVIFText;
  item->m_Text.Borrow(text);
  return item;
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
  CXmlReader reader(*this);
  reader.ReadRoot(m_pRoot, tag, content);
}

std::string_view TagText(const char* begin, const char* end) {
  if (end <= begin || static_cast<size_t>(end - begin) > MAX_TAG_TEXT) return {};
  return {begin, static_cast<size_t>(end - begin)};
}

bool CTagWords::Next(std::string_view* word) {
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
