// Any bytes as a SOAP answer: the tree must be the one that the step by step reader makes, every search and the
// writing of it must hold, and an answer to a discovery probe must stay within its text.
#include "onvif/onvif.h"
#include "onvif/string_list.h"
#include "tests/support/xml_reference.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

const CONVIFMsg* FindSlowly(const CONVIFMsg* node, const std::string& needle) {
  if (node->NameView().find(needle) != std::string_view::npos) return node;
  for (const CONVIFMsg* child = node->Messages(); child != nullptr; child = child->Next()) {
    if (const CONVIFMsg* found = FindSlowly(child, needle)) return found;
  }
  return nullptr;
}

void CheckTree(const std::string& buffer, size_t length) {
  std::string work = buffer;
  const std::unique_ptr<CONVIFMsg> tree(CONVIFMsg::CreateMSG(work.data(), static_cast<int>(length)));
  const auto expected = xml_reference::CreateMSG(buffer, length);
  Check((tree != nullptr) == (expected != nullptr), "both readers find a root, or neither");
  if (tree == nullptr) return;
  // One that was cut may have been read anew by other rules.
  Check(expected->Cut || xml_reference::Dump(*tree) == xml_reference::Dump(*expected),
        "the tree is that of the reference");
  for (const char* needle : {"a", "b:", "XAddrs", "Response", ""}) {
    Check(tree->FindSubMSG(needle) == FindSlowly(tree.get(), needle), "the search finds the first node");
  }
  tree->Attribute("a");
  const CGXString text = tree->CreateString();
  std::string out(static_cast<size_t>(text.GetLength()) + 1, '\xFF');
  Check(tree->WriteTo(out.data()) == text.GetLength() && out.c_str() == text.Str(), "both writers agree");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 16384) return 0;  // the reference recurses
  std::string input(reinterpret_cast<const char*>(data), size);
  input.resize(input.find('\0') != std::string::npos ? input.find('\0') : input.size());
  CheckTree(input, input.size());
  CheckTree(input, input.size() - input.size() / 4);  // the buffer goes on behind the document

  CStringList urls;
  std::string answer(reinterpret_cast<const char*>(data), size);
  CONVIF::ReadProbeAnswer(answer.data(), static_cast<int>(size), &urls);
  for (CGXPos position = urls.GetHeadPosition(); position;) {
    Check(urls.Next(position)->Left(5) == "http:", "an address begins with its scheme");
  }
  return 0;
}
