// Alarm datagrams: their bytes, the listener's life, and the way from a camera to the host's event.
#include "alarm/orvell_alarm_center.h"
#include "alarm/orvell_packet.h"
#include "tests/camera_support.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <climits>
#include <filesystem>
#include <fstream>

namespace {

constexpr char kText[] = R"(<AlarmInfoEx DeviceId="ORV000000002" Name="Yard" AlarmFlag="1"/>)";

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

bool Read(COrvellAlarm* alarm, std::string bytes) {
  bytes.shrink_to_fit();
  std::vector<unsigned char> exact(bytes.begin(), bytes.end());  // so that ASan sees a read beyond
  return alarm->Read(exact.data(), static_cast<int>(exact.size()));
}

TEST(OrvellPacket, StaysWithinTheDatagram) {
  unsigned char bytes[] = {1, 0x82, 3, 0xFF, 0xFF, 0xFF, 0xFE, 8, 9, 10};
  unsigned char block[4] = {};
  COrvellPacket packet(bytes, sizeof bytes);
  EXPECT_EQ(packet.ReadBYTE(), 1);
  EXPECT_EQ(packet.ReadWORD(), 0x8203);
  EXPECT_EQ(packet.ReadInt(), -2);
  EXPECT_EQ(packet.ReadInt(), 0);  // three remain, which stay
  EXPECT_FALSE(packet.ReadData(block, 4));
  EXPECT_FALSE(packet.ReadData(block, -1));
  EXPECT_EQ(block[0], 0);
  EXPECT_TRUE(packet.ReadData(block, 2));
  EXPECT_EQ(block[1], 9);
  EXPECT_EQ(packet.ReadWORD(), 0);
  packet.Skip(-5);
  EXPECT_EQ(packet.ReadPos(), bytes + 9);
  for (const int far : {2, INT_MAX, INT_MAX}) packet.Skip(far);
  EXPECT_EQ(packet.ReadPos(), bytes + sizeof bytes);
  EXPECT_EQ(packet.ReadBYTE() + packet.ReadWORD() + packet.ReadInt(), 0);
  COrvellPacket nothing(nullptr, -1);
  EXPECT_EQ(nothing.ReadInt(), 0);
}

TEST(OrvellAlarm, IsReadFromItsBytes) {
  const auto flag = [](const std::string& value) { return "AlarmInfoEx DeviceId=\"A\" AlarmFlag=" + value; };
  struct {
    std::string Bytes;
    bool Alarm;
    const char* Device;
    bool Active;
  } const cases[] = {
      {Datagram(kText), true, "ORV000000002", true},
      {Datagram(kText, 555), false, "", false},
      {Datagram(kText, 0xFFFFFDD6), false, "", false},
      {Datagram(kText, 554, 0), false, "", false},
      {Datagram(kText, 554, 2048), false, "", false},
      {Datagram(kText, 554, INT_MAX), false, "", false},
      {Datagram(kText, 554, 2047), true, "ORV000000002", true},  // more than came
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
      {Datagram(std::string("\0", 1) + kText), true, "", false},
      {Datagram(std::string(2047, '"')), true, "", false},
  };
  for (const auto& c : cases) {
    COrvellAlarm alarm;
    EXPECT_EQ(Read(&alarm, c.Bytes), c.Alarm) << c.Bytes;
    EXPECT_EQ(alarm.DeviceID.Str(), c.Device) << c.Bytes;
    EXPECT_EQ(alarm.Active, c.Active) << c.Bytes;
  }
  // Cut anywhere in its header it is none, cut in its text it lacks what is behind.
  const std::string whole = Datagram(kText);
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
    m_bZeroBehind = length >= 4096 || data[length] == 0;
    if (m_pOrder != nullptr) m_pOrder->push_back(m_iNumber);
    ++m_nTold;
    m_nBytes += length;
  }
  std::atomic<int> m_nTold{0}, m_nBytes{0};
  std::atomic<bool> m_bZeroBehind{false};

 private:
  std::vector<int>* const m_pOrder;
  const int m_iNumber;
};

sockaddr_in At(const char* address) {
  sockaddr_in at{};
  at.sin_family = AF_INET;
  at.sin_port = htons(30004);
  inet_pton(AF_INET, address, &at.sin_addr);
  return at;
}

void Send(const std::string& bytes) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in to = At("127.0.0.1");
  sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  CloseSocket(fd);
}

