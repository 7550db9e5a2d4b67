// The XML tree behind every SOAP request, answer and notification.
//
// It is a deliberately small reader: names keep their prefixes, attributes stay whole `name="value"` texts,
// nothing is decoded or escaped, and closing tags are found by text. Cameras differ in prefixes, nesting and
// small errors of form; searching by part of a name over such a tree reads all of them the same way.
//
// A parsed tree lives in one document (copied text plus an arena) that its root owns; nodes made one by one
// live on the heap. Either way the tree goes with `delete root`. No operation recurses, so depth costs no
// stack. Lookups may run on several threads at once; changing a tree needs it to oneself.
#pragma once

#include "host/base/gxlist.h"
#include "host/base/gxstring.h"

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

class CXmlDocument;

// Characters of a node: a slice of the document that outlives the node, or an own copy.
class CXmlSlice {
 public:
  CXmlSlice() = default;
  CXmlSlice(const CXmlSlice&) = delete;
  CXmlSlice& operator=(const CXmlSlice&) = delete;
  ~CXmlSlice() {
    if (m_bOwned) delete[] m_pText;
  }
  void Borrow(std::string_view text) {
    m_pText = text.data();
    m_dwLength = static_cast<uint32_t>(text.size());
  }
  void Copy(std::string_view text);  // once, into an empty slice
  std::string_view View() const { return {m_pText, m_dwLength}; }

 private:
  const char* m_pText = "";
  uint32_t m_dwLength = 0;
  bool m_bOwned = false;
};

// One attribute or value text in a list.
class CONVIFText {
 public:
  CGXString Text() const { return CGXString(m_Text.View()); }
  std::string_view View() const { return m_Text.View(); }
  CONVIFText* Next() const { return m_pNext; }
  void Next(CONVIFText* next) { m_pNext = next; }

 private:
  friend class CONVIFMsg;
  friend class CXmlDocument;
  friend class CXmlReader;
  friend class CXmlRegularReader;
  CXmlSlice m_Text;
  CONVIFText* m_pNext = nullptr;
};

// One element: name, attributes, values (pieces of text), children. Owns all of them.
class CONVIFMsg {
 public:
  explicit CONVIFMsg(CGXString name);
  // Reads an element from the text between its `<` and `>` and from the first `length` bytes of its content,
  // which must be NUL-terminated there or later; closing tags are looked for up to the NUL. The content is
  // copied.
  CONVIFMsg(CGXString tag, char* content, int length);
  virtual ~CONVIFMsg();
  CONVIFMsg(const CONVIFMsg&) = delete;
  CONVIFMsg& operator=(const CONVIFMsg&) = delete;

  // Reads a document of `length` bytes, NUL-terminated there or later. Removes the line breaks from `buffer` in
  // place and copies the rest. The caller deletes the root; null when there is no root element with a closing
  // tag.
  static CONVIFMsg* CreateMSG(char* buffer, int length);

  CGXString Name() const { return CGXString(m_Name.View()); }
  std::string_view NameView() const { return m_Name.View(); }
  CONVIFMsg* Messages() { return m_pFirst; }  // the first child, null when there is none; then Next()
  const CONVIFMsg* Messages() const { return m_pFirst; }
  CONVIFMsg* Next() { return m_pNext; }
  const CONVIFMsg* Next() const { return m_pNext; }
  void Next(CONVIFMsg* next);
  const CONVIFText* Attributes() const { return m_pAttributes; }  // in order; null when there are none
  const CONVIFText* Values() const { return m_pValues; }

  // The first node of this subtree, itself first, depth first, whose name contains `needle` (case matters);
  // null when there is none.
  CONVIFMsg* FindSubMSG(const char* needle) {
    return const_cast<CONVIFMsg*>(std::as_const(*this).FindSubMSG(needle));
  }
  const CONVIFMsg* FindSubMSG(const char* needle) const;
  // Likewise for the name of the operation followed by "Response".
  CONVIFMsg* FindResponseMSG(const char* operation);
  CGXString Value(int index) const;  // empty past the end
  CGXString FindSubMSGValue(const char* needle, int index) const;
  CGXString Attribute(CGXString name) const;  // by its exact name, prefix included; or empty

