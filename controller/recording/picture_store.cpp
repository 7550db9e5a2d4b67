#include "controller/recording/picture_store.h"

#include "controller/core/atomic_file.h"

#include <chrono>
#include <cstdio>

namespace {

constexpr size_t QUEUE_BYTES = 64u << 20;
constexpr int64_t LATEST_PERIOD_MS = 1000;
constexpr int64_t THREAD_RETRY_MS = 5000;
constexpr int64_t TOLD_MS = 60000;  // how long a loss stays a problem

int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

CPictureStore::CPictureStore(std::string latestFolder, std::string keepFolder)
    : m_Latest(std::move(latestFolder)), m_Keep(std::move(keepFolder)) {}

CPictureStore::~CPictureStore() {
  {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_bStop = true;
    m_Wake.notify_all();
  }
  m_Thread.Join();
}

// Under m_Lock. It is started for the first picture.
bool CPictureStore::HasThread() {
  if (m_Thread.IsRunning()) return true;
  if (NowMs() < m_nThreadRetryAt) return false;
  const bool started = m_Thread.Start(Entrance, this, 0, "Pictures") != 0;
  m_nThreadRetryAt = started ? 0 : NowMs() + THREAD_RETRY_MS;
  return started;
}

unsigned CPictureStore::Entrance(void* self) {
  static_cast<CPictureStore*>(self)->Run();
  return 0;
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
  if (!HasThread() || m_nQueued + picture.size() > QUEUE_BYTES) {
    if (!keep) return;
    ++m_nLost;
    m_nLostAt = NowMs();
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
  if (m_nThreadRetryAt != 0) return "the system has no thread for writing pictures; tried again every 5 s";
  if (!m_Error.empty() || m_nLostAt == 0 || NowMs() - m_nLostAt > TOLD_MS) return m_Error;
  return "the disk does not keep up: " + std::to_string(m_nLost) + " pictures were not kept";
}
