// Alarm datagrams: their bytes, the listener's life, and the way from a camera to the host's event.
#include "alarm/orvell_alarm_center.h"
#include "alarm/orvell_packet.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "tests/camera_support.h"
#include "tests/support/scripted_server.h"
#include "util/owned_socket.h"

#include <climits>
#include <filesystem>
#include <fstream>
#include <map>

namespace {

constexpr char TEXT[] = R"(<AlarmInfoEx DeviceId="ORV000000002" Name="Yard" AlarmFlag="1"/>)";

std::string BigEndian(unsigned value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
  return bytes;
}

// As a camera sends it; every byte without meaning is 0xEE, so one that is read as something else shows.
std::string Datagram(const std::string& text, unsigned code = 554, int length = -1) {
  const unsigned announced = length < 0 ? static_cast<unsigned>(text.size()) : static_cast<unsigned>(length);
  return std::string(24, '\xEE') + BigEndian(code) + std::string(68, '\xEE') + BigEndian(announced) + text;
}

bool Read(COrvellAlarm* alarm, const std::string& bytes) {
  std::vector<unsigned char> exact(bytes.begin(), bytes.end());  // so that ASan sees a read beyond
  return alarm->Read(exact.data(), static_cast<int>(exact.size()));
}

TEST(OrvellPacket, StaysWithinTheDatagram) {
  unsigned char bytes[] = {1, 0x82, 3, 0xFF, 0xFF, 0xFF, 0xFE, 8, 9, 10}, block[4] = {};
  COrvellPacket packet(bytes, sizeof bytes);
  EXPECT_EQ(packet.ReadBYTE(), 1);
  EXPECT_EQ(packet.ReadWORD(), 0x8203);
  EXPECT_EQ(packet.ReadInt(), -2);
  EXPECT_EQ(packet.ReadInt(), 0);  // three remain, which stay
  EXPECT_FALSE(packet.ReadData(block, 4) || packet.ReadData(block, -1));
  EXPECT_EQ(block[0], 0);
  EXPECT_TRUE(packet.ReadData(block, 2));
  EXPECT_EQ(block[1], 9);
  for (const int far : {-5, 2, INT_MAX, INT_MAX}) {
    packet.Skip(far);
    EXPECT_EQ(packet.ReadPos(), bytes + (far < 0 ? 9 : sizeof bytes));
    EXPECT_EQ(packet.ReadWORD() + packet.ReadInt(), 0);
  }
  EXPECT_EQ(COrvellPacket(nullptr, -1).ReadInt(), 0);
}

TEST(OrvellAlarm, IsReadFromItsBytes) {
  const auto flag = [](const std::string& value) { return "AlarmInfoEx DeviceId=\"A\" AlarmFlag=" + value; };
  struct {
    std::string Bytes;
    bool Alarm;
    const char* Device;
    bool Active;
  } const cases[] = {
      {Datagram(TEXT), true, "ORV000000002", true},
      {Datagram(TEXT, 555), false, "", false},
      {Datagram(TEXT, 0xFFFFFDD6), false, "", false},
      {Datagram(TEXT, 554, 0), false, "", false},
      {Datagram(TEXT, 554, 2048), false, "", false},
      {Datagram(TEXT, 554, INT_MAX), false, "", false},
      {Datagram(TEXT, 554, 2047), true, "ORV000000002", true},  // more than came
      {Datagram(flag("\"01\"")), true, "A", true},
      {Datagram(flag("\" 1 \"")), true, "A", true},
      {Datagram(flag("\"2\"")), true, "A", false},
      {Datagram(flag("\"-1\"")), true, "A", false},
      {Datagram(flag("\"true\"")), true, "A", false},
      {Datagram(flag("\"1")), true, "A", false},
      {Datagram(flag("1")), true, "A", false},
      {Datagram(flag("").substr(0, 21)), true, "", false},
      {Datagram("AlarmFlag=\"1\""), true, "", true},
      {Datagram("DeviceId=\"A\" AlarmInfoEx  DeviceId=\"A\""), true, "", false},
      {Datagram(std::string("\0", 1) + TEXT), true, "", false},
      {Datagram(std::string(2047, '"')), true, "", false},
  };
  for (const auto& c : cases) {
    COrvellAlarm alarm;
    EXPECT_EQ(Read(&alarm, c.Bytes), c.Alarm) << c.Bytes;
    EXPECT_EQ(alarm.DeviceID.Str(), c.Device) << c.Bytes;
    EXPECT_EQ(alarm.Active, c.Active) << c.Bytes;
  }
  // Cut anywhere in its header it is none, cut in its text it lacks what is behind.
  const std::string whole = Datagram(TEXT);
  for (size_t length = 0; length < whole.size(); ++length) {
    COrvellAlarm alarm;
    EXPECT_EQ(Read(&alarm, whole.substr(0, length)), length >= 100) << length;
    EXPECT_EQ(alarm.Active, length >= whole.size() - 2) << length;
  }
  // A block that is cut short does not pass for what follows it.
  COrvellAlarm alarm;
  EXPECT_FALSE(Read(&alarm, whole.substr(0, 29) + std::string(3, '\0') + BigEndian(9) + "AlarmFlag=\"1\""));
}

// The listener and its peers.

class CFakeCamera : public CAlarmCamera {
 public:
  explicit CFakeCamera(std::vector<int>* order = nullptr, int number = 0)
      : m_pOrder(order), m_iNumber(number) {}
  void FileThreadProcessEvent(unsigned char* data, int length) override {
    m_bZeroBehind = length < 4096 && data[length] == 0;
    if (m_pOrder != nullptr) m_pOrder->push_back(m_iNumber);
    m_nLongest = std::max<int>(m_nLongest, length);
    ++m_nTold;
  }
  std::atomic<int> m_nTold{0}, m_nLongest{0};
  std::atomic<bool> m_bZeroBehind{false};