  // Builders: append and return what was made, which stays owned by the tree. Attribute texts are whole
  // (`name="value"`), nothing is escaped.
  void AddAttrib(CGXString text);
  void AddValue(CGXString text);
  CONVIFMsg* AddMSG(CGXString name);
  CONVIFMsg* AddMSG_XMLNS(CGXString name, CGXString uri);
  CONVIFMsg* AddMSGVer10_Media(CGXString name);
  CONVIFMsg* AddMSGVer10_Schema(CGXString name);
  CONVIFMsg* AddValue(CGXString name, CGXString value);  // a new child with that value
  CONVIFMsg* AddValueVer10_Media(CGXString name, CGXString value);
  CONVIFMsg* AddValueVer10_Schema(CGXString name, CGXString value);
  void AppendMSG(CONVIFMsg* child);  // takes ownership of a node made by new; null is ignored
  CONVIFMsg* AddBody();              // "s:Body" with the xsi and xsd prefixes

  // Writes the subtree without any white space between elements, NUL-terminated; returns the bytes before the
  // NUL. The caller knows that `out` is large enough: see CreateString for when it does not.
  int WriteTo(char* out) const;
  int WriteTo(char* out, int depth) const;
  CGXString CreateString() const;  // any length

  // The text from `from` up to `to` when it has 1 to 4096 characters, else the empty text.
  static CGXString StringBetween(char* from, char* to);
  // Splits a tag text at blanks outside double quotes; the caller deletes the words (new CGXString).
  static void Separate(CGXString text, CGXObList* words);
  // Characters from `p` to the first `<` outside double quotes, or to the NUL.
  static int LineLength(char* p);

  // Called before each tag and attribute is written, with the level of nesting; returns the bytes that it
  // wrote. It writes nothing: some cameras take white space between elements for text.
  static int Tabify(char* out, int depth);

 private:
  friend class CXmlDocument;
  friend class CXmlReader;
  friend class CXmlRegularReader;
  CONVIFMsg(CXmlDocument* document, std::string_view name) : m_pDocument(document) { BorrowName(name); }

  bool WriteOpening(class CXmlWriter* writer, int depth) const;
  void WriteTree(class CXmlWriter* writer, int depth) const;

  void BorrowName(std::string_view name) {
    m_Name.Borrow(name);
    m_qwLetters = LettersOf(name);
  }
  static uint64_t LettersOf(std::string_view text) {
    uint64_t letters = 0;
    for (const char c : text) letters |= uint64_t{1} << (static_cast<unsigned char>(c) & 63);
    return letters;
  }
  void Link(CONVIFMsg* child);
  void AppendText(CONVIFText** list, const CGXString& text);
  CONVIFMsg* LastChild() const;
  void ReleaseChildren(CONVIFMsg** pending);
  void AddLinked(std::vector<CONVIFMsg*>* adopted) const;

  CONVIFMsg* m_pNext = nullptr;
  CONVIFMsg* m_pFirst = nullptr;
  CONVIFMsg* m_pLast = nullptr;  // a hint: a later sibling may have been linked with Next()
  CONVIFText* m_pAttributes = nullptr;
  CONVIFText* m_pValues = nullptr;
  CXmlDocument* m_pDocument = nullptr;  // where this node lives, or whose root and owner it is; null: heap
  uint64_t m_qwLetters = 0;  // which characters the name has (bit: code modulo 64): most searches end here
  CXmlSlice m_Name;
};

// The root of a request: "s:Envelope" with the prefixes s (SOAP 1.2) and a (WS-Addressing).
class CONVIFEnvelope : public CONVIFMsg {
 public:
  CONVIFEnvelope();
};