// The alarm port, held without sharing it; -1 when somebody listens there.
int HoldPort() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in own = At("0.0.0.0");
  if (bind(fd, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0) return fd;
  CloseSocket(fd);
  return -1;
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
  const int held = HoldPort();  // the listener waits until the port is free
  ASSERT_NE(held, -1);
  std::vector<int> order;
  std::vector<std::unique_ptr<CFakeCamera>> cameras;
  for (int i = 0; i < 33; ++i) {
    cameras.push_back(std::make_unique<CFakeCamera>(&order, i));
    COrvellAlarmCenter::RegisterCamera(cameras.back().get());
  }
  ASSERT_TRUE(Eventually(20, ListenerWaits));
  CloseSocket(held);
  CFakeCamera& last = *cameras[31];
  ASSERT_TRUE(Eventually(20, [&] { return Send("one"), last.m_nTold > 0; }));
  for (const int i : {5, 0}) COrvellAlarmCenter::UnRegisterCamera(cameras[static_cast<size_t>(i)].get());
  const int before = last.m_nBytes;
  Send(std::string(4100, 'x'));  // cut to what the buffer holds
  EXPECT_TRUE(Eventually(20, [&] { return last.m_nBytes >= before + 4096; }));
  last.m_bZeroBehind = false;
  Send("end");
  EXPECT_TRUE(Eventually(20, [&] { return last.m_bZeroBehind.load(); }));
  for (const auto& camera : cameras) COrvellAlarmCenter::UnRegisterCamera(camera.get());
  EXPECT_EQ(cameras[32]->m_nTold, 0);
  EXPECT_EQ(cameras[0]->m_nTold, cameras[5]->m_nTold);
  EXPECT_LT(cameras[0]->m_nTold, last.m_nTold);
  EXPECT_TRUE(std::is_sorted(order.end() - 30, order.end())) << "the gaps are closed in order";
  const int free = HoldPort();
  EXPECT_NE(free, -1) << "the listener ends with the last camera";
  CloseSocket(free);
}

TEST(OrvellAlarmCenter, CamerasComeAndGoWhileItListens) {
  std::atomic<bool> end{false};
  std::atomic<int> told{0};
  std::thread sender([&] {
    for (; !end; std::this_thread::yield()) Send(Datagram(kText));
  });
  std::vector<std::thread> owners;
  for (int owner = 0; owner < 4; ++owner)
    owners.emplace_back([&] {
      for (int round = 0; round < 60; ++round) {
        const auto camera = std::make_unique<CFakeCamera>();
        COrvellAlarmCenter::RegisterCamera(camera.get());
        if (round % 8 == 0) Eventually(5, [&] { return camera->m_nTold > 0; });
        COrvellAlarmCenter::UnRegisterCamera(camera.get());
        told += camera->m_nTold;  // gone after this: it must not be told any more
      }
    });
  for (std::thread& owner : owners) owner.join();
  end = true;
  sender.join();
  EXPECT_GT(told, 0);
  const int free = HoldPort();
  EXPECT_NE(free, -1);
  CloseSocket(free);
}

TEST(OrvellAlarmCenter, BringsAlarmsOfACameraToTheHost) {
  ASSERT_TRUE(SetNetworkInterface("lo"));
  CCamsim sim({"--camera", "ptz", "--camera", "alarm", "--camera", "alarm"});
  ASSERT_TRUE(sim.Ready()) << sim.Output();
  std::vector<std::unique_ptr<CONVIFCam>> cameras;
  for (int number = 1; number <= 3; ++number) {
    cameras.push_back(StaticCamera(SimURL(number)));
    cameras.back()->ID(100 + number);
    CDeviceConfig record(CONVIFCam::TYPE_STATIC);
    record.AddDescriptor("Service URL", SimURL(number), 1);
    record.AddDescriptor("Serial No.", sim.Camera(number)["serial"].get<std::string>(), 1);
    cameras.back()->LoadFrom(&record);
  }
  std::vector<int> raised;
  CEventServer::Instance()->Receiver([&](const GXT_EVENT& event) {
    EXPECT_EQ(event.Event, 2275);
    raised.push_back(event.ComponentID);
  });
  const auto dispatched = [&](size_t count) {
    return Eventually(20, [&] {
      CEventServer::Instance()->DispatchEvents();
      return raised.size() >= count;
    });
  };
  // The listener may still be on its way to the group.
  ASSERT_TRUE(Eventually(20, [&] {
    sim.Post("/cameras/2/alarm", {{"on", true}});
    CEventServer::Instance()->DispatchEvents();
    return !raised.empty();
  }));
  raised.clear();
  ASSERT_FALSE(sim.Post("/cameras/3/alarm", {{"on", true}, {"times", 5}}).is_null());
  EXPECT_TRUE(dispatched(5));
  EXPECT_EQ(cameras[0]->MotionLevel(), -1);
  EXPECT_EQ(cameras[1]->MotionLevel(), 100);
  EXPECT_EQ(cameras[2]->MotionLevel(), 100);
  ASSERT_FALSE(sim.Post("/cameras/3/alarm", {{"on", false}}).is_null());
  EXPECT_TRUE(Eventually(20, [&] { return cameras[2]->MotionLevel() == 0; }));
  EXPECT_EQ(cameras[1]->MotionLevel(), 100);
  cameras.clear();
  CEventServer::Instance()->DispatchEvents();
  EXPECT_EQ(std::count(raised.begin(), raised.end(), 103), 5);
  CEventServer::Instance()->Receiver({});
}

}  // namespace
