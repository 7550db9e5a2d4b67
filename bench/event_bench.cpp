// How long a motion notification takes from the camera's POST to event 2275 in the host's hands: with one
// camera and with 64, one sender after the other and all at once. Cameras, listeners and the host's main thread
// run as they do in the controller; the fixed event ports (from 8795) must be free.
#include "camera/ONVIFCam.h"
#include "host/net/socket.h"
#include "host/system/event_server.h"
#include "host/system/system.h"
#include "util/owned_socket.h"

#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int MOST_CAMERAS = 64;
constexpr int PASS_PERIOD_MS = 10;  // as in the controller
constexpr std::chrono::seconds PATIENCE{10};

std::string HTTPMessage(const std::string& firstLine, const std::string& body) {
  return firstLine + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

const std::string NOTIFICATION = HTTPMessage(
    "POST /subscribe HTTP/1.1\r\nHost: controller\r\nContent-Type: application/soap+xml",
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?><s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" "
    "xmlns:w=\"http://docs.oasis-open.org/wsn/b-2\" xmlns:t=\"http://www.onvif.org/ver10/schema\"><s:Header>"
    "</s:Header><s:Body><w:Notify><w:NotificationMessage><w:Topic Dialect=\"http://www.onvif.org/ver10/tev/"
    "topicExpression/ConcreteSet\">tns1:RuleEngine/CellMotionDetector/Motion</w:Topic><w:Message><t:Message "
    "UtcTime=\"2026-01-02T03:04:05Z\" PropertyOperation=\"Changed\"><t:Source><t:SimpleItem "
    "Name=\"VideoSourceConfigurationToken\" Value=\"VS1\"></t:SimpleItem></t:Source><t:Data><t:SimpleItem "
    "Name=\"IsMotion\" Value=\"true\"></t:SimpleItem></t:Data></t:Message></w:Message>"
    "</w:NotificationMessage></w:Notify></s:Body></s:Envelope>");

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  SetIP(htonl(INADDR_LOOPBACK), &address);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

// A camera that answers whatever it is asked with all that loading needs.
class CAgreeableCamera {
 public:
  CAgreeableCamera() : m_Listen(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    if (bind(m_Listen.Get(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        listen(m_Listen.Get(), SOMAXCONN) != 0)
      return;
    getsockname(m_Listen.Get(), reinterpret_cast<sockaddr*>(&address), &size);
    m_URL = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/device";
    m_Thread = std::thread([this] { Serve(); });
  }
  ~CAgreeableCamera() {
    shutdown(m_Listen.Get(), SHUT_RDWR);
    if (m_Thread.joinable()) m_Thread.join();
  }
  CAgreeableCamera(const CAgreeableCamera&) = delete;
  CAgreeableCamera& operator=(const CAgreeableCamera&) = delete;
  const std::string& URL() const { return m_URL; }

 private:
  void Serve() {
    const std::string answer = HTTPMessage(
        "HTTP/1.1 200 OK\r\nConnection: close",
        "<s:Envelope><s:Body><x:GetDeviceInformationResponse><x:Model>M</x:Model>"
        "</x:GetDeviceInformationResponse><x:SubscribeResponse></x:SubscribeResponse></s:Body></s:Envelope>");
    for (;;) {
      const COwnedSocket client(accept(m_Listen.Get(), nullptr, nullptr));
      if (!client.IsOpen()) return;
      char request[8192];
      std::string text;
      while (text.find("Envelope>") == text.npos) {  // its closing tag is all that ends so
        const ssize_t bytes = recv(client.Get(), request, sizeof request, 0);
        if (bytes <= 0) break;
        text.append(request, static_cast<size_t>(bytes));
      }
      SendSocket(client.Get(), answer.data(), static_cast<int>(answer.size()), 1000);
    }
  }

  COwnedSocket m_Listen;
  std::string m_URL;
  std::thread m_Thread;
};

// So many cameras in service, and the host's main thread, which notes when an event reaches it.
class CSiteAtWork {
 public:
  explicit CSiteAtWork(int cameras) {
    CEventServer::Instance()->Receiver([this](const GXT_EVENT& event) {
      if (event.Event == EVENT_MOTION) m_Arrived[event.ComponentID - 1] = Clock::now();
    });
    m_Main = std::thread([this] { RunMain(); });
    static CSystemComponentDef definition(CONVIFCam::TYPE_STATIC, "ONVIF Video Source (Static)", "", 0, 0);
    for (int i = 0; i < cameras; ++i) {
      auto camera = std::make_unique<CONVIFCam>(&definition);
      CDeviceConfig record(CONVIFCam::TYPE_STATIC);
      record.AddDescriptor("Service URL", m_Camera.URL(), 1);
      camera->LoadFrom(&record);
      camera->ID(i + 1);
      m_Cameras.push_back(camera.get());
      CSystem::Instance()->AddComponent(std::move(camera));
      m_Cameras.back()->StartThread("ONVIFCam");
    }
  }
  ~CSiteAtWork() {
    CSystem::Instance()->RemoveAllComponents();
    m_bEnd = true;
    m_Main.join();
    CEventServer::Instance()->Receiver({});
  }
  CSiteAtWork(const CSiteAtWork&) = delete;
  CSiteAtWork& operator=(const CSiteAtWork&) = delete;

  bool Ready() const {
    const auto end = Clock::now() + PATIENCE;
    for (const CONVIFCam* camera : m_Cameras)
      while (!Connect(*camera).IsOpen()) {
        if (Clock::now() > end) return false;
        Sleep(10);
      }
    return true;
  }

  // Sends one notification from each of the cameras `first` to `last` - 1 at once. Appends to `seconds` how
  // long each took; false when one got lost.
  bool Notify(size_t first, size_t last, std::vector<double>* seconds) {
    std::vector<COwnedSocket> senders(last - first);
    for (size_t i = first; i < last; ++i) m_Arrived[i] = Clock::time_point();
    const auto start = Clock::now();
    for (size_t i = first; i < last; ++i) {
      senders[i - first] = Connect(*m_Cameras[i]);
      SendSocket(senders[i - first].Get(), NOTIFICATION.data(), static_cast<int>(NOTIFICATION.size()), 1000);
    }
    for (size_t i = first; i < last; ++i) {
      while (m_Arrived[i].load() == Clock::time_point()) {
        if (Clock::now() - start > PATIENCE) return false;
        std::this_thread::sleep_for(std::chrono::microseconds(50));
      }
      seconds->push_back(std::chrono::duration<double>(m_Arrived[i].load() - start).count());
    }
    return true;
  }

 private:
  static COwnedSocket Connect(const CONVIFCam& camera) {
    COwnedSocket sender(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = Loopback(camera.EventPort());
    if (connect(sender.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) sender.Close();
    return sender;
  }
  void RunMain() {
    while (!m_bEnd) {
      pollfd events{CEventServer::Instance()->Descriptor(), POLLIN, 0};
      poll(&events, 1, PASS_PERIOD_MS);
      CSystem::Instance()->MainThreadPass();
      CEventServer::Instance()->DispatchEvents();
    }
  }

  CAgreeableCamera m_Camera;
  std::vector<CONVIFCam*> m_Cameras;
  std::atomic<Clock::time_point> m_Arrived[MOST_CAMERAS] = {};
  std::atomic<bool> m_bEnd{false};
  std::thread m_Main;
};

void Report(benchmark::State& state, std::vector<double> seconds) {
  if (seconds.empty()) return;
  std::sort(seconds.begin(), seconds.end());
  const auto ms = [&seconds](size_t percent) { return 1000 * seconds[(seconds.size() - 1) * percent / 100]; };
  state.counters["median_ms"] = ms(50);
  state.counters["p99_ms"] = ms(99);
  state.counters["max_ms"] = ms(100);
  state.counters["notifications"] = static_cast<double>(seconds.size());
}

void BM_Motion(benchmark::State& state, bool together) {
  const auto cameras = static_cast<size_t>(state.range(0));
  CSiteAtWork site(static_cast<int>(cameras));
  if (!site.Ready()) return state.SkipWithError("a camera's listener did not start");
  std::vector<double> seconds;
  size_t next = 0;
  for (auto _ : state) {
    const size_t first = together ? 0 : next++ % cameras;
    if (!site.Notify(first, together ? cameras : first + 1, &seconds)) {
      state.SkipWithError("a notification got lost");
      break;
    }
    state.SetIterationTime(seconds.back());
  }
  Report(state, std::move(seconds));
}

}  // namespace

BENCHMARK_CAPTURE(BM_Motion, one_after_the_other, false)->Arg(1)->Arg(MOST_CAMERAS)->UseManualTime();
BENCHMARK_CAPTURE(BM_Motion, all_at_once, true)->Arg(MOST_CAMERAS)->UseManualTime();
BENCHMARK_MAIN();
