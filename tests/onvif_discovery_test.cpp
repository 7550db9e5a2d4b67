// Finding cameras: the probe, answers of any kind, identity, and whole searches among simulated cameras.
#include "host/gxthread.h"
#include "host/socket.h"
#include "host/system.h"
#include "onvif/devfinder.h"
#include "onvif/onvif.h"
#include "tests/media_support.h"
#include "tests/support/camsim_process.h"
#include "tests/support/eventually.h"
#include "util/owned_socket.h"
#include "util/string_list.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

std::string Join(const CStringList& words) {
  std::string text;
  for (CGXPos position = words.GetHeadPosition(); position;) text += "[" + words.Next(position)->Str() + "]";
  return text;
}

std::string ProbeMatch(const std::string& addresses) {
  return "<?xml version=\"1.0\"?><e:Envelope><e:Body><d:ProbeMatches><d:ProbeMatch><d:XAddrs>" + addresses +
         "</d:XAddrs></d:ProbeMatch></d:ProbeMatches></e:Body></e:Envelope>";
}

// Takes probes on the loopback interface, as a camera does, and answers each with the datagrams given.
class CResponder {
 public:
  explicit CResponder(std::vector<std::string> answers) : m_Answers(std::move(answers)) {
    const int on = 1;
    setsockopt(m_Socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(3702);
    ip_mreq group{};
    group.imr_multiaddr.s_addr = inet_addr("239.255.255.250");
    group.imr_interface.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(bind(m_Socket.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    EXPECT_EQ(setsockopt(m_Socket.Get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group), 0);
    m_Thread = std::thread([this] { Serve(); });
  }
  // Those that came, once the responder has ended.
  const std::vector<std::string>& Probes() {
    m_bEnd = true;
    if (m_Thread.joinable()) m_Thread.join();
    return m_Probes;
  }
  ~CResponder() { Probes(); }

 private:
  void Serve() {
    while (!m_bEnd) {
      if (!WaitSocketReadState(m_Socket.Get(), 20)) continue;
      char bytes[4096];
      sockaddr_in sender{};
      socklen_t size = sizeof sender;
      const ssize_t length =
          recvfrom(m_Socket.Get(), bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&sender), &size);
      if (length <= 0) continue;
      m_Probes.emplace_back(bytes, static_cast<size_t>(length));
      for (const std::string& answer : m_Answers)
        sendto(m_Socket.Get(), answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&sender), size);
    }
  }

  std::vector<std::string> m_Answers, m_Probes;
  std::atomic<bool> m_bEnd{false};
  COwnedSocket m_Socket{socket(AF_INET, SOCK_DGRAM, 0)};
  std::thread m_Thread;
};

class Discovery : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(SetNetworkInterface("lo")); }
};

// ---- Answers ----

TEST_F(Discovery, ReadsTheAddressesOfAnAnswer) {
  const struct {
    std::string Addresses;
    const char* Urls;
  } cases[] = {{"http://10.0.0.1/a", "[http://10.0.0.1/a]"},
               {"http://10.0.0.1/a http://10.0.0.2/b", "[http://10.0.0.1/a][http://10.0.0.2/b]"},
               {"  http://c/1  http://c/2 http://c/3 http://c/1 ", "[http://c/1][http://c/2][http://c/3]"},
               {"https://10.0.0.1/a", ""},
               {"https://s/a http://h/b soap.udp://u", "[http://h/b]"},
               {"http://h/\"a b\" http:", "[http://h/\"a b\"][http:]"},
               {"", ""}};
  for (const auto& c : cases) {
    CStringList urls;
    for (int twice = 0; twice < 2; ++twice) {
      std::string answer = ProbeMatch(c.Addresses);
      CONVIF::ReadProbeAnswer(answer.data(), static_cast<int>(answer.size()), &urls);
    }
    EXPECT_EQ(Join(urls), c.Urls) << c.Addresses;
  }
  CStringList urls;
  std::string many;
  for (int i = 0; i < 5000; ++i) many += "http://" + std::to_string(i) + "/ ";
  many = ProbeMatch(many);
  CONVIF::ReadProbeAnswer(many.data(), static_cast<int>(many.size()), &urls);
  EXPECT_EQ(urls.GetCount(), 512);  // more than a site has; each costs a time-out when nobody is there
}

