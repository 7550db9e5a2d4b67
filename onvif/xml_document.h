// What a parsed XML tree lives in, and how it is read.
#pragma once

#include "onvif/onvif_msg.h"

#include <cstddef>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

// A copy of the text and an arena with the nodes and lists of the tree. Nodes in the arena are never destroyed
// one by one: they own nothing outside of it. Heap nodes that were appended to the tree are deleted with the
// document.
class CXmlDocument {
 public:
  CXmlDocument(CONVIFMsg* root, std::string_view text);
  ~CXmlDocument();
  CXmlDocument(const CXmlDocument&) = delete;
  CXmlDocument& operator=(const CXmlDocument&) = delete;

  std::string_view Text() const { return m_Text; }  // the copy; a NUL follows
  bool IsRoot(const CONVIFMsg* node) const { return node == m_pRoot; }

  CONVIFMsg* NewNode(std::string_view name) {  // `name` must live as long as the document
    return new (Allocate(sizeof(CONVIFMsg))) CONVIFMsg(this, name);
  }
  CONVIFText* NewText(std::string_view text) {  // likewise
    auto* const item = new (Allocate(sizeof(CONVIFText))) CONVIFText;
    item->m_Text.Borrow(text);
    return item;
  }
  std::string_view CopyText(std::string_view text);  // into the arena
  void Adopt(CONVIFMsg* node);                       // takes ownership of a heap node
  std::vector<CONVIFMsg*> TakeAdopted();             // gives it back, in order

  // Reads the root's tag text and its content, a part of Text(), into the root.
  void ReadRoot(std::string_view tag, std::string_view content);

 private:
  void ClearRoot();  // of what was read, but for name and attributes
  void* Allocate(size_t bytes) {
    bytes = (bytes + ALIGN - 1) / ALIGN * ALIGN;
    if (bytes > m_Left) NewBlock(bytes);
    m_Left -= bytes;
    return std::exchange(m_pFree, m_pFree + bytes);
  }
  void NewBlock(size_t bytes);

  static constexpr size_t ALIGN = alignof(CONVIFMsg);

  CONVIFMsg* m_pRoot;
  std::string_view m_Text;
  std::vector<std::unique_ptr<char[]>> m_Blocks;
  char* m_pFree = nullptr;
  size_t m_Left = 0, m_NextBlock;
  std::vector<CONVIFMsg*> m_Adopted;
};

// Splits a tag text into words at blanks (code 32) outside double quotes. A quote right behind a blank is not
// part of the word that it begins: cameras quote only behind `=`, and tabs and line ends they send as part of
// an attribute's value, which must come back to them unchanged in tokens.
class CTagWords {
 public:
  explicit CTagWords(std::string_view text) : m_Text(text) {}
  bool Next(std::string_view* word);  // false: there are no more, and `word` is not to be used
  // Whether the last word began inside quotes, so that splitting it again would give other words.
  bool BeganInQuotes() const { return m_bBeganInQuotes; }

 private:
  std::string_view m_Text;
  size_t m_Pos = 0;
  bool m_bInQuotes = false, m_bAfterBlank = false, m_bBeganInQuotes = false;
};

// Text between the angle brackets: empty when it has more than MAX_TAG_TEXT characters. No camera writes such
// a tag; what does is damaged, and must not end up as a name.
std::string_view TagText(const char* begin, const char* end);

// The end of the value that begins at `p`: the first `<` outside double quotes, at most `end`. Cameras put
// users' names of presets and profiles into quotes, with a `<` as it was typed.
const char* ValueEnd(const char* p, const char* end);
