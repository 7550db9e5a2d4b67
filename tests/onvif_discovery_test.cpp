// Finding cameras: the probe, answers of any kind, identity, and whole searches among simulated cameras.
#include "host/base/gxthread.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "host/system/system.h"
#include "onvif/devfinder.h"
#include "onvif/onvif.h"
#include "onvif/string_list.h"
#include "tests/media_support.h"
#include "tests/support/camsim_process.h"
#include "tests/support/eventually.h"
#include "util/owned_socket.h"

#include <gtest/gtest.h>

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

// Takes probes on the loopback interface, as a camera does.
COwnedSocket ProbeTaker() {
  COwnedSocket taker(socket(AF_INET, SOCK_DGRAM, 0));
  SetReuseAddress(taker.Get());
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(3702);
  ip_mreq group{};
  group.imr_multiaddr.s_addr = inet_addr("239.255.255.250");
  group.imr_interface.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(bind(taker.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(setsockopt(taker.Get(), IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group), 0);
  return taker;
}

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
  const COwnedSocket camera = ProbeTaker(), probe(CreateMulticastSocket());
  ASSERT_TRUE(CONVIF::TransmitDiscoveryProbe(probe.Get()));
  ASSERT_TRUE(WaitSocketReadState(camera.Get(), 20000));
  char bytes[4096];
  sockaddr_in searcher{};
  socklen_t size = sizeof searcher;
  const ssize_t length =
      recvfrom(camera.Get(), bytes, sizeof bytes, 0, reinterpret_cast<sockaddr*>(&searcher), &size);
  ASSERT_GT(length, 0);
  const std::string text =
      "<soap:Envelope xmlns:soap=\"http://www.w3.org/2003/05/soap-envelope\" "
      "xmlns:wsa=\"http://schemas.xmlsoap.org/ws/2004/08/addressing\" "
      "xmlns:wsd=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\" "
      "xmlns:wsdp=\"http://www.onvif.org/ver10/network/wsdl\"><soap:Header>"
      "<wsa:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</wsa:To>"
      "<wsa:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</wsa:Action>"
      "<wsa:MessageID>*</wsa:MessageID></soap:Header><soap:Body>"
      "<wsd:Probe xmlns=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\">"
      "<wsd:Types xmlns=\"http://schemas.xmlsoap.org/ws/2005/04/discovery\">"
      "wsdp:NetworkVideoTransmitter</wsd:Types></wsd:Probe></soap:Body></soap:Envelope>";
  EXPECT_EQ(std::regex_replace(std::string(bytes, bytes + length),
                               std::regex("uuid:[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}"), "*"),
            text);

  for (const std::string& answer :
       {std::string(), std::string("nonsense"), std::string(30000, '<'), std::string("<a>\0</a>", 8),
        ProbeMatch("http://127.0.0.77/x"), ProbeMatch("http://127.0.0.77/x http://127.0.0.78/y")})
    sendto(camera.Get(), answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&searcher), size);
  CStringList urls;
  const auto listen = [&] {
    const auto start = Clock::now();
    CONVIF::ListenForDeviceURL(probe.Get(), &urls);
    return SecondsSince(start);
  };
  testing::internal::CaptureStdout();
  // It listens for a moment only; what it leaves is there for the next time.
  const bool found = Eventually(20, [&] { return listen() >= 0 && urls.GetCount() >= 2; });
  fflush(stdout);
  const std::string output = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(found);
  EXPECT_EQ(Join(urls), "[http://127.0.0.77/x][http://127.0.0.78/y]");
  EXPECT_TRUE(std::regex_match(output, std::regex("(Recv from 127\\.0\\.0\\.1\r\n)+"))) << output;
  EXPECT_TRUE(Eventually(20, [&] { return listen() >= 0.4; })) << "for the first answer when nobody speaks";
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
  const struct {
    std::string Host, Plain, LoggedIn, Asked;
  } cases[] = {
      {"127.0.0.1", INFORMATION, FAULT, "plain " + maker},
      {"localhost", INFORMATION, FAULT, "plain " + maker},           // a name is asked
      {"127.0.0.1", "", INFORMATION, "plain clock login " + maker},  // an answer without XML
      {"127.0.0.1", "", FAULT, "plain clock login clock login null"},
      {"127.0.0.1", FAULT, INFORMATION, "plain clock login null"},  // a fault ends it
      {"0.0.0.0", INFORMATION, INFORMATION, "null"},                // this machine too, but a number elsewhere
  };
  for (const auto& c : cases) {
    std::string asked;
    // Again when the server did not get to answer within the second that each question has.
    Eventually(20, [&] { return (asked = Ask(c.Host, c.Plain, c.LoggedIn)) == c.Asked; });
    EXPECT_EQ(asked, c.Asked);
  }
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
  using Found = std::set<std::string>;

  void SetUp() override {
    Discovery::SetUp();
    ASSERT_TRUE(m_Camsim.Ready()) << m_Camsim.Output();
    nlohmann::json cameras;
    ASSERT_TRUE(Eventually(60, [&] { return (cameras = m_Camsim.Get("/cameras")).size() == 3; }));
    for (const auto& camera : cameras) m_Serial.push_back(camera["serial"]);
  }
  // Searches again while the simulated cameras are too busy to answer in the second that each question has.
  static Found SearchUntil(const Found& expected, const std::function<Found()>& search) {
    Found found;
    Eventually(60, [&] { return (found = search()) == expected; });
    return found;
  }

  CCamsim m_Camsim{{"--camera", "ptz", "--camera", "door", "--camera", "alarm"}};
  std::vector<std::string> m_Serial;
};

