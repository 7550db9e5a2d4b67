// How the simulated cameras misbehave when told to, and what camsim says when it cannot start.
#include "tests/support/camsim_process.h"
#include "tests/support/eventually.h"

#include <gtest/gtest.h>

namespace {

std::string Soap(const std::string& operation, bool close = true) {
  const std::string body = "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Body><" +
                           operation +
                           " xmlns=\"http://www.onvif.org/ver10/device/wsdl\"/></s:Body></s:Envelope>";
  return "POST /onvif/device_service HTTP/1.1\r\nHost: c\r\n" +
         std::string(close ? "Connection: Close\r\n" : "") + "Content-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

std::string Send(const std::string& request, int ms = 20000, const std::string& until = "") {
  return Exchange("127.0.0.11", 8080, request, ms, until);
}

constexpr char END[] = "</s:Envelope>";

class CamsimHttp : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(m_camsim.Ready()) << m_camsim.Output(); }
  // The answer with these switches, and how long it took: as a rule until the camera closed the connection.
  std::string Ask(const nlohmann::json& switches, const std::string& operation = "GetHostname", int ms = 20000,
                  const std::string& until = "") {
    EXPECT_TRUE(switches.empty() || m_camsim.Quirks(1, switches));
    const auto start = Clock::now();
    std::string answer = Send(Soap(operation), ms, until);
    m_seconds = SecondsSince(start);
    EXPECT_TRUE(m_camsim.Quirks(
        1, {{"http", "normal"}, {"http_keep_open", false}, {"http_continue", false}, {"http_segment_ms", 0}}));
    return answer;
  }
  bool Closed() const { return m_seconds < 15; }  // by the camera, and not at the end of our patience
  CCamsim m_camsim{{"--camera", "ptz"}};
  double m_seconds = 0;
};

struct CFramed {
  long announced;  // -1: no length
  size_t head, body;
};

CFramed Frame(const std::string& answer) {
  const size_t end = answer.find("\r\n\r\n"), at = answer.find("Content-Length: ");
  return {at == std::string::npos || at > end ? -1 : std::atol(answer.c_str() + at + 16), end + 4,
          answer.size() - end - 4};
}

TEST_F(CamsimHttp, AnswersInTheMannerAskedFor) {
  const CFramed normal = Frame(Ask({}));
  EXPECT_EQ(normal.announced, static_cast<long>(normal.body));
  EXPECT_TRUE(Closed());

  const std::string chunked = Ask({{"http", "chunked"}});
  EXPECT_NE(chunked.find("Transfer-Encoding: chunked\r\n"), std::string::npos);
  EXPECT_EQ(Frame(chunked).announced, -1);
  EXPECT_TRUE(chunked.ends_with("\r\n0\r\n\r\n"));

  const CFramed untilClose = Frame(Ask({{"http", "until_close"}}));
  EXPECT_EQ(untilClose.announced, -1);
  EXPECT_EQ(untilClose.body, normal.body);

  const CFramed tooShort = Frame(Ask({{"http", "short_length"}})),
                tooLong = Frame(Ask({{"http", "long_length"}}));
  EXPECT_LT(tooShort.announced, static_cast<long>(tooShort.body));
  EXPECT_GT(tooLong.announced, static_cast<long>(tooLong.body));

  EXPECT_EQ(Ask({{"http_continue", true}}).find("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\n"), 0u);

  EXPECT_TRUE(Ask({{"http_segment_ms", 100}}, "GetCapabilities").ends_with(END));
  EXPECT_GE(m_seconds, 0.1);

  const std::string half = Ask({{"http", "drop_half"}});
  EXPECT_EQ(half.find("HTTP/1.1 200"), 0u);
  EXPECT_FALSE(half.ends_with(END));
  EXPECT_TRUE(Closed());

  EXPECT_EQ(Ask({{"http", "drop"}}), "");
  EXPECT_TRUE(Closed());
  EXPECT_EQ(Ask({{"http", "silence"}}, "GetHostname", 400), "");
  EXPECT_GE(m_seconds, 0.39);
  // A byte a second.
  EXPECT_TRUE(Ask({{"http", "trickle"}}, "GetHostname", 20000, "HTT").starts_with("HTT"));
  EXPECT_GE(m_seconds, 1.9);
  for (const auto& [form, end] :
       {std::pair("pair", "\"></tds:Network>"), {"short", "=\"false\"/>"}, {"spaced", "=\"false\" />"}})
    EXPECT_NE(Ask({{"xml_empty", form}}, "GetServiceCapabilities").find(end), std::string::npos) << form;
}

