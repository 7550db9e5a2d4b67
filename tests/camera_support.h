// What the tests of the camera component share: the host's main and file threads, and what a camera says and
// delivers.
#pragma once

#include "camera/ONVIFCam.h"
#include "host/base/gxassert.h"
#include "host/net/netinterface.h"
#include "host/net/socket.h"
#include "host/system/event_server.h"
#include "host/system/system.h"
#include "tests/support/camsim_process.h"
#include "tests/support/eventually.h"
#include "tests/support/trace_keeper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// As of descriptors or threads in /proc/self. A thread that was joined may be listed for a moment.
inline size_t EntriesOf(const char* folder) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// The host's main thread and file thread at work.
class CHostAtWork {
 public:
  CHostAtWork()
      : m_Main([this] {
          while (!m_bEnd) {
            CSystem::Instance()->MainThreadPass();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
          }
        }) {
    CSystem::Instance()->StartFileThread();
  }
  ~CHostAtWork() {
    CSystem::Instance()->RemoveAllComponents();
    CSystem::Instance()->StopFileThread();
    m_bEnd = true;
    m_Main.join();
  }

 private:
  std::atomic<bool> m_bEnd{false};
  std::thread m_Main;
};

// Keeps the pictures of one stream.
class CPictureSink : public CVideoSink {
 public:
  explicit CPictureSink(int stream = 0) : CVideoSink("test viewer") { CameraRes(stream); }
  void OnFrame(const CJPEGBuffer* frame) override {
    const std::lock_guard lock(m_Mutex);
    ++m_nPictures;
    if (m_Kept.size() < 50) m_Kept.emplace_back(frame->Data(), frame->Data() + frame->Length());
  }
  int Count() const {
    const std::lock_guard lock(m_Mutex);
    return m_nPictures;
  }
  std::vector<std::vector<unsigned char>> Kept() const {
    const std::lock_guard lock(m_Mutex);
    return m_Kept;
  }

 private:
  mutable std::mutex m_Mutex;
  int m_nPictures = 0;
  std::vector<std::vector<unsigned char>> m_Kept;
};

// Keeps a recording.
class CFrameKeeper : public CDVRTarget {
 public:
  void BeginStream() override {
    const std::lock_guard lock(m_Mutex);
    m_nBefore.push_back(m_Frames.size());
  }
  void DeliverFrame(std::unique_ptr<CFrameData> frame) override {
    const std::lock_guard lock(m_Mutex);
    m_Frames.push_back(std::move(frame));
  }
  int Count() const {
    const std::lock_guard lock(m_Mutex);
    return static_cast<int>(m_Frames.size());
  }
  // How many had come before each opening of the stream.
  std::vector<size_t> Openings() const {
    const std::lock_guard lock(m_Mutex);
    return m_nBefore;
  }
  void Each(const std::function<void(const CFrameData&)>& call) const {
    const std::lock_guard lock(m_Mutex);
    for (const auto& frame : m_Frames) call(*frame);
  }

 private:
  mutable std::mutex m_Mutex;
  std::vector<std::unique_ptr<CFrameData>> m_Frames;
  std::vector<size_t> m_nBefore;
};

inline CSystemComponentDef* CameraDefinition(int type) {
  static CSystemComponentDef discovered(8072, "ONVIF Video Source", "", 0x100000, 0);
  static CSystemComponentDef entered(8074, "ONVIF Video Source (Static)", "", 0, 0);
  return type == CONVIFCam::TYPE_STATIC ? &entered : &discovered;
}

inline CDeviceConfig DeviceRecord(int type, const std::vector<std::pair<const char*, std::string>>& values) {
  CDeviceConfig record(type);
  for (const auto& [name, value] : values) record.AddDescriptor(name, value, 1);
  return record;
}

// A camera entered by its URL; the address of a simulated one by its number.
inline std::unique_ptr<CONVIFCam> StaticCamera(const std::string& url) {
  auto camera = std::make_unique<CONVIFCam>(CameraDefinition(CONVIFCam::TYPE_STATIC));
  CDeviceConfig record = DeviceRecord(CONVIFCam::TYPE_STATIC,
                                      {{"Service URL", url}, {"UserName", "admin"}, {"Password", "secret"}});
  camera->LoadFrom(&record);
  camera->Name("Gate");
  return camera;
}

inline std::string SimURL(int number, int port = 8080) {
  return "http://127.0.0." + std::to_string(10 + number) + ":" + std::to_string(port) + "/onvif/device_service";
}
