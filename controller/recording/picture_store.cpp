#include "controller/recording/picture_store.h"

#include "controller/core/atomic_file.h"

#include <chrono>
#include <cstdio>

namespace {

constexpr size_t QUEUE_BYTES = 64u << 20;
constexpr int64_t LATEST_PERIOD_MS = 1000;

int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

CPictureStore::CPictureStore(std::string latestFolder, std::string keepFolder)
    : m_Latest(std::move(latestFolder)), m_Keep(std::move(keepFolder)) {
  m_Thread = std::thread([this] { Run(); });
}

CPictureStore::~CPictureStore() {
  {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_bStop = true;
    m_Wake.notify_all();
  }
  m_Thread.join();
}

std::string CPictureStore::LatestPath(const std::string& name) const {
  return m_Latest.empty() ? "" : m_Latest + "/" + name + ".jpg";
}

std::string CPictureStore::KeptPath(const std::string& name) const {
  return m_Keep.empty() ? "" : m_Keep + "/" + name + "-*.jpg";
}

void CPictureStore::Add(const std::string& name, CBytes picture) {
  const int64_t now = NowMs();
  const std::lock_guard<std::mutex> lock(m_Lock);
  if (m_bStop) return;
  const int64_t number = ++m_Seen[name];
  if (!m_Keep.empty()) {
    char suffix[32];
    std::snprintf(suffix, sizeof suffix, "-%06lld.jpg", static_cast<long long>(number));
    Queue(m_Keep + "/" + name + suffix, picture, true);
  }
  int64_t& due = m_LatestDue[name];
  if (m_Latest.empty() || now < due) return;
  due = now + LATEST_PERIOD_MS;
  Queue(LatestPath(name), picture, false);
}

// Under m_Lock.
void CPictureStore::Queue(std::string path, CBytes picture, bool keep) {
  if (m_nQueued + picture.size() > QUEUE_BYTES) {
    if (keep) ++m_nLost;
    return;
  }
  m_nQueued += picture.size();
  m_Jobs.push_back({std::move(path), {picture.begin(), picture.end()}});
  m_Wake.notify_all();
}

void CPictureStore::Run() {
  std::unique_lock<std::mutex> lock(m_Lock);
  for (;;) {
    m_Wake.wait(lock, [this] { return m_bStop || !m_Jobs.empty(); });
    if (m_Jobs.empty()) return;
    const Job job = std::move(m_Jobs.front());
    m_Jobs.pop_front();
    m_nQueued -= job.Bytes.size();
    lock.unlock();
    std::string error;
    ReplaceFile(job.Path, {reinterpret_cast<const char*>(job.Bytes.data()), job.Bytes.size()},
                PRIVATE_FILE_MODE, false, &error);
    lock.lock();
    m_Error = error;
  }
}

std::string CPictureStore::Error() const {
  const std::lock_guard<std::mutex> lock(m_Lock);
  return m_Error;
}

int64_t CPictureStore::Lost() const {
  const std::lock_guard<std::mutex> lock(m_Lock);
  return m_nLost;
}
