// What the driver says while a test runs.
#pragma once

#include "host/base/trace.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

// Keeps the trace lines of one producer, or of all.
class CTraceKeeper : public CTraceListener {
 public:
  explicit CTraceKeeper(CTraceProducer* producer = nullptr) : m_pProducer(producer) {
    CTraceServer::Instance()->AddListener(this);
  }
  ~CTraceKeeper() override { CTraceServer::Instance()->RemoveListener(this); }
  void OnTrace(CTraceProducer* producer, const CGXString& line) override {
    if (m_pProducer != nullptr && producer != m_pProducer) return;
    const std::lock_guard lock(m_Mutex);
    m_Lines.push_back(line.Str());
  }
  std::vector<std::string> Lines() const {
    const std::lock_guard lock(m_Mutex);
    return m_Lines;
  }
  int Count(const std::string& line) const {
    const std::vector<std::string> lines = Lines();
    return static_cast<int>(std::count(lines.begin(), lines.end(), line));
  }
  bool Has(const std::string& line) const { return Count(line) > 0; }
  void Forget() {
    const std::lock_guard lock(m_Mutex);
    m_Lines.clear();
  }

 private:
  CTraceProducer* const m_pProducer;
  mutable std::mutex m_Mutex;
  std::vector<std::string> m_Lines;
};