TEST_F(Discovery, ProbesAndSurvivesWhoeverAnswers) {
  CResponder responder({"", "nonsense", "<", std::string(60000, '<'), std::string("<a>\0</a>", 8),
                        ProbeMatch("http://127.0.0.77/x http://127.0.0.78/y"),
                        ProbeMatch("http://127.0.0.77/x")});
  const COwnedSocket probe(CreateMulticastSocket());
  ASSERT_TRUE(CONVIF::TransmitDiscoveryProbe(probe.Get()));
  CStringList urls;
  testing::internal::CaptureStdout();
  CONVIF::ListenForDeviceURL(probe.Get(), &urls);
  fflush(stdout);
  const std::string output = testing::internal::GetCapturedStdout();
  EXPECT_EQ(Join(urls), "[http://127.0.0.77/x][http://127.0.0.78/y]");
  EXPECT_TRUE(std::regex_match(output, std::regex("(Recv from 127\\.0\\.0\\.1\r\n)+"))) << output;

  CStringList none;
  const auto start = Clock::now();
  CONVIF::ListenForDeviceURL(probe.Get(), &none);  // nobody speaks any more
  EXPECT_GE(SecondsSince(start), 0.4);
  EXPECT_TRUE(none.IsEmpty());
  ASSERT_EQ(responder.Probes().size(), 1U);
  const std::string text =
      "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\" "
      "xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
      "xmlns:wsd=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" "
      "xmlns:wsdp=\"http://www.onvif.org/ver10/network/wsdl\"><soap:Header>"
      "<wsa:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</wsa:To>"
      "<wsa:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</wsa:Action><wsa:MessageID>*</"
      "wsa:MessageID>"
      "</soap:Header><soap:Body><wsd:Probe xmlns=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\">"
      "<wsd:Types "
      "xmlns=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\">wsdp:NetworkVideoTransmitter</wsd:Types>"
      "</wsd:Probe></soap:Body></soap:Envelope>";
  EXPECT_EQ(std::regex_replace(responder.Probes()[0], std::regex("uuid:[0-9a-f-]{36}"), "*"), text);
}

// ---- Who is there ----

const std::string INFORMATION =
    "<e:Envelope><e:Body><tds:GetDeviceInformationResponse><tds:Manufacturer>Maker</"
    "tds:Manufacturer><tds:Model>M 1"
    "</tds:Model><tds:FirmwareVersion>1.0</tds:FirmwareVersion><tds:SerialNumber>S1</tds:SerialNumber>"
    "</tds:GetDeviceInformationResponse></e:Body></e:Envelope>";
const std::string CLOCK = "<r><UTCDateTime><Hour>1</Hour></UTCDateTime> </r>";
const std::string FAULT = "<r><e:Fault><a>1</a></e:Fault> </r>";

// What one camera at `host` is asked, as "operation[+login] ...", and whether it was taken for one.
std::string Ask(const std::string& host, const std::string& plain, const std::string& loggedIn) {
  std::string asked;
  std::string device = "null";
  {
    CScriptedServer server([&](const std::string& request) {
      const bool login = request.find("UsernameToken") != std::string::npos;
      const bool clock = request.find("<GetSystemDateAndTime") != std::string::npos;
      asked += clock ? "clock " : login ? "login " : "plain ";
      return HTTPAnswer(clock ? CLOCK : login ? loggedIn : plain);
    });
    const std::string url = "http://" + host + ":" + std::to_string(server.Port()) + "/onvif/device_service";
    const std::unique_ptr<CONVIFDevice> found(CONVIF::QueryDeviceAtURL(url, "admin", "secret"));
    if (found != nullptr) {
      device = found->Manufacturer().Str() + "|" + found->Model().Str() + "|" + found->Firmware().Str() + "|" +
               found->SerialNo().Str() + "|" + found->HardwareID().Str();
      EXPECT_EQ(found->ServiceURL(), url.c_str());
    }
  }
  return asked + device;
}

TEST_F(Discovery, AsksACameraWhoItIs) {
  const std::string maker = "Maker|M 1|1.0|S1|";
  EXPECT_EQ(Ask("127.0.0.1", INFORMATION, FAULT), "plain " + maker);
  EXPECT_EQ(Ask("localhost", INFORMATION, FAULT), "plain " + maker);           // a name is asked
  EXPECT_EQ(Ask("127.0.0.1", "", INFORMATION), "plain clock login " + maker);  // an answer without XML
  EXPECT_EQ(Ask("127.0.0.1", "", FAULT), "plain clock login clock login null");
  EXPECT_EQ(Ask("127.0.0.1", FAULT, INFORMATION), "plain clock login null");  // a fault ends it
  EXPECT_EQ(Ask("0.0.0.0", INFORMATION, INFORMATION), "null");  // this machine too, but a number elsewhere
}

// ---- Whole searches ----

// An installed camera with that serial number.
class CInstalled : public CVideoSystem {
 public:
  CInstalled(CSystemComponentDef* definition, CGXString serialNo)
      : CVideoSystem(definition), m_SerialNo(serialNo) {}
  bool IsSameConfig(CDeviceConfig* record) override {
    return record->DescriptorVal("Serial No.") == m_SerialNo;
  }

 private:
  CGXString m_SerialNo;
};

std::set<std::string> Serials(const CONVIFDeviceSet& set) {
  std::set<std::string> serials;
  for (const CONVIFDevice* device = set.Devices(); device != nullptr; device = device->Next())
    serials.insert(device->SerialNo().Str());
  return serials;
}