TEST_F(Search, FindsCamerasWhoeverAndWhereverTheyAre) {
  CONVIFDeviceSet all;
  auto start = Clock::now();
  CONVIF::DoDiscovery(&all, "admin", "secret");
  EXPECT_GE(SecondsSince(start), 1.9) << "slow cameras have their time";
  const Found everyone = {m_Serial[0], m_Serial[1], m_Serial[2]};
  EXPECT_EQ(everyone, SearchUntil(everyone, [&] {
              if (Serials(all).size() < 3) CONVIF::DoDiscovery(&all, "admin", "secret");
              return Serials(all);
            }));
  CONVIFDevice wanted;
  wanted.CopyDataFrom(all.Devices());
  const CGXString url = wanted.ServiceURL();
  wanted.ServiceURL("http://127.0.0.99/old");
  wanted.Firmware("old");
  EXPECT_TRUE(all.HasDevice(&wanted)) << "another address and firmware, the same camera";
  EXPECT_TRUE(Eventually(60, [&] { return CONVIF::FindDevice(&wanted, "admin", "secret"); }));
  EXPECT_EQ(wanted.ServiceURL(), url);
  EXPECT_NE(wanted.Firmware(), "old");
  wanted.SerialNo("none has it");
  EXPECT_FALSE(all.HasDevice(&wanted));
  start = Clock::now();
  EXPECT_FALSE(CONVIF::FindDevice(&wanted, "admin", "secret"));
  EXPECT_GE(SecondsSince(start), 4.5);

  // One that gives its identity to nobody without a login, by a bare refusal or by a fault.
  ASSERT_TRUE(Eventually(60, [&] {
    return m_Camsim.Quirks(1, {{"auth_device_info", true}, {"bare_401", true}, {"clock_offset", 86400 * 40}}) &&
           m_Camsim.Quirks(2, {{"auth_device_info", true}});
  }));
  const Found open = {m_Serial[0], m_Serial[2]};
  EXPECT_EQ(open, SearchUntil(open, [] {
              CONVIFDeviceSet set;
              CONVIF::DoDiscovery(&set, "admin", "secret");
              return Serials(set);
            }));
}

TEST_F(Search, EndsWhenItsThreadIsCancelled) {
  CONVIFDevice wanted;
  CGXThread thread;
  const auto search = [](void* device) {
    while (!CGXThread::CurrentCancelled())
      CONVIF::FindDevice(static_cast<CONVIFDevice*>(device), "admin", "secret");
    CONVIFDeviceSet set;
    for (int i = 0; i < 20; ++i) CONVIF::DoDiscovery(&set, "admin", "secret");  // two seconds each otherwise
    return 0U;
  };
  thread.Start(search, &wanted, 0, "search");
  EXPECT_TRUE(Eventually(
      60, [&] { return m_Camsim.Camera(1).dump().find("GetDeviceInformation") != std::string::npos; }));
  thread.Cancel();
  EXPECT_TRUE(thread.WaitComplete(30000));
}

TEST_F(Search, OffersOnlyNewCameras) {
  CSystemComponentDef found(8072, "ONVIF Video Source", "", 0x100000, 0);
  CSystemComponentDef entered(8074, "ONVIF Video Source (Static)", "", 0, 0);
  CSystemComponentDef finding(8073, "ONVIF Video Source (Dynamic)", "", 3, 0);
  CSystem::Instance()->AddComponent(std::make_unique<CInstalled>(&entered, m_Serial[0].c_str()));
  CSystem::Instance()->AddComponent(std::make_unique<CInstalled>(&found, m_Serial[1].c_str()));
  CONVIF_DevFinder finder(&finding);
  EXPECT_EQ(finder.TraceName(), "ONVIF Video Source (Dynamic)");
  const Found unknown = {m_Serial[0], m_Serial[2]};
  EXPECT_EQ(unknown, SearchUntil(unknown, [&] {
              CGXObList records;
              finder.FindNewDevices("admin", "secret", &records);
              Found serials;
              while (!records.IsEmpty()) {
                const std::unique_ptr<CDeviceConfig> record(static_cast<CDeviceConfig*>(records.RemoveHead()));
                EXPECT_EQ(record->ComponentType(), 8072);
                serials.insert(record->DescriptorVal("Serial No.").Str());
                std::string names;
                for (const auto& descriptor : record->Descriptors()) {
                  names += descriptor.Name.Str() + std::to_string(descriptor.Flag) + " ";
                  EXPECT_FALSE(descriptor.Value.IsEmpty()) << descriptor.Name.Str();
                }
                EXPECT_EQ(names,
                          "Manufacturer0 Model0 Firmware0 Serial No.0 Hardware ID1 Service URL1 "
                          "UserName1 Password1 ");
              }
              return serials;
            }));
  CSystem::Instance()->RemoveAllComponents();
}

}  // namespace