TEST_F(CamsimHttp, KeepsAConnectionForTheNextRequest) {
  const auto both = [](const std::string& answer) {
    return answer.find("GetHostnameResponse") != std::string::npos &&
           answer.find("GetServicesResponse") != std::string::npos;
  };
  EXPECT_TRUE(both(Send(Soap("GetHostname", false) + Soap("GetServices"))));
  EXPECT_FALSE(both(Send(Soap("GetHostname") + Soap("GetServices"))));
  ASSERT_TRUE(m_camsim.Quirks(1, {{"http_keep_open", true}}));
  EXPECT_TRUE(both(Send(Soap("GetHostname") + Soap("GetServices"), 20000, "GetServicesResponse")))
      << "whatever the client wants";
}

TEST_F(CamsimHttp, FaultsAsCamerasDo) {
  const auto status = [this](const nlohmann::json& switches, const char* operation, const char* subcode) {
    const std::string answer = Ask(switches, operation);
    if (*subcode != '\0') {
      EXPECT_NE(answer.find(subcode), std::string::npos) << answer;
    }
    return std::atoi(answer.c_str() + answer.find(' '));
  };
  EXPECT_EQ(status({}, "GetDeviceInformation", "ACM-20-000001"), 200);
  EXPECT_EQ(status({{"auth_device_info", true}}, "GetDeviceInformation", "ter:NotAuthorized"), 401);
  EXPECT_EQ(status({}, "GetScopes", "ter:NotAuthorized"), 401);
  EXPECT_EQ(status({{"no_get_services", true}}, "GetServices", "ter:ActionNotSupported"), 500);
  EXPECT_EQ(status({}, "Reinvent", "ter:ActionNotSupported"), 500);
  EXPECT_EQ(status({}, "Body></", "ter:WellFormed"), 400);
  const std::string bare = Ask({{"bare_401", true}}, "GetScopes");
  EXPECT_EQ(Frame(bare).body, 0u);
  EXPECT_NE(bare.find("WWW-Authenticate: Digest"), std::string::npos);
  EXPECT_EQ(m_camsim.Camera(1)["requests"]["GetScopes"], 2);
}

TEST_F(CamsimHttp, ARefusedSwitchChangesNothing) {
  EXPECT_FALSE(m_camsim.Quirks(1, {{"http", "chunked"}, {"no_such", true}}));
  EXPECT_FALSE(m_camsim.Quirks(1, {{"http", "sideways"}}));
  EXPECT_FALSE(m_camsim.Quirks(1, {{"clock_offset", "soon"}}));
  EXPECT_FALSE(m_camsim.Quirks(2, {{"http", "chunked"}}));
  EXPECT_EQ(m_camsim.Camera(1)["quirks"]["http"], "normal");
}

TEST_F(CamsimHttp, EndsAtOnceAndWhenAskedTo) {
  ASSERT_TRUE(m_camsim.Quirks(1, {{"http", "trickle"}}));
  EXPECT_TRUE(Send(Soap("GetHostname"), 20000, "H").starts_with("H"));
  const auto start = Clock::now();
  EXPECT_EQ(m_camsim.End(), 0);
  EXPECT_LT(SecondsSince(start), 15) << "an answer that takes minutes is not waited for";
}

TEST(CamsimStart, SaysWhatIsWrong) {
  CCamsim first({"--camera", "ptz"});
  ASSERT_TRUE(first.Ready()) << first.Output();
  const struct {
    std::vector<std::string> arguments;
    const char* message;
  } cases[] = {
      {{"--camera", "toaster"}, "no kind of camera is called 'toaster'"},
      {{"--camera-at", "ptz"}, "--camera-at takes ADDRESS:KIND, not 'ptz'"},
      {{"--quirk", "warp=9"}, "no quirk is called 'warp'"},
      {{"--quirk", "9:http=normal"}, "there is no such camera"},
      {{"--quirk", "http=fast"}, "not 'fast'"},
      {{"--interface", "nonesuch0"}, "the interface nonesuch0 does not exist"},
      {{"--password-env", "NO_SUCH_VARIABLE"}, "the environment variable NO_SUCH_VARIABLE"},
      {{"--camera-at", "127.0.0.30:door", "--control", "nowhere"},
       "the control address nowhere cannot be used"},
      {{"--sideways"}, "--sideways"},
      {{"--camera", "ptz"}, "cannot listen on 127.0.0.11:8080"},
      {{"--camera", "ptz", "--http-port", "8081"}, "cannot listen on 127.0.0.11:8554 (RTSP)"},
      {{"--camera-at", "127.0.0.30:door"}, "the control address 127.0.0.10:8900 cannot be used"},
  };
  for (const auto& wrong : cases) {
    CCamsim camsim(wrong.arguments);
    EXPECT_FALSE(camsim.Ready());
    EXPECT_NE(camsim.Output().find(wrong.message), std::string::npos) << camsim.Output();
    EXPECT_NE(camsim.End(), 0);
  }
  EXPECT_FALSE(first.Post("/quit", nlohmann::json::object()).is_null());
}

}  // namespace
