#include "onvif/onvif.h"

#include "host/base/gxtime.h"
#include "host/net/http.h"
#include "onvif/namespaces.h"
#include "onvif/soap_request.h"
#include "util/gxtimer.h"
#include "util/numbers.h"

#include <algorithm>
#include <memory>
#include <string_view>

namespace {

constexpr char SCHEME[] = "HTTP:";
constexpr int SCHEME_LENGTH = 5;
constexpr unsigned short HTTP_PORT = 80;
constexpr char HEADER_END[] = "\r\n\r\n";

// The number that the text begins with; 0 for any other text.
int Number(const CGXString& text) {
  return LeadingNumber<int>(text.Str()).value_or(0);
}

CGXString RequestText(const CGXString& address, const CGXString& path, const CGXString& action,
                      const CGXString& ns, const CONVIFMsg& envelope) {
  CHTTPHeader header;
  header.Command("POST " + path);
  header.Host(address);
  header.Language("");
  header.UserAgent("");
  header.Accept("");
  header.ContentType("application/soap+xml; charset=utf-8; action=\"" + ns + "/" + action + "\"");
  header.Connection("Close");
  header.Content(envelope.CreateString());
  return header.CreateString();
}

// The XML behind the HTTP headers. Neither the status nor a header is looked at: a fault is an answer too.
CONVIFMsg* ReadAnswer(CHTMLPage* page) {
  const std::string_view bytes(page->Data(), static_cast<size_t>(page->NBytes()));
  const size_t end = bytes.find(HEADER_END);
  if (end == std::string_view::npos) return nullptr;
  const int body = static_cast<int>(end) + 4;
  return CONVIFMsg::CreateMSG(page->Data() + body, page->NBytes() - body);
}

}  // namespace

// ---- Attribute texts ----

CGXString CONVIF::FormatXMLNS(CGXString uri) {
  return "xmlns=\"" + uri + "\"";
}

CGXString CONVIF::FormatXMLNS(CGXString prefix, CGXString uri) {
  return "xmlns:" + prefix + "=\"" + uri + "\"";
}

CGXString CONVIF::Prefix(CGXString prefix, CGXString name) {
  return prefix + ":" + name;
}

// ---- Queries ----

bool CONVIF::SplitURL(const CGXString& url, CGXString* address, CGXString* path) {
  if (url.Left(SCHEME_LENGTH).CompareNoCase(SCHEME) != 0) return false;
  CGXString rest = url.Mid(SCHEME_LENGTH);
  rest.TrimLeft('/');
  const int slash = rest.Find('/');
  if (slash <= 0) return false;
  *address = rest.Left(slash);
  *path = rest.Mid(slash);
  return true;
}

CONVIFMsg* CONVIF::DoQuery_HTTP(CGXString url, CGXString action, CGXString ns, int timeout) {
  return CSOAPRequest(url, action, ns, nullptr).Send(timeout).release();
}

CONVIFMsg* CONVIF::DoQuery_HTTP(CGXString url, CGXString action, CGXString ns, CONVIFMsg* envelope,
                                int timeout) {
  CGXString address, path;
  if (!SplitURL(url, &address, &path)) return nullptr;
  const std::unique_ptr<CHTMLPage> page(DoHTTPExchange(
      address, RequestText(address, path, action, ns, *envelope), nullptr, 0, HTTP_PORT, timeout));
  return page != nullptr ? ReadAnswer(page.get()) : nullptr;
}

CONVIFMsg* CONVIF::DoQuery_HTTP_Security(CGXString url, CGXString user, CGXString password, CGXString action,
                                         CGXString ns, int timeout) {
  const std::unique_ptr<CONVIFMsg> answer(DoQuery_HTTP(url, "GetSystemDateAndTime", NS_ONVIF_DEVICE, timeout));
  CGXTime cameraTime;
  if (answer == nullptr || !ReadCameraTime(*answer, &cameraTime)) return nullptr;
  CGXTimer sinceClockRead;
  auto* const login = new CONVIFLoginHeader(user, password, cameraTime, &sinceClockRead);
  return CSOAPRequest(url, action, ns, login).Send(timeout).release();
}

// "Time" and "Date" are looked for from UTCDateTime
// on, which has both in its own name: the fields are found wherever in it a camera puts them.
bool CONVIF::ReadCameraTime(const CONVIFMsg& answer, CGXTime* time) {
  const CONVIFMsg* const utc = answer.FindSubMSG("UTCDateTime");
  if (utc == nullptr) return false;
  const CONVIFMsg* const clock = utc->FindSubMSG("Time");
  const CONVIFMsg* const date = utc->FindSubMSG("Date");
  if (clock == nullptr || date == nullptr) return false;
  time->Hour(Number(clock->FindSubMSGValue("Hour", 0)));
  time->Minute(Number(clock->FindSubMSGValue("Minute", 0)));
  time->Second(Number(clock->FindSubMSGValue("Second", 0)));
  time->Year(Number(date->FindSubMSGValue("Year", 0)));
  time->Month(Number(date->FindSubMSGValue("Month", 0)));
  time->Day(Number(date->FindSubMSGValue("Day", 0)));
  return true;
}

// ---- Texts ----

CGXString CONVIF::GenerateRandomHex(int count) {
  std::string digits;
  for (int i = 0; i < count; ++i) digits += "0123456789abcdef"[rand() % 16];
  return digits;
}

// Without the bits that say how it was made: cameras only compare it, and some limit it to this form.
CGXString CONVIF::GenerateMSGID() {
  CGXString id = "uuid:";
  id += GenerateRandomHex(8);
  for (const int digits : {4, 4, 4, 12}) id += "-" + GenerateRandomHex(digits);
  return id;
}

// Only a blank ends a word. Answers lose their line breaks when they are parsed; one that is still there came
// in the middle of an address, which cameras know as a whole.
void CONVIF::Split(CGXString text, CGXObList* words) {
  const char* p = text;
  const char* const end = p + text.GetLength();
  for (;;) {
    while (p < end && (*p == ' ' || *p == '\r' || *p == '\n')) ++p;
    const int length = LengthToDelim(p, ' ', static_cast<int>(end - p));
    if (length == 0) return;
    words->AddTail(new CGXString(p, length));
    p += length;
  }
}

int CONVIF::LengthToDelim(const char* text, char delimiter, int length) {
  bool inQuotes = false;
  for (int i = 0; i < length; ++i) {
    if (text[i] == '"') inQuotes = !inQuotes;
    if (text[i] == delimiter && !inQuotes) return i;
  }
  return length;
}
