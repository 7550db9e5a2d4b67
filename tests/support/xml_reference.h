// The XML reader written down step by step, slow and recursive: what the fast one must agree with on any bytes.
#pragma once

#include "onvif/onvif_msg.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace xml_reference {

struct Node {
  std::string Name;
  std::vector<std::string> Attributes, Values;
  std::vector<std::unique_ptr<Node>> Children;
  bool Cut = false;  // of the root: the allowance ended before the text
};

inline std::vector<std::string> Separate(const std::string& text) {
  std::vector<std::string> words;
  bool inQuotes = false, afterSeparator = false;
  size_t start = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') {
      inQuotes = !inQuotes;
    } else if (text[i] != ' ') {
      if (afterSeparator) start = i;
      afterSeparator = false;
    } else if (!inQuotes) {
      if (i - start >= 1 && !afterSeparator) words.push_back(text.substr(start, i - start));
      afterSeparator = true;
    }
  }
  if (text.size() - start >= 1 && !afterSeparator) words.push_back(text.substr(start));
  return words;
}

class Reader {
 public:
  // `text`: the whole buffer up to its NUL.
  explicit Reader(std::string text, size_t allowance) : m_Text(std::move(text)), m_Left(allowance) {}

  std::unique_ptr<Node> Element(const std::string& tag, size_t pos, size_t end) {
    auto node = std::make_unique<Node>();
    const std::vector<std::string> words = Separate(tag);
    node->Name = words.empty() ? tag : words[0];
    if (!words.empty()) node->Attributes.assign(words.begin() + 1, words.end());
    Content(node.get(), pos, end);
    return node;
  }

  bool Spent() const { return m_Left == 0; }

 private:
  void Spend(size_t n) { m_Left -= std::min(n, m_Left); }

  size_t LineLength(size_t pos) const {
    bool inQuotes = false;
    size_t i = pos;
    for (; i < m_Text.size(); ++i) {
      if (m_Text[i] == '"') inQuotes = !inQuotes;
      if (m_Text[i] == '<' && !inQuotes) break;
    }
    return i - pos;
  }

  // The closing position of an element whose tag ends at `close`; npos when there is none.
  size_t Closing(const std::string& name, size_t close) {
    const auto find = [&](char terminator, bool spend) {
      const size_t found = m_Text.find("</" + name + terminator, close);
      const size_t after = found != std::string::npos ? m_Text.find('>', found) : found;
      if (spend) Spend((after != std::string::npos ? after + 1 : m_Text.size()) - (close + 1));
      return found;
    };
    const bool bracket = name.find('<') != std::string::npos;
    const size_t exact = find('>', bracket);
    if (exact != std::string::npos) return exact;
    return find(' ', bracket || name.find(' ') != std::string::npos);
  }

  void Content(Node* node, size_t pos, size_t end) {
    while (m_Left > 0) {
      for (; pos < end && m_Text[pos] == ' '; ++pos) Spend(1);
      if (pos >= end) return;
      if (m_Text[pos] != '<') {
        const size_t length = std::min(LineLength(pos), end - pos);
        node->Values.push_back(m_Text.substr(pos, length));
        Spend(length);
        pos += length;
        continue;
      }
      const size_t close = m_Text.find('>', pos);
      if (close == std::string::npos || close >= end) return Spend(end - pos);
      Spend(close - pos + 1);
      const size_t length = close - pos - 1;
      const std::string tag = length >= 1 && length <= 4096 ? m_Text.substr(pos + 1, length) : "";
      std::vector<std::string> words = Separate(tag);
      const std::string name = words.empty() ? "" : words[0];
      size_t closing = close + 1, contentEnd = close + 1;
      if (m_Text[close - 1] == '/') {
        const size_t next = m_Text.find('>', closing);
        Spend((next != std::string::npos ? next + 1 : m_Text.size()) - closing);
      } else {
        closing = contentEnd = Closing(name, close);
        if (closing == std::string::npos) return;
      }
      node->Children.push_back(Element(name, close + 1, contentEnd));
      Node& child = *node->Children.back();
      for (size_t i = 1; i < words.size(); ++i) child.Attributes.push_back(words[i]);
      const size_t resume = m_Text.find('>', closing);
      if (resume == std::string::npos) return;
      pos = resume + 1;
    }
  }

  std::string m_Text;
  size_t m_Left;
};

// `buffer` up to its NUL, `length` bytes of it the document; null when there is no usable root.
inline std::unique_ptr<Node> CreateMSG(const std::string& buffer, size_t length) {
  std::string text;
  for (const char c : buffer.substr(0, length)) {
    if (c != '\r' && c != '\n') text += c;
  }
  const size_t end = text.size();
  const std::string all = text + (length < buffer.size() ? buffer.substr(length) : "");
  size_t start = 0;
  if (const size_t declaration = text.find("<?xml"); declaration != std::string::npos) {
    start = text.find('>', declaration);
    if (start == std::string::npos) return nullptr;
    ++start;
  }
  const size_t open = text.find('<', start);
  if (open == std::string::npos) return nullptr;
  const size_t close = text.find('>', open);
  if (close == std::string::npos || close >= end) return nullptr;
  const size_t last = text.rfind('>');
  if (last <= close) return nullptr;
  const size_t closing = text.rfind('<', last - 1);
  if (closing == std::string::npos || closing <= close) return nullptr;
  const size_t tagLength = close - open - 1;
  const std::string tag = tagLength >= 1 && tagLength <= 4096 ? text.substr(open + 1, tagLength) : "";
  // The reading allowance of xml_reader.h.
  const std::string document = all.substr(open);
  Reader reader(document, document.size() * 2 + 65536);
  const size_t from = close + 1 - open;
  auto root = reader.Element(tag, from, std::max(from, closing - 1 - open));
  root->Cut = reader.Spent();
  return root;
}

inline std::string Dump(const Node& node) {
  std::string out = "(" + node.Name;
  for (const auto& text : node.Attributes) out += "\1" + text;
  for (const auto& text : node.Values) out += "\2" + text;
  for (const auto& child : node.Children) out += Dump(*child);
  return out += ")";
}

// The same for a tree of ours; recursive, so for shallow trees only.
inline std::string Dump(const CONVIFMsg& node) {
  std::string out = "(";
  out += node.NameView();
  for (const auto* text = node.Attributes(); text != nullptr; text = text->Next())
    (out += "\1") += text->View();
  for (const auto* text = node.Values(); text != nullptr; text = text->Next()) (out += "\2") += text->View();
  for (const auto* child = node.Messages(); child != nullptr; child = child->Next()) out += Dump(*child);
  return out += ")";
}

}  // namespace xml_reference
