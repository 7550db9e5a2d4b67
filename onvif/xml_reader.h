// Reads any text into a tree.
#pragma once

#include "onvif/closing_tags.h"
#include "onvif/xml_document.h"

#include <cstddef>
#include <string_view>
#include <vector>

// Tags that cross each other (`<a><b></a>...</b>`) make the same text part of several elements, and every
// further crossing doubles that: forty of them would never end. Reading therefore ends, with what there is,
// after so many characters: twice the text, which no document without crossings needs, and some more so that
// small ones are free.
inline constexpr size_t READ_PER_TEXT = 2, READ_EXTRA = 65536;

// One reading of one document. The elements being read are kept on a stack of our own, since the threads of
// cameras have little of theirs and the text decides how deep it nests.
class CXmlReader {
 public:
  explicit CXmlReader(CXmlDocument& document);
  bool Read(CONVIFMsg* root, std::string_view content);  // false: it ended before the text did

 private:
  struct Open {  // an element whose content is being read
    CONVIFMsg* Node;
    CONVIFText** NextValue;  // where its next value is linked
    const char* Pos;
    const char* End;
  };
  struct Extent {             // of an element
    const char* ContentEnd;   // its content begins behind its tag
    const char* Resume;       // where its parent goes on; null: nowhere
    bool HasElements = true;  // false: its content is known to be text
  };

  void ReadStep();
  bool ReadElement(Open* parent);
  void ReadContent(CONVIFMsg* node, const char* begin, const Extent& extent);
  Extent SkipSelfClosing(const char* content);
  bool FindExtent(std::string_view name, const char* content, Extent* extent);
  CONVIFMsg* NewChild(CONVIFMsg* parent, std::string_view name, CTagWords* words);
  CONVIFText** AddWords(CTagWords* words, CONVIFText** link);
  CONVIFText** AddText(std::string_view text, CONVIFText** link);
  const char* SkipBlanks(const char* p, const char* end);
  void Spend(size_t characters) { m_Left = characters < m_Left ? m_Left - characters : 0; }

  CXmlDocument& m_Document;
  const char* const m_pTextEnd;
  CClosingTags m_Closing;
  std::vector<Open> m_Open;
  size_t m_Left;  // characters that may still be read
};
