// SOAP queries: what goes over the wire, and what is made of the answers.
#include "onvif/namespaces.h"
#include "onvif/onvif.h"
#include "onvif/soap_request.h"
#include "onvif/string_list.h"
#include "tests/media_support.h"

#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>

namespace {

constexpr int TIMEOUT_MS = 30000;
constexpr int IN_VAIN_MS = 700;  // where the wait is for nothing
const std::string HEAD =
    "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" "
    "xmlns:a=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\">";
const std::string BODY =
    "<s:Body xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
    "xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\">";
const std::string GET_PROFILES =
    "<GetProfiles xmlns=\"http://www.onvif.org/ver10/media/wsdl\"/></s:Body></s:Envelope>";
const std::string TIME_ANSWER =
    "<e:Envelope><e:Body><tds:GetSystemDateAndTimeResponse><tds:SystemDateAndTime><tt:UTCDateTime><tt:Time>"
    "<tt:Hour>23</tt:Hour><tt:Minute>59</tt:Minute><tt:Second>7</tt:Second></tt:Time><tt:Date><tt:Year>2031"
    "</tt:Year><tt:Month>1</tt:Month><tt:Day>2</tt:Day></tt:Date></tt:UTCDateTime></tds:SystemDateAndTime>"
    "</tds:GetSystemDateAndTimeResponse></e:Body></e:Envelope>";

CGXString URL(const CScriptedServer& server, const char* start = "http://", const char* path = "/onvif/media") {
  return (start + ("127.0.0.1:" + std::to_string(server.Port())) + path).c_str();
}

std::unique_ptr<CONVIFMsg> Query(const CGXString& url) {
  return std::unique_ptr<CONVIFMsg>(CONVIF::DoQuery_HTTP(url, "GetProfiles", NS_ONVIF_MEDIA, TIMEOUT_MS));
}

TEST(Query, SendsOneRequest) {
  CScriptedServer server([](const std::string&) { return HTTPAnswer("<r><t:GetProfilesResponse/></r >"); });
  ASSERT_NE(Query(URL(server, "HTTP:///", "/onvif/media\r\nX-Evil: 1")), nullptr);  // a path adds no line
  ASSERT_EQ(server.Requests().size(), 1U);
  const std::string envelope = HEAD + BODY + GET_PROFILES;
  EXPECT_EQ(server.Request(0),
            "POST /onvif/mediaX-Evil: 1 HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.Port()) +
                "\r\nContent-Type: application/soap+xml; charset=utf-8; "
                "action=\"http://www.onvif.org/ver10/media/wsdl/GetProfiles\"\r\nContent-Length: " +
                std::to_string(envelope.size()) + "\r\nConnection: Close\r\n\r\n" + envelope);
}

TEST(Query, TakesAnyXmlForAnAnswer) {
  const struct {
    const char *Answer, *Name;
  } cases[] = {
      {"HTTP/1.1 500 Internal Server Error\r\n\r\n<e:Envelope><e:Fault><a>1</a></e:Fault></e:Envelope>",
       "e:Fault"},
      {"HTTP/1.1 401 Unauthorized\r\nContent-Type: text/html\r\n\r\n<html><h1>no</h1></html>", "h1"},
      {"HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", nullptr},
      {"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok", nullptr},
      {"HTTP/1.1 200 OK\r\nContent-Length: 12", nullptr},
      {"", nullptr}};
  for (const auto& c : cases) {
    CScriptedServer server([&](const std::string&) { return c.Answer; });
    const std::unique_ptr<CONVIFMsg> answer(CONVIF::DoQuery_HTTP(URL(server), "GetProfiles", NS_ONVIF_MEDIA,
                                                                 c.Name != nullptr ? TIMEOUT_MS : IN_VAIN_MS));
    EXPECT_EQ(answer != nullptr, c.Name != nullptr) << c.Answer;
    EXPECT_TRUE(answer == nullptr || answer->FindSubMSG(c.Name) != nullptr) << c.Answer;
  }
}

TEST(Query, SplitsAddresses) {
  CStringList words;
  CONVIF::Split(" \r\nhttp://a/x  \nhttp://b/\"q r\"\ny z ", &words);
  std::string joined;
  for (CGXPos position = words.GetHeadPosition(); position;) joined += "[" + words.Next(position)->Str() + "]";
  EXPECT_EQ(joined, "[http://a/x][http://b/\"q r\"\ny][z]");
}

TEST(Query, NeedsAnHttpUrlWithAPath) {
  CGXString address, path;
  const struct {
    const char *Url, *Address, *Path;
  } cases[] = {{"http://10.0.0.1/onvif/device_service", "10.0.0.1", "/onvif/device_service"},
               {"HTTP://cam:8080/", "cam:8080", "/"},
               {"http:cam/x/y", "cam", "/x/y"},
               {"http:////cam//x", "cam", "//x"}};
  for (const auto& c : cases) {
    EXPECT_TRUE(CONVIF::SplitURL(c.Url, &address, &path)) << c.Url;
    EXPECT_EQ(address, c.Address);
    EXPECT_EQ(path, c.Path);
  }
  for (const char* url :
       {"http://10.0.0.1", "https://10.0.0.1/x", "10.0.0.1/x", "http:", "http:///", "", "htt"}) {
    EXPECT_FALSE(CONVIF::SplitURL(url, &address, &path)) << url;
    EXPECT_EQ(Query(url), nullptr) << url;
  }
}

TEST(Query, LogsInWithTheCamerasClock) {
  CScriptedServer server([](const std::string& request) {
    return HTTPAnswer(request.find("GetSystemDateAndTime") != std::string::npos
                          ? TIME_ANSWER
                          : "<r><t:GetProfilesResponse></t:GetProfilesResponse> </r>");
  });
  const std::unique_ptr<CONVIFMsg> answer(
      CONVIF::DoQuery_HTTP_Security(URL(server), "admin", "pw", "GetProfiles", NS_ONVIF_MEDIA, TIMEOUT_MS));
  ASSERT_NE(answer, nullptr);
  EXPECT_NE(answer->FindResponseMSG("GetProfiles"), nullptr);
  ASSERT_EQ(server.Requests().size(), 2U);
  EXPECT_TRUE(server.Request(0).ends_with(
      BODY + "<GetSystemDateAndTime xmlns=\"http://www.onvif.org/ver10/device/wsdl\"/></s:Body></s:Envelope>"));
  const std::string request = server.Request(1);
  EXPECT_NE(request.find("\r\n\r\n" + HEAD + "<s:Header><Security "), request.npos) << request;
  EXPECT_TRUE(std::regex_search(request, std::regex(">2031-01-02T23:59:[0-5][0-9]\\.000Z</Created>")))
      << request;
  EXPECT_TRUE(request.ends_with("</s:Header>" + BODY + GET_PROFILES)) << request;
}

TEST(Query, LogsInWithAnyClockButNotWithoutOne) {
  const std::pair<const char*, size_t> cases[] = {
      {"<r><a>1</a></r >", 1},
      {"<r><UTCDate>1</UTCDate></r >", 1},
      {"nothing", 1},
      {"<r><UTCDateTime><Hour>99999999999999999999</Hour><Minute>-1</Minute><Second>x</Second><Year>2147483647"
       "</Year><Month>2147483647</Month><Day>-2147483648</Day></UTCDateTime></r >",
       2}};
  for (const auto& [clock, requests] : cases) {
    CScriptedServer server([text = clock](const std::string&) { return HTTPAnswer(text); });
    const std::unique_ptr<CONVIFMsg> answer(
        CONVIF::DoQuery_HTTP_Security(URL(server), "u", "p", "GetProfiles", NS_ONVIF_MEDIA, TIMEOUT_MS));
    EXPECT_EQ(answer != nullptr, requests == 2);
    EXPECT_EQ(server.Requests().size(), requests) << clock;
  }
}

// What a camera refuses, in its own words: fit for one line, and blamed on the login only when it is the
// login's.
TEST(Query, AFaultSaysWhatWasRefused) {
  const auto fault = [](const std::string& subcode, const std::string& text) {
    std::string xml = "<s:Envelope><s:Body><s:Fault><s:Code><s:Value>s:Sender</s:Value><s:Subcode><s:Value>" +
                      subcode + "</s:Value></s:Subcode></s:Code><s:Reason><s:Text>" + text +
                      "</s:Text></s:Reason></s:Fault></s:Body></s:Envelope>";
    const std::unique_ptr<CONVIFMsg> answer(CONVIFMsg::CreateMSG(xml.data(), static_cast<int>(xml.size())));
    return CSOAPFault::Of(answer.get());
  };
  EXPECT_TRUE(fault("ter:NotAuthorized", "no").OfLogin);
  EXPECT_TRUE(fault("wsse:FailedAuthentication", "no").OfLogin);
  EXPECT_FALSE(fault("ter:InvalidArgVal", "NotAuthorized").OfLogin);
  EXPECT_EQ(fault("ter:InvalidArgVal", "no such \x1b[31mthing\xc2\x9b").Text, "no such ?[31mthing?");
  EXPECT_EQ(fault("ter:InvalidArgVal", "").Text, "ter:InvalidArgVal");
  const CGXString longest = fault("x", std::string(196, 'a') + "\xc3\xa4" + std::string(1000, 'b')).Text;
  EXPECT_EQ(longest.Str(), std::string(196, 'a') + "...");  // not in the middle of a letter
  EXPECT_TRUE(CSOAPFault::Of(nullptr).Text.IsEmpty());
}

}  // namespace
