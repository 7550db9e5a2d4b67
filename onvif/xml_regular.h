// Reads documents whose tags nest properly, which is what most cameras send, in one pass.
#pragma once

#include "onvif/xml_document.h"

#include <cstddef>
#include <string_view>
#include <vector>

// STRICT gives up at anything out of the ordinary: a tag that is not the expected closing tag, an element
// inside one of the same name, quotes in a text, a `<` in a tag, an opening tag behind a self-closing element,
// unusual depth. As long as nothing of that occurs, every `</` of the text is met as a tag and closes the
// innermost element, so the first closing tag of a name is always the one that belongs to the element, and the
// tree is that of CXmlReader. NESTED takes the tags as XML means them, also inside an element of the same name
// and behind a self-closing one: for well-formed documents that CXmlReader would read too many times over.
class CXmlRegularReader {
 public:
  enum class Rule { STRICT, NESTED };

  CXmlRegularReader(CXmlDocument& document, CONVIFMsg* root, std::string_view content, Rule rule);
  bool Read();  // false: given up; the tree is not complete

 private:
  struct Open {
    CONVIFMsg* Node;
    CONVIFText** NextValue;  // where its next value is linked
  };
  enum Result { GO_ON, DONE, GIVE_UP };

  Result ReadPiece();
  Result ReadValue();
  Result ReadOpening();
  Result ReadClosing();
  Result SkipBehindSelfClosing();
  const char* ReadAttributes(CONVIFMsg* node, const char* blank);
  bool IsOpen(const CONVIFMsg& node) const;
  bool InRoot() const { return m_Open.size() == 1; }

  CXmlDocument& m_Document;
  const char* m_Pos;
  const char* const m_pRootEnd;
  const char* const m_pTextEnd;
  std::vector<Open> m_Open;
  const bool m_bNested;
};
