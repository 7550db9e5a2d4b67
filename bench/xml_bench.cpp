// Reading a GetProfiles answer of 25 KB as cameras send it, looking up 20 names in it and deleting it, beside
// two well-known XML libraries; reading larger and hostile answers; writing a request.
#include "onvif/login_header.h"
#include "onvif/namespaces.h"
#include "onvif/onvif.h"
#include "util/gxtimer.h"

#include <benchmark/benchmark.h>
#include <libxml/parser.h>

#include <cstring>
#include <iterator>
#include <pugixml.hpp>
#include <string>

namespace {

constexpr const char* NAMES[] = {"GetProfilesResponse",
                                 "Profiles",
                                 "VideoSourceConfiguration",
                                 "SourceToken",
                                 "Bounds",
                                 "VideoEncoderConfiguration",
                                 "Encoding",
                                 "Resolution",
                                 "Width",
                                 "Height",
                                 "FrameRateLimit",
                                 "BitrateLimit",
                                 "GovLength",
                                 "H264Profile",
                                 "Multicast",
                                 "PTZConfiguration",
                                 "NodeToken",
                                 "DefaultPTZTimeout",
                                 "AudioEncoder",
                                 "SessionTimeout"};

std::string Multicast(const char* port) {
  return std::string(
             "<tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type><tt:IPv4Address>239.0.0.1</tt:IPv4Address>"
             "</tt:Address><tt:Port>") +
         port + "</tt:Port><tt:TTL>5</tt:TTL><tt:AutoStart>false</tt:AutoStart></tt:Multicast>";
}

std::string Range(const char* name, const char* space) {
  return std::string("<tt:") + name + "><tt:Range><tt:URI>http://www.onvif.org/ver10/tptz/" + space +
         "</tt:URI><tt:XRange><tt:Min>-1.000000</tt:Min><tt:Max>1.000000</tt:Max></"
         "tt:XRange><tt:YRange><tt:Min>"
         "-1.000000</tt:Min><tt:Max>1.000000</tt:Max></tt:YRange></tt:Range></tt:" +
         name + ">";
}

std::string Profile(int number) {
  const std::string n = std::to_string(number);
  return "<trt:Profiles token=\"Profile_" + n + "\" fixed=\"true\"><tt:Name>mainStream_" + n +
         "</tt:Name><tt:VideoSourceConfiguration "
         "token=\"VideoSourceToken\"><tt:Name>VideoSourceConfig</tt:Name>"
         "<tt:UseCount>3</tt:UseCount><tt:SourceToken>VideoSource_1</tt:SourceToken><tt:Bounds x=\"0\" y=\"0\" "
         "width=\"1920\" "
         "height=\"1080\"></tt:Bounds></tt:VideoSourceConfiguration><tt:AudioSourceConfiguration "
         "token=\"AudioSourceConfigToken\"><tt:Name>AudioSourceConfig</tt:Name><tt:UseCount>2</tt:UseCount>"
         "<tt:SourceToken>AudioSourceChannel</tt:SourceToken></tt:AudioSourceConfiguration>"
         "<tt:VideoEncoderConfiguration token=\"VideoEncoderToken_" +
         n + "\"><tt:Name>VideoEncoder_" + n +
         "</tt:Name><tt:UseCount>1</tt:UseCount><tt:Encoding>H264</tt:Encoding><tt:Resolution><tt:Width>1920"
         "</tt:Width><tt:Height>1080</tt:Height></tt:Resolution><tt:Quality>3.000000</"
         "tt:Quality><tt:RateControl>"
         "<tt:FrameRateLimit>25</tt:FrameRateLimit><tt:EncodingInterval>1</"
         "tt:EncodingInterval><tt:BitrateLimit>4096"
         "</tt:BitrateLimit></tt:RateControl><tt:H264><tt:GovLength>50</tt:GovLength><tt:H264Profile>Main"
         "</tt:H264Profile></tt:H264>" +
         Multicast("8860") +
         "<tt:SessionTimeout>PT5S</tt:SessionTimeout></"
         "tt:VideoEncoderConfiguration><tt:AudioEncoderConfiguration "
         "token=\"MainAudioEncoderToken\"><tt:Name>AudioEncoderConfig</tt:Name><tt:UseCount>2</tt:UseCount>"
         "<tt:Encoding>G711</tt:Encoding><tt:Bitrate>64</tt:Bitrate><tt:SampleRate>8</tt:SampleRate>" +
         Multicast("8862") +
         "<tt:SessionTimeout>PT5S</tt:SessionTimeout></"
         "tt:AudioEncoderConfiguration><tt:VideoAnalyticsConfiguration "
         "token=\"VideoAnalyticsToken\"><tt:Name>VideoAnalyticsName</tt:Name><tt:UseCount>3</tt:UseCount>"
         "<tt:AnalyticsEngineConfiguration><tt:AnalyticsModule Name=\"MyCellMotionModule\" "
         "Type=\"tt:CellMotionEngine\"><tt:Parameters><tt:SimpleItem Name=\"Sensitivity\" "
         "Value=\"60\"></tt:SimpleItem>"
         "</tt:Parameters></tt:AnalyticsModule></tt:AnalyticsEngineConfiguration></"
         "tt:VideoAnalyticsConfiguration>"
         "<tt:PTZConfiguration "
         "token=\"PTZToken\"><tt:Name>PTZ</tt:Name><tt:UseCount>3</tt:UseCount><tt:NodeToken>"
         "PTZNODETOKEN</tt:NodeToken><tt:DefaultContinuousPanTiltVelocitySpace>"
         "http://www.onvif.org/ver10/tptz/PanTiltSpaces/VelocityGenericSpace"
         "</tt:DefaultContinuousPanTiltVelocitySpace><tt:DefaultContinuousZoomVelocitySpace>"
         "http://www.onvif.org/ver10/tptz/ZoomSpaces/VelocityGenericSpace</"
         "tt:DefaultContinuousZoomVelocitySpace>"
         "<tt:DefaultPTZTimeout>PT300S</tt:DefaultPTZTimeout>" +
         Range("PanTiltLimits", "PanTiltSpaces/PositionGenericSpace") +
         Range("ZoomLimits", "ZoomSpaces/PositionGenericSpace") + "</tt:PTZConfiguration></trt:Profiles>";
}

std::string ProfilesAnswer(size_t bytes) {
  std::string text =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<env:Envelope "
      "xmlns:env=\"http://www.w3.org/2003/05/soap-envelope\" xmlns:tt=\"http://www.onvif.org/ver10/schema\" "
      "xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\"><env:Body><trt:GetProfilesResponse>";
  for (int i = 1; text.size() < bytes; ++i) text += Profile(i);
  return text + "</trt:GetProfilesResponse></env:Body></env:Envelope>\r\n";
}

const std::string& Answer() {
  static const std::string text = ProfilesAnswer(22000);
  return text;
}

void Account(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  state.counters["bytes"] = static_cast<double>(bytes);
}

// ---- Parse, 20 searches, delete. Each begins from a fresh copy of the text, as it comes from the network ----

void ParseAndSearch_ours(benchmark::State& state) {
  std::string buffer;
  for (auto _ : state) {
    buffer = Answer();
    CONVIFMsg* const root = CONVIFMsg::CreateMSG(buffer.data(), static_cast<int>(buffer.size()));
    int found = 0;
    for (const char* name : NAMES) found += root->FindSubMSG(name) != nullptr;
    if (found != std::ssize(NAMES)) state.SkipWithError("a name was not found");
    delete root;
  }
  Account(state, Answer().size());
}
BENCHMARK(ParseAndSearch_ours)->Unit(benchmark::kMicrosecond);

void ParseAndSearch_pugixml(benchmark::State& state) {
  std::string buffer;
  for (auto _ : state) {
    buffer = Answer();
    pugi::xml_document document;
    document.load_buffer_inplace(buffer.data(), buffer.size());
    int found = 0;
    for (const char* name : NAMES) {
      found += static_cast<bool>(document.find_node(
          [name](const pugi::xml_node& node) { return strstr(node.name(), name) != nullptr; }));
    }
    if (found != std::ssize(NAMES)) state.SkipWithError("a name was not found");
  }
  Account(state, Answer().size());
}
BENCHMARK(ParseAndSearch_pugixml)->Unit(benchmark::kMicrosecond);

bool FindIn(const xmlNode* node, const char* name) {
  for (; node != nullptr; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    if (strstr(reinterpret_cast<const char*>(node->name), name) != nullptr || FindIn(node->children, name))
      return true;
  }
  return false;
}

void ParseAndSearch_libxml2(benchmark::State& state) {
  std::string buffer;
  for (auto _ : state) {
    buffer = Answer();
    xmlDoc* const document = xmlReadMemory(buffer.data(), static_cast<int>(buffer.size()), nullptr, nullptr, 0);
    int found = 0;
    for (const char* name : NAMES) found += FindIn(xmlDocGetRootElement(document), name);
    if (found != std::ssize(NAMES)) state.SkipWithError("a name was not found");
    xmlFreeDoc(document);
  }
  Account(state, Answer().size());
}
BENCHMARK(ParseAndSearch_libxml2)->Unit(benchmark::kMicrosecond);

// ---- Reading alone ----

void ParseText(benchmark::State& state, const std::string& text) {
  std::string buffer;
  for (auto _ : state) {
    buffer = text;
    delete CONVIFMsg::CreateMSG(buffer.data(), static_cast<int>(buffer.size()));
  }
  Account(state, text.size());
}

void Parse(benchmark::State& state) {
  ParseText(state, ProfilesAnswer(static_cast<size_t>(state.range(0))));
}
BENCHMARK(Parse)->Arg(22000)->Arg(100000)->Arg(400000)->Arg(1000000)->Unit(benchmark::kMicrosecond);

void ParseIndented(benchmark::State& state) {  // a line for each tag, as some cameras write
  std::string text;
  for (const char c : Answer()) {
    if (c == '<') text += "\r\n        ";
    text += c;
  }
  ParseText(state, text);
}
BENCHMARK(ParseIndented)->Unit(benchmark::kMicrosecond);

// Lists of self-closing elements, as other cameras write them.
std::string SelfClosingAnswer() {
  std::string text = Answer();
  const std::string pair = "\"60\"></tt:SimpleItem>";
  const std::string closed = "\"60\"/><tt:SimpleItem Name=\"Layout\" Value=\"1\"/>";
  for (size_t at = text.find(pair); at != std::string::npos; at = text.find(pair))
    text.replace(at, pair.size(), closed);
  return text;
}

void ParseSelfClosing_ours(benchmark::State& state) {
  ParseText(state, SelfClosingAnswer());
}
BENCHMARK(ParseSelfClosing_ours)->Unit(benchmark::kMicrosecond);

// An opening tag behind a self-closing element: more than the reader of regular documents takes.
void ParseGeneral(benchmark::State& state) {
  std::string text = Answer();
  ParseText(state, text.replace(text.find("<trt:Profiles "), 0, "<a><b/><c>1</c></a>"));
}
BENCHMARK(ParseGeneral)->Unit(benchmark::kMicrosecond);

void ParseSelfClosing_pugixml(benchmark::State& state) {
  const std::string text = SelfClosingAnswer();
  std::string buffer;
  for (auto _ : state) {
    buffer = text;
    pugi::xml_document document;
    document.load_buffer_inplace(buffer.data(), buffer.size());
  }
  Account(state, text.size());
}
BENCHMARK(ParseSelfClosing_pugixml)->Unit(benchmark::kMicrosecond);

// A megabyte of one piece again and again (`#`: its number), between the tags of a root: what a reader that
// searches the text for each tag takes minutes for, or never returns from.
struct CHostile {
  const char* Name;
  std::string Piece, Tail;
};

std::string Repeated(const char* piece, int times) {
  std::string text;
  while (times-- > 0) text += piece;
  return text;
}

const CHostile HOSTILE[] = {
    {"unclosed in turn", "<p><a#></p>", ""},
    {"one name unclosed", "<a>", "</a>"},
    {"nameless", "<>", "</>"},
    {"closing tags only", "<p></", "></p>"},
    {"closing tags in one another", "<p>1</p >" + Repeated("</", 2000) + ">", ""},
    {"crossing", "<a#><b#></a# />>", "</b9></b8></b7></b6></b5></b4></b3></b2></b1></b0>"},
    {"blanks in names", "<p><a\" #\"></p>", ""},
    {"self-closing", "<b><c/></b>", ""},
    {"quotes", "\"\"", "<a>1</a>"},
    {"attributes", "<a b c d e f=\"#\"></a>", ""},
    {"question marks", "?<", "></a>"},
};

void ParseHostile(benchmark::State& state) {
  const CHostile& kind = HOSTILE[state.range(0)];
  std::string text = "<r>";
  for (int i = 0; text.size() < 1000000; ++i) {
    for (const char c : kind.Piece) text += c == '#' ? std::to_string(i) : std::string(1, c);
  }
  state.SetLabel(kind.Name);
  ParseText(state, text + kind.Tail + "</r>");
}
BENCHMARK(ParseHostile)->DenseRange(0, std::ssize(HOSTILE) - 1)->Unit(benchmark::kMillisecond);

void ParseNested(benchmark::State& state) {  // different names, each inside the one before, all closed
  std::string text, closing;
  for (int i = 0; text.size() + closing.size() < 1000000; ++i) {
    text += "<n" + std::to_string(i) + ">";
    closing = "</n" + std::to_string(i) + ">" + closing;
    if (i == 60000) break;
  }
  ParseText(state, text + closing);
}
BENCHMARK(ParseNested)->Unit(benchmark::kMillisecond);

// ---- Writing ----

void BuildAndWriteRequest(benchmark::State& state) {
  CGXTimer timer;
  const CGXTime time(2026, 11, 22, 10, 0, 0);
  size_t bytes = 0;
  for (auto _ : state) {
    CONVIFEnvelope envelope;
    envelope.AppendMSG(new CONVIFLoginHeader("admin", "secret", time, &timer));
    envelope.AddBody()->AddMSG_XMLNS("GetProfiles", NS_ONVIF_MEDIA);
    bytes = envelope.CreateString().Str().size();
  }
  Account(state, bytes);
}
BENCHMARK(BuildAndWriteRequest)->Unit(benchmark::kMicrosecond);

void WriteRequest(benchmark::State& state) {
  CGXTimer timer;
  CONVIFEnvelope envelope;
  envelope.AppendMSG(new CONVIFLoginHeader("admin", "secret", CGXTime(2026, 11, 22, 10, 0, 0), &timer));
  envelope.AddBody()->AddMSG_XMLNS("GetProfiles", NS_ONVIF_MEDIA);
  size_t bytes = 0;
  for (auto _ : state) bytes = envelope.CreateString().Str().size();
  Account(state, bytes);
}
BENCHMARK(WriteRequest)->Unit(benchmark::kMicrosecond);

void WriteProfilesAnswer(benchmark::State& state) {
  std::string buffer = Answer();
  CONVIFMsg* const root = CONVIFMsg::CreateMSG(buffer.data(), static_cast<int>(buffer.size()));
  for (auto _ : state) benchmark::DoNotOptimize(root->CreateString());
  Account(state, Answer().size());
  delete root;
}
BENCHMARK(WriteProfilesAnswer)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
