// Serialising the tree.
#include "onvif/onvif_msg.h"

#include <cstring>
#include <vector>

// Writes pieces of text, or only counts them when there is no buffer.
class CXmlWriter {
 public:
  explicit CXmlWriter(char* out) : m_pOut(out) {}
  size_t Length() const { return m_Length; }
  void Put(std::string_view text) {
    if (m_pOut != nullptr && !text.empty()) memcpy(m_pOut + m_Length, text.data(), text.size());
    m_Length += text.size();
  }
  void Indent(int depth) {
    m_Length += static_cast<size_t>(CONVIFMsg::Tabify(m_pOut != nullptr ? m_pOut + m_Length : nullptr, depth));
  }

 private:
  char* m_pOut;
  size_t m_Length = 0;
};

int CONVIFMsg::Tabify(char*, int) {
  return 0;
}

// Everything in front of the children; false when the element is complete with it.
bool CONVIFMsg::WriteOpening(CXmlWriter* writer, int depth) const {
  const bool empty = m_pValues == nullptr && m_pFirst == nullptr;
  writer->Indent(depth);
  writer->Put("<");
  writer->Put(m_Name.View());
  writer->Put(m_pAttributes != nullptr ? " " : ">");
  for (const CONVIFText* item = m_pAttributes; item != nullptr; item = item->Next()) {
    writer->Indent(depth + 1);
    writer->Put(item->View());
    writer->Put(item->Next() != nullptr ? " " : empty ? "/>" : ">");
  }
  if (empty && m_pAttributes != nullptr) return false;
  for (const CONVIFText* item = m_pValues; item != nullptr; item = item->Next()) {
    writer->Indent(depth + 1);
    writer->Put(item->View());
    if (item->Next() != nullptr) writer->Put(" ");
  }
  return true;
}

void CONVIFMsg::WriteTree(CXmlWriter* writer, int depth) const {
  std::vector<const CONVIFMsg*> parents;
  const auto level = [&] { return depth + static_cast<int>(parents.size()); };
  const auto close = [&](const CONVIFMsg* node) {
    writer->Indent(level());
    writer->Put("</");
    writer->Put(node->m_Name.View());
    writer->Put(">");
  };
  for (const CONVIFMsg* node = this;;) {
    if (node->WriteOpening(writer, level())) {
      if (node->m_pFirst != nullptr) {
        parents.push_back(node);
        node = node->m_pFirst;
        continue;
      }
      close(node);
    }
    while (!parents.empty() && node->m_pNext == nullptr) {
      node = parents.back();
      parents.pop_back();
      close(node);
    }
    if (parents.empty()) return;
    node = node->m_pNext;
  }
}

int CONVIFMsg::WriteTo(char* out) const {
  return WriteTo(out, 0);
}

int CONVIFMsg::WriteTo(char* out, int depth) const {
  CXmlWriter writer(out);
  WriteTree(&writer, depth);
  out[writer.Length()] = '\0';
  return static_cast<int>(writer.Length());
}

CGXString CONVIFMsg::CreateString() const {
  CXmlWriter counter(nullptr);
  WriteTree(&counter, 0);
  CGXString text;
  WriteTo(text.GetBufferCHAR(static_cast<int>(counter.Length())));
  text.ReleaseBuffer(static_cast<int>(counter.Length()));
  return text;
}
