// What the simulated cameras report by themselves: notifications to subscribers and alarm datagrams.
#include "tests/camera_support.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Json = nlohmann::json;

constexpr int CONSUMER_PORT = 8795;
constexpr int PATIENCE_MS = 20000;

sockaddr_in At(const char* address, int port) {
  sockaddr_in at{};
  at.sin_family = AF_INET;
  at.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address, &at.sin_addr);
  return at;
}

bool Readable(int fd, int ms = PATIENCE_MS) {
  pollfd ready{fd, POLLIN, 0};
  return poll(&ready, 1, ms) == 1;
}

// Where notifications arrive: takes one a call and answers as told.
class CConsumer {
 public:
  CConsumer() : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    setsockopt(m_listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in at = At("127.0.0.1", CONSUMER_PORT);
    EXPECT_EQ(bind(m_listener, reinterpret_cast<const sockaddr*>(&at), sizeof at), 0);
    EXPECT_EQ(listen(m_listener, 4), 0);
  }
  ~CConsumer() { close(m_listener); }

  bool Asked(int ms) const { return Readable(m_listener, ms); }

  // A request up to the length that it announces, or up to its end when it announces none; `pieces` counts the
  // reads.
  std::string Take(const std::string& answer, int* pieces) const {
    if (!Readable(m_listener)) return "";
    const int fd = accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
    std::string got;
    char buffer[8192];
    for (*pieces = 0; !Complete(got) && Readable(fd); ++*pieces) {
      const ssize_t n = recv(fd, buffer, sizeof buffer, 0);
      if (n <= 0) break;
      got.append(buffer, static_cast<size_t>(n));
    }
    EXPECT_EQ(send(fd, answer.data(), answer.size(), MSG_NOSIGNAL), static_cast<ssize_t>(answer.size()));
    close(fd);
    return got;
  }

 private:
  static bool Complete(const std::string& got) {
    const size_t body = got.find("\r\n\r\n"), length = got.find("Content-Length: ");
    return body != std::string::npos && length < body &&
           got.size() >= body + 4 + std::strtoul(got.c_str() + length + 16, nullptr, 10);
  }
  int m_listener;
};

std::string Soap(const std::string& path, const std::string& operation) {
  const std::string body = R"(<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"><s:Body>)" +
                           operation + "</s:Body></s:Envelope>";
  return Exchange("127.0.0.11", 8080,
                  "POST " + path + " HTTP/1.1\r\nHost: a\r\nAuthorization: Basic YWRtaW46c2VjcmV0\r\n" +
                      "Connection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                      body);
}

std::string Subscribe(const char* term) {
  return Soap("/onvif/event_service",
              R"(<Subscribe xmlns="http://docs.oasis-open.org/wsn/b-2"><ConsumerReference>)"
              "<a:Address xmlns:a=\"http://www.w3.org/2005/08/addressing\">http://127.0.0.1:8795/subscribe"
              "</a:Address></ConsumerReference><InitialTerminationTime>" +
                  std::string(term) + "</InitialTerminationTime></Subscribe>");
}