class Search : public Discovery {
 protected:
  void SetUp() override {
    Discovery::SetUp();
    ASSERT_TRUE(m_Camsim.Ready()) << m_Camsim.Output();
    for (int number = 1; number <= 3; ++number) {
      m_Serial.push_back(m_Camsim.Camera(number)["serial"].get<std::string>());
    }
  }
  CCamsim m_Camsim{{"--camera", "ptz", "--camera", "door", "--camera", "alarm"}};
  std::vector<std::string> m_Serial;
};

TEST_F(Search, FindsCamerasWhoeverAndWhereverTheyAre) {
  CONVIFDeviceSet all;
  auto start = Clock::now();
  CONVIF::DoDiscovery(&all, "admin", "secret");
  EXPECT_GE(SecondsSince(start), 2) << "slow cameras have their time";
  EXPECT_EQ(Serials(all), (std::set{m_Serial[0], m_Serial[1], m_Serial[2]}));
  CONVIFDevice wanted;
  wanted.CopyDataFrom(all.Devices());
  const CGXString url = wanted.ServiceURL();
  wanted.ServiceURL("http://127.0.0.99/old");
  wanted.Firmware("old");
  EXPECT_TRUE(all.HasDevice(&wanted)) << "another address and firmware, the same camera";
  EXPECT_TRUE(CONVIF::FindDevice(&wanted, "admin", "secret"));
  EXPECT_EQ(wanted.ServiceURL(), url);
  EXPECT_NE(wanted.Firmware(), "old");
  wanted.SerialNo("none has it");
  EXPECT_FALSE(all.HasDevice(&wanted));
  start = Clock::now();
  EXPECT_FALSE(CONVIF::FindDevice(&wanted, "admin", "secret"));
  EXPECT_GE(SecondsSince(start), 4.5);

  // One that gives its identity to nobody without a login, by a bare refusal or by a fault.
  ASSERT_TRUE(
      m_Camsim.Quirks(1, {{"auth_device_info", true}, {"bare_401", true}, {"clock_offset", 86400 * 40}}));
  ASSERT_TRUE(m_Camsim.Quirks(2, {{"auth_device_info", true}}));
  CONVIFDeviceSet strict;
  CONVIF::DoDiscovery(&strict, "admin", "secret");
  EXPECT_EQ(Serials(strict), (std::set{m_Serial[0], m_Serial[2]}));
}

TEST_F(Search, EndsWhenItsThreadIsCancelled) {
  CONVIFDevice wanted;
  CGXThread thread;
  const auto search = [](void* device) {
    while (!CGXThread::CurrentCancelled())
      CONVIF::FindDevice(static_cast<CONVIFDevice*>(device), "admin", "secret");
    CONVIFDeviceSet set;
    CONVIF::DoDiscovery(&set, "admin", "secret");
    return 0U;
  };
  thread.Start(search, &wanted, 0, "search");
  EXPECT_TRUE(Eventually(20, [&] { return m_Camsim.Camera(1)["requests"].contains("GetDeviceInformation"); }));
  thread.Cancel();
  EXPECT_TRUE(thread.WaitComplete(5000));  // a search takes more than that
}

TEST_F(Search, OffersOnlyNewCameras) {
  CSystemComponentDef found(8072, "ONVIF Video Source", "", 0x100000, 0);
  CSystemComponentDef entered(8074, "ONVIF Video Source (Static)", "", 0, 0);
  CSystemComponentDef finding(8073, "ONVIF Video Source (Dynamic)", "", 3, 0);
  CSystem::Instance()->AddComponent(std::make_unique<CInstalled>(&entered, m_Serial[0].c_str()));
  CSystem::Instance()->AddComponent(std::make_unique<CInstalled>(&found, m_Serial[1].c_str()));
  CONVIF_DevFinder finder(&finding);
  EXPECT_EQ(finder.TraceName(), "ONVIF Video Source (Dynamic)");
  CGXObList records;
  finder.FindNewDevices("admin", "secret", &records);
  std::set<std::string> serials;
  while (!records.IsEmpty()) {
    const std::unique_ptr<CDeviceConfig> record(static_cast<CDeviceConfig*>(records.RemoveHead()));
    EXPECT_EQ(record->ComponentType(), 8072);
    EXPECT_FALSE(finder.FindInstalledDevice(record.get()));
    serials.insert(record->DescriptorVal("Serial No.").Str());
    std::string names;
    for (const auto& descriptor : record->Descriptors()) {
      names += descriptor.Name.Str() + std::to_string(descriptor.Flag) + " ";
      EXPECT_FALSE(descriptor.Value.IsEmpty()) << descriptor.Name.Str();
    }
    EXPECT_EQ(names,
              "Manufacturer0 Model0 Firmware0 Serial No.0 Hardware ID1 Service URL1 UserName1 Password1 ");
  }
  EXPECT_EQ(serials, (std::set{m_Serial[0], m_Serial[2]}));
  CSystem::Instance()->RemoveAllComponents();
}

}  // namespace