 private:
  std::vector<int>* const m_pOrder;
  const int m_iNumber;
};

sockaddr_in At(unsigned address) {
  sockaddr_in at = Loopback(30004);
  at.sin_addr.s_addr = htonl(address);
  return at;
}

void Send(const std::string& bytes) {
  const COwnedSocket sender(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in to = At(INADDR_LOOPBACK);
  sendto(sender.Get(), bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

// Sends now and then, not so often that datagrams would be lost on a busy machine, until it is so.
bool SendUntil(const std::function<void()>& send, const std::function<bool()>& condition) {
  return Eventually(20, [&] { return send(), Eventually(0.2, condition); });
}

// The alarm port, held without sharing it; closed when somebody listens there.
COwnedSocket HoldPort() {
  COwnedSocket held(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const sockaddr_in own = At(INADDR_ANY);
  if (bind(held.Get(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) held.Close();
  return held;
}

// Whether a thread of the listener's name sleeps, as it does in a wait.
bool ListenerWaits() {
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name, state;
    std::getline(std::ifstream(task.path() / "stat") >> name, state);  // "(name) S ..." behind the number
    if (state.find("(OrvellAlarm") != std::string::npos && state.find(") S") != std::string::npos) return true;
  }
  return false;
}

TEST(OrvellAlarmCenter, TellsThirtyTwoCamerasInOrder) {
  COwnedSocket held = HoldPort();  // the listener waits until the port is free
  ASSERT_TRUE(held.IsOpen());
  std::vector<int> order;
  std::vector<std::unique_ptr<CFakeCamera>> cameras;
  for (int i = 0; i < 33; ++i) {
    cameras.push_back(std::make_unique<CFakeCamera>(&order, i));
    COrvellAlarmCenter::RegisterCamera(cameras.back().get());
  }
  ASSERT_TRUE(Eventually(20, ListenerWaits));
  held.Close();
  const CFakeCamera& last = *cameras[31];
  ASSERT_TRUE(SendUntil([] { Send("one"); }, [&] { return last.m_nTold > 0; }));
  for (const size_t i : {size_t{5}, size_t{0}}) COrvellAlarmCenter::UnRegisterCamera(cameras[i].get());
  const int told = cameras[0]->m_nTold + cameras[5]->m_nTold;
  Send(std::string(4100, 'x'));
  ASSERT_TRUE(Eventually(20, [&] { return last.m_nLongest > 100; }));
  EXPECT_EQ(last.m_nLongest, 4096) << "cut to what the buffer holds";
  Send("end");
  EXPECT_TRUE(Eventually(20, [&] { return last.m_bZeroBehind.load(); }));
  for (const auto& camera : cameras) COrvellAlarmCenter::UnRegisterCamera(camera.get());
  EXPECT_EQ(cameras[32]->m_nTold, 0);
  EXPECT_EQ(cameras[0]->m_nTold + cameras[5]->m_nTold, told) << "told no more";
  EXPECT_TRUE(std::is_sorted(order.end() - 30, order.end())) << "the gaps are closed in order";
  EXPECT_TRUE(HoldPort().IsOpen()) << "the listener ends with the last camera";
}

TEST(OrvellAlarmCenter, CamerasComeAndGoWhileItListens) {
  std::atomic<bool> end{false};
  std::thread sender([&] {
    for (; !end; std::this_thread::yield()) Send(Datagram(TEXT));
  });
  std::vector<std::thread> owners;
  for (int owner = 0; owner < 4; ++owner)
    owners.emplace_back([&] {
      for (int round = 0; round < 60; ++round) {
        const auto camera = std::make_unique<CFakeCamera>();
        COrvellAlarmCenter::RegisterCamera(camera.get());
        EXPECT_TRUE(round != 30 || Eventually(60, [&] { return camera->m_nTold > 0; }));
        COrvellAlarmCenter::UnRegisterCamera(camera.get());  // it must not be told any more
      }
    });
  for (std::thread& owner : owners) owner.join();
  end = true;
  sender.join();
  EXPECT_TRUE(HoldPort().IsOpen());
}

TEST(OrvellAlarmCenter, BringsAlarmsOfACameraToTheHost) {
  ASSERT_TRUE(SetNetworkInterface("lo"));
  CCamsim sim({"--camera", "ptz", "--camera", "alarm", "--camera", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  std::vector<std::unique_ptr<CONVIFCam>> cameras;
  for (int number = 1; number <= 3; ++number) {
    cameras.push_back(StaticCamera(SimURL(number)));
    cameras.back()->ID(100 + number);
    CDeviceConfig record = DeviceRecord(
        CONVIFCam::TYPE_STATIC,
        {{"Service URL", SimURL(number)}, {"Serial No.", sim.Camera(number)["serial"].get<std::string>()}});
    cameras.back()->LoadFrom(&record);
  }
  std::map<int, int> raised;
  CEventServer::Instance()->Receiver([&](const GXT_EVENT& event) {
    EXPECT_EQ(event.Event, 2275);
    ++raised[event.ComponentID];
  });
  const auto alarms = [&](int component) {
    CEventServer::Instance()->DispatchEvents();
    return raised[component];
  };
  // The listener may still be on its way to the group.
  ASSERT_TRUE(SendUntil(
      [&] {
        sim.Post("/cameras/2/alarm", {{"on", true}});
      },
      [&] { return alarms(102) > 0; }));
  ASSERT_FALSE(sim.Post("/cameras/3/alarm", {{"on", true}, {"times", 5}}).is_null());
  EXPECT_TRUE(Eventually(20, [&] { return alarms(103) >= 5; }));
  EXPECT_EQ(cameras[0]->MotionLevel(), -1);
  EXPECT_EQ(cameras[1]->MotionLevel(), 100);
  EXPECT_EQ(cameras[2]->MotionLevel(), 100);
  ASSERT_FALSE(sim.Post("/cameras/3/alarm", {{"on", false}}).is_null());
  EXPECT_TRUE(Eventually(20, [&] { return cameras[2]->MotionLevel() == 0; }));
  EXPECT_EQ(cameras[1]->MotionLevel(), 100);
  cameras.clear();
  EXPECT_EQ(alarms(103), 5);
  CEventServer::Instance()->Receiver({});
}

}  // namespace