TEST(CamsimReport, NotifiesSubscribersInEveryManner) {
  CCamsim sim({"--camera", "ptz"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  const CConsumer consumer;
  const auto count = [&](const char* what) { return sim.Camera(1)["notifications"].value(what, -1); };
  // Nobody has subscribed: nobody is told.
  ASSERT_FALSE(sim.Post("/cameras/1/motion", {{"on", true}}).is_null());
  ASSERT_TRUE(Eventually(20, [&] { return count("pending") == 0; }));
  ASSERT_NE(Subscribe("PT1H").find("TerminationTime"), std::string::npos);
  ASSERT_NE(Subscribe("PT1H").find("/onvif/subscription/1<"), std::string::npos) << "a second one renews";
  EXPECT_EQ(sim.Camera(1)["subscriptions"].size(), 1u);
  int told = 0, accepted = 0;
  // Raises motion or ends it; how many pieces its notification came in.
  const auto tell = [&](const std::string& manner, bool on) {
    const bool length = manner != "no_length";
    EXPECT_TRUE(sim.Quirks(1, {{"notify", manner}}));
    EXPECT_EQ(sim.Post("/cameras/1/motion", {{"on", on}})["motion"], on);
    int pieces = 0;
    const std::string got = consumer.Take(length ? "HTTP/1.1 202 Accepted\r\n\r\n" : "", &pieces);
    EXPECT_TRUE(got.starts_with("POST /subscribe HTTP/1.1\r\nHost: 127.0.0.1:8795\r\n")) << manner << got;
    EXPECT_EQ(got.find("Content-Length") != std::string::npos, length) << manner;
    EXPECT_NE(got.find(std::string("<tt:Data><tt:SimpleItem Name=\"IsMotion\" Value=\"") +
                       (on ? "true\">" : "false\">")),
              std::string::npos)
        << got;
    EXPECT_LT(got.size(), 4000u);
    ++told;
    accepted += length ? 1 : 0;
    EXPECT_TRUE(Eventually(20, [&] { return count("sent") == told && count("accepted") == accepted; }))
        << manner;
    return pieces;
  };
  tell("whole", true);
  // A busy machine may read them all at once.
  EXPECT_TRUE(Eventually(20, [&] { return tell("pieces", false) > 1; }));
  tell("no_length", true);

  for (const Json& bad : {Json{{"on", 1}}, Json{{"on", true}, {"times", 0}}, Json::object()})
    EXPECT_TRUE(sim.Post("/cameras/1/motion", bad).is_null()) << bad;
}

TEST(CamsimReport, EachNotificationIsOneEventOfTheDriver) {
  ASSERT_TRUE(SetNetworkInterface("lo"));
  CCamsim sim({"--camera", "ptz"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  int events = 0;
  CEventServer::Instance()->Receiver([&](const GXT_EVENT& event) { events += event.Event == 2275; });
  const std::unique_ptr<CONVIFCam> camera = StaticCamera(SimURL(1));
  ASSERT_TRUE(Eventually(60, [&] { return camera->CheckRunState(); }));
  ASSERT_EQ(sim.Camera(1)["subscriptions"].size(), 1u);
  // The listener may still be on its way to its port.
  const auto counts = [&] { return sim.Camera(1)["notifications"]; };
  ASSERT_TRUE(Eventually(20, [&] {
    sim.Post("/cameras/1/motion", {{"on", false}});
    return counts()["accepted"] > 0;
  }));
  ASSERT_TRUE(Eventually(20, [&] { return counts()["pending"] == 0; }));
  const Json before = counts();
  int expected = 0, sent = before["sent"];
  const auto tell = [&](bool on, int times) {
    ASSERT_FALSE(sim.Post("/cameras/1/motion", {{"on", on}, {"times", times}}).is_null());
    expected += on ? times : 0;
    sent += times;
    EXPECT_TRUE(Eventually(120, [&] { return counts()["sent"] == sent; }));
    EXPECT_TRUE(Eventually(20, [&] {
      CEventServer::Instance()->DispatchEvents();
      return events >= expected && camera->MotionLevel() == (on ? 100 : 0);
    }));
    EXPECT_EQ(events, expected);
  };
  tell(true, 1000);
  tell(false, 1);
  for (const char* manner : {"pieces", "no_length"}) {
    ASSERT_TRUE(sim.Quirks(1, {{"notify", manner}}));
    tell(true, 20);
    tell(false, 1);
  }
  EXPECT_EQ(counts()["failed"], before["failed"]);
  CEventServer::Instance()->Receiver({});
}

TEST(CamsimReport, StopsWhenTheSubscriptionLapses) {
  CCamsim sim({"--camera", "ptz"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  const CConsumer consumer;
  const auto left = [&] {
    const Json all = sim.Camera(1)["subscriptions"];
    return all.empty() ? 0.0 : all[0]["seconds_left"].get<double>();
  };
  Subscribe("PT1M");
  EXPECT_LT(left(), 61);
  const std::string renewed =
      Soap("/onvif/subscription/1", R"(<Renew xmlns="http://docs.oasis-open.org/wsn/b-2">)"
                                    "<TerminationTime>PT5M</TerminationTime></Renew>");
  EXPECT_NE(renewed.find("RenewResponse"), std::string::npos) << renewed;
  EXPECT_GT(left(), 200);
  Subscribe("PT1S");
  EXPECT_TRUE(Eventually(20, [&] { return sim.Camera(1)["subscriptions"].empty(); }));
  ASSERT_FALSE(sim.Post("/cameras/1/motion", {{"on", true}, {"times", 3}}).is_null());
  EXPECT_TRUE(Eventually(20, [&] { return sim.Camera(1)["notifications"]["pending"] == 0; }));
  EXPECT_EQ(sim.Camera(1)["notifications"]["sent"], 0);
  EXPECT_FALSE(consumer.Asked(0));

  Subscribe("PT1M");
  const std::string gone =
      Soap("/onvif/subscription/2", R"(<Unsubscribe xmlns="http://docs.oasis-open.org/wsn/b-2"/>)");
  EXPECT_NE(gone.find("UnsubscribeResponse"), std::string::npos) << gone;
  EXPECT_TRUE(sim.Camera(1)["subscriptions"].empty());
}

TEST(CamsimReport, SendsAlarmsToTheGroup) {
  CCamsim sim({"--camera", "ptz", "--camera", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in any = At("0.0.0.0", 30004);
  ip_mreq group{};
  group.imr_multiaddr = At("239.255.30.4", 0).sin_addr;
  group.imr_interface = At("127.0.0.1", 0).sin_addr;
  ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
  ASSERT_EQ(setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group), 0);

  EXPECT_TRUE(sim.Post("/cameras/1/alarm", {{"on", true}}).is_null()) << "another brand";
  EXPECT_EQ(sim.Post("/cameras/2/alarm", {{"on", true}, {"times", 2}})["alarms_sent"], 2);
  EXPECT_EQ(sim.Post("/cameras/2/alarm", {{"on", false}})["alarm"], false);
  for (const char* flag : {"1", "1", "0"}) {
    ASSERT_TRUE(Readable(fd));
    unsigned char bytes[4096] = {};
    sockaddr_in from{};
    socklen_t size = sizeof from;
    const ssize_t n = recvfrom(fd, bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&from), &size);
    ASSERT_GT(n, 100);
    EXPECT_EQ(from.sin_addr.s_addr, At("127.0.0.12", 0).sin_addr.s_addr);
    EXPECT_EQ((std::vector<int>(bytes + 24, bytes + 28)), (std::vector<int>{0, 0, 2, 0x2a}));
    EXPECT_EQ(bytes[98] * 256 + bytes[99], n - 100);
    const std::string text(bytes + 100, bytes + n);
    EXPECT_EQ(text.find("<AlarmInfoEx DeviceId=\"ORV000000002\""), 0u) << text;
    EXPECT_NE(text.find(std::string(" AlarmFlag=\"") + flag + "\""), std::string::npos) << text;
  }
  close(fd);
}

}  // namespace
