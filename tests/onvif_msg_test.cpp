// The XML tree: read, searched, built and written.
#include "host/base/gxthread.h"
#include "onvif/onvif.h"
#include "tests/support/xml_reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <random>
#include <string>

namespace {

std::unique_ptr<CONVIFMsg> Parse(std::string text) {
  return std::unique_ptr<CONVIFMsg>(CONVIFMsg::CreateMSG(text.data(), static_cast<int>(text.size())));
}

// A tree as "name[attribute|..]{value|..}(child child)".
std::string Show(const CONVIFMsg& node) {
  const auto list = [](const CONVIFText* item) {
    std::string text;
    for (; item != nullptr; item = item->Next())
      text += item->Text().Str() + (item->Next() != nullptr ? "|" : "");
    return text;
  };
  std::string text = node.Name().Str();
  if (node.Attributes() != nullptr) text += "[" + list(node.Attributes()) + "]";
  if (node.Values() != nullptr) text += "{" + list(node.Values()) + "}";
  if (node.Messages() == nullptr) return text;
  text += "(";
  for (const CONVIFMsg* child = node.Messages(); child != nullptr; child = child->Next()) {
    text += Show(*child) + (child->Next() != nullptr ? " " : "");
  }
  return text + ")";
}

TEST(XmlTree, ReadsWhatCamerasSend) {
  const struct {
    const char *Text, *Tree;
  } cases[] = {
      {"<r><tt:A>1</tt:A><tt:B>2</tt:B></r>", "r(tt:A{1} tt:B{2})"},
      {"<?xml version=\"1.0\"?>\r\n<r>\r\n<a>1</a>\r\n<b>2\r\n3</b>\r\n</r>\r\n", "r(a{1} b{23})"},
      {"<t:r xmlns:t=\"u:x y\"><a token=\"P 1\" fixed=\"true\">  a b  </a></t:r>",
       "t:r[xmlns:t=\"u:x y\"](a[token=\"P 1\"|fixed=\"true\"]{a b  })"},
      // Self-closing elements keep the slash and swallow the tag behind them.
      {"<r><p><tt:A/><tt:B>2</tt:B></p><q>3</q></r>", "r(p{2}(tt:A/) q{3})"},
      {"<r><p><R w=\"640\"/></p><q><i n=\"1\" /></q></r>", "r(p(R[w=\"640\"/]) q(i[n=\"1\"|/]))"},
      // The first closing tag of a name counts; the one with a blank only when there is no other.
      {"<r><a>1<a>2</a>3</a>4 </r>", "r{3}(a{1}(a{2}))"},
      {"<r><a>1</a ><a>2</a></r>", "r(a{1})"},
      // What is never closed ends its parent, no more.
      {"<r><p><x>1<y>2</y></p><q>3</q></r>", "r(p q{3})"},
      {"<r><a>1</a><!-- note --><b>2</b></r>", "r(a{1})"},
      {"<r><p>text <</p><q>a\"<b>\"c</q></r>", "r(p{text } q{a\"<b>\"c})"},
      // Quotes behind a blank do not begin a word.
      {"<r>< \"a b\"c d>1</a b\"c ></r>", "r(a[b\"c|d]{1})"},
      // The character in front of the root's closing tag is not read.
      {"<r>12</r>", "r{1}"},
      {"<r><a/></r>", "r"},
      {"no element", "null"},
      {"<r/>", "null"},
  };
  for (const auto& c : cases) {
    std::string text = c.Text;
    const std::unique_ptr<CONVIFMsg> root(CONVIFMsg::CreateMSG(text.data(), static_cast<int>(text.size())));
    EXPECT_EQ(root != nullptr ? Show(*root) : "null", c.Tree) << c.Text;
  }
}

TEST(XmlTree, KeepsToItsPartOfTheBuffer) {
  std::string text = "<r>\r\n<a>1</a><b>2</r>tail</b></r>";
  const auto length = static_cast<int>(text.find("tail"));
  std::unique_ptr<CONVIFMsg> root(CONVIFMsg::CreateMSG(text.data(), length));
  EXPECT_EQ(Show(*root), "r(a{1} b{2})");  // closed behind the document
  EXPECT_STREQ(text.c_str(), "<r><a>1</a><b>2</r>tail</b></r>");

  text = std::string("<r><a>1</a></r>\0<b></b>", 23);
  root.reset(CONVIFMsg::CreateMSG(text.data(), static_cast<int>(text.size())));
  EXPECT_EQ(Show(*root), "r(a{1})");  // a NUL is the end

  char content[] = "1<a>2</a>";
  EXPECT_EQ(Show(CONVIFMsg("e x=\"1\"", content, 9)), "e[x=\"1\"]{1}(a{2})");
  EXPECT_EQ(Show(CONVIFMsg("e", content, 1)), "e{1}");
  EXPECT_EQ(Show(CONVIFMsg("e", content, -1)), "e");
  EXPECT_EQ(CONVIFMsg::CreateMSG(content, -1), nullptr);
  EXPECT_EQ(CONVIFMsg::CreateMSG(nullptr, 5), nullptr);
}

TEST(XmlTree, TakesTagTextsUpTo4096Characters) {
  const std::string name(4096, 'n');
  std::unique_ptr<CONVIFMsg> root = Parse("<r><" + name + ">1</" + name + "></r>");
  ASSERT_NE(root->Messages(), nullptr);
  EXPECT_EQ(root->Messages()->Name(), name.c_str());
  root = Parse("<r><x" + name + ">1</x" + name + "><a></></a></r>");
  ASSERT_NE(root->Messages(), nullptr);  // read as a tag without a name, closed by `</>`
  EXPECT_EQ(root->Messages()->Name(), "");
}

// Random texts from pieces that matter: the tree is that of the reader that goes step by step.
TEST(XmlTree, AgreesWithTheReferenceReader) {
  constexpr const char* PIECES[] = {"<a>",     "</a>", "<b>",         "</b>", "<c x=\"1\" y='2'>",
                                    "</c>",    "<a/>", "<b/>",        "</a ", ">",
                                    "<",       "/",    "\"",          " ",    "t",
                                    "</",      "\n",   "</b >",       "<d>",  "</d>",
                                    "<>",      "</>",  "< \"a b\"c>", "=",    "<a b",
                                    "<e>u</e>"};
  std::minstd_rand random(20261122);
  const auto pick = [&random](size_t n) { return random() / 7 % n; };
  for (int round = 0; round < 40000; ++round) {
    std::string text = "<r>";
    for (size_t i = pick(30); i-- > 0;) text += PIECES[pick(std::size(PIECES))];
    text += "</r>";
    const size_t length = round % 4 == 0 ? pick(text.size() + 1) : text.size();
    std::string work = text;
    const std::unique_ptr<CONVIFMsg> root(CONVIFMsg::CreateMSG(work.data(), static_cast<int>(length)));
    const auto expected = xml_reference::CreateMSG(text, length);
    ASSERT_EQ(root != nullptr, expected != nullptr) << text;
    if (root == nullptr) continue;
    ASSERT_EQ(xml_reference::Dump(*root), xml_reference::Dump(*expected)) << text;
  }
}

TEST(XmlTree, FindsByPartOfTheName) {
  const auto root = Parse(
      "<s:Envelope><trt:GetProfilesResponse><trt:Profiles token=\"P1\" fixed=\"true\"><tt:VideoSourceToken>V1"
      "</tt:VideoSourceToken></trt:Profiles><trt:Profiles "
      "token=\"P2\"></trt:Profiles></trt:GetProfilesResponse>"
      "<s:Last>x</s:Last></s:Envelope>");
  EXPECT_EQ(root->FindSubMSG("Profiles")->Name(), "trt:GetProfilesResponse");
  EXPECT_EQ(root->FindSubMSG("Token")->Name(), "tt:VideoSourceToken");
  EXPECT_EQ(root->FindSubMSG("Envelope"), root.get());
  EXPECT_EQ(root->FindSubMSG(""), root.get());
  EXPECT_EQ(root->FindSubMSG("profiles"), nullptr);
  EXPECT_EQ(root->FindSubMSG("Last")->Value(0), "x");
  CONVIFMsg* const response = root->FindResponseMSG("GetProfiles");
  ASSERT_NE(response, nullptr);
  EXPECT_EQ(response->FindSubMSG("Last"), nullptr);  // siblings of where the search began are not searched
  EXPECT_EQ(root->FindResponseMSG("GetProfile"), nullptr);
  CONVIFMsg* const profile = response->Messages();
  EXPECT_EQ(profile->Attribute("token"), "P1");
  EXPECT_EQ(profile->Attribute("fixed"), "true");
  EXPECT_EQ(profile->Attribute("Token"), "");
  EXPECT_EQ(profile->FindSubMSGValue("SourceToken", 0), "V1");
  EXPECT_EQ(profile->FindSubMSGValue("SourceToken", 1), "");
  EXPECT_EQ(profile->FindSubMSGValue("SourceToken", -1), "");
  EXPECT_EQ(profile->FindSubMSGValue("Missing", 0), "");
}

TEST(XmlTree, ReadsAttributesByTheirExactName) {
  char empty[] = "";
  const CONVIFMsg node("tt:R a=\"1\" =\"2\" xmlns:tt=\"u=v\" b='q' c=\" d \" \"e=\"\"f\" a=\"3\" w=\"640\"/",
                       empty, 0);
  const struct {
    const char *Name, *Value;
  } cases[] = {{"a", "1"}, {"xmlns:tt", "u=v"}, {"tt", ""}, {"b", "'q'"}, {"c", " d "},
               {"", ""},   {"w", "640\"/"},     {"W", ""},  {"e", "f"}};
  for (const auto& c : cases) EXPECT_EQ(node.Attribute(c.Name), c.Value) << c.Name;
}

// ---- Building and writing ----

TEST(XmlTree, WritesWhatWasBuilt) {
  CONVIFMsg body("b");
  body.AddMSGVer10_Media("GetProfiles");
  body.AddMSG("tt:Empty");
  CONVIFMsg* const two = body.AddMSG("Two");
  two->AddAttrib("x=\"1\"");
  two->AddAttrib("y=\"<&\"");
  two->AddValue("a&b");
  two->AddValue("c");
  two->AddValueVer10_Schema("n", "v");
  body.AddValueVer10_Media("m", "w");
  const std::string all =
      "<b><GetProfiles xmlns=\"http://www.onvif.org/ver10/media/wsdl\"/><tt:Empty></tt:Empty>"
      "<Two x=\"1\" y=\"<&\">a&b c<n xmlns=\"http://www.onvif.org/ver10/schema\">v</n></Two>"
      "<m xmlns=\"http://www.onvif.org/ver10/media/wsdl\">w</m></b>";
  EXPECT_EQ(body.CreateString(), all.c_str());
  std::string buffer(all.size() + 2, '#');
  EXPECT_EQ(body.WriteTo(buffer.data()), static_cast<int>(all.size()));
  EXPECT_EQ(buffer.c_str(), all);
  EXPECT_EQ(buffer.back(), '#');  // one NUL and no more

  body.AddValue(std::string(10000, 'v').c_str());  // longer than any request of ours
  EXPECT_EQ(body.CreateString().GetLength(), static_cast<int>(all.size()) + 10000);
}

TEST(XmlTree, CanBeAddedToWhereverItCameFrom) {
  static std::string deleted;
  struct CNotingNode : CONVIFMsg {
    explicit CNotingNode(const char* name) : CONVIFMsg(name) {}
    ~CNotingNode() override { deleted += Name().Str(); }
  };
  deleted.clear();
  auto root = Parse("<r><a>1</a></r>");
  CONVIFMsg* const a = root->FindSubMSG("a");
  a->AddAttrib("k=\"v\"");
  a->AddValue("2");
  a->AddValue("n", "3")->AppendMSG(new CNotingNode("Login"));
  root->AppendMSG(Parse("<s><t>4</t></s>").release());
  a->Next()->AddMSG("u")->Next(new CNotingNode("Behind"));
  root->AppendMSG(new CNotingNode("Last"));
  EXPECT_EQ(root->CreateString(),
            "<r><a k=\"v\">1 2<n>3<Login></Login></n></a><s><t>4</t><u></u><Behind></Behind></s>"
            "<Last></Last></r>");
  EXPECT_EQ(root->FindSubMSG("u")->Name(), "u");
  root.reset();
  EXPECT_EQ(deleted, "LoginBehindLast");
}

// ---- Hostile input ----

TEST(XmlTree, NestsDeeperThanAnyStack) {
  CGXThread thread;
  const auto nest = [](void*) {
    constexpr int DEPTH = 100000;
    std::string opening, closing;
    for (int i = 0; i < DEPTH; ++i) opening += "<n" + std::to_string(i) + ">";
    for (int i = DEPTH; i-- > 0;) closing += "</n" + std::to_string(i) + ">";
    const auto root = Parse("<r>" + opening + "x" + closing + "</r>");
    EXPECT_EQ(root->FindSubMSG("n99999")->Value(0), "x");
    EXPECT_EQ(root->FindSubMSG("n100000"), nullptr);
    EXPECT_EQ(root->CreateString(), ("<r>" + opening + "x" + closing + "</r>").c_str());

    CONVIFMsg built("r"), appended("r");
    CONVIFMsg* node = &built;
    for (int i = 0; i < DEPTH; ++i) node = node->AddMSG("n");
    node = &appended;
    for (int i = 0; i < DEPTH; ++i) {
      CONVIFMsg* const child = i % 2 == 0 ? new CONVIFMsg("n") : Parse("<r><y></y></r>").release();
      node->AppendMSG(child);
      node = child;
    }
    EXPECT_EQ(built.FindSubMSG("x"), nullptr);
    EXPECT_EQ(appended.FindSubMSG("z"), nullptr);
    return 0U;
  };
  ASSERT_EQ(thread.Start(nest, nullptr, 256000, "nest"), 1);
  thread.Join();
}

// Each of these makes what follows it part of two elements, so that a text of a kilobyte has as many readings
// as there are atoms.
std::string Crossing(int times) {
  std::string text = "<r>";
  for (int i = 0; i < times; ++i) {
    const std::string n = std::to_string(i);
    for (const char* piece : {"<a", n.c_str(), "><b", n.c_str(), "></a", n.c_str(), " />>"}) text += piece;
  }
  for (int i = times; i-- > 0;) text += "</b" + std::to_string(i) + ">";
  return text + "</r>";
}

size_t CountTags(const std::string& text) {
  const CGXString written = Parse(text)->CreateString();
  return static_cast<size_t>(std::count(written.Str().begin(), written.Str().end(), '<'));
}

// Elements inside others of the same name: the first closing tag counts, so here too everything is read twice,
// but the document is as XML wants it, and none of it may be missing.
TEST(XmlTree, KeepsAllOfAWellFormedDocument) {
  std::string items;
  while (items.size() < 230000) items += "<i k=\"v\">\"1\"</i>";
  for (const int depth : {4, 28}) {
    std::string text = "<r>";
    for (int i = 0; i < depth; ++i) text += "<a><b><a></a>";
    text += items;
    for (int i = 0; i < depth; ++i) text += "</b></a>";
    text += "<Behind>it</Behind></r>";
    EXPECT_TRUE(Parse(text)->CreateString() == text.c_str()) << depth;
  }
}

TEST(XmlTree, EndsWhereTagsCross) {
  EXPECT_GT(CountTags(Crossing(10)), 2000U);  // still as it stands
  EXPECT_LT(CountTags(Crossing(40)), 100000U);
  const std::string text = Crossing(40);  // and at a place that is agreed on
  EXPECT_EQ(xml_reference::Dump(*Parse(text)),
            xml_reference::Dump(*xml_reference::CreateMSG(text, text.size())));
}

}  // namespace
