// Keeps what every component says, and passes it to the log.
#pragma once

#include "controller/site/load_progress.h"
#include "host/base/trace.h"

#include <map>
#include <mutex>
#include <string>

class CTraceBook : public CTraceListener {
 public:
  CTraceBook();  // listens until destroyed
  ~CTraceBook() override;

  void OnTrace(CTraceProducer* producer, const CGXString& line) override;

  // What the component with that id has said; empty when nothing.
  CLoadProgress Progress(int id) const;
  bool Failed(int id) const;  // its loading

  void Forget(int id);

 private:
  mutable std::mutex m_Lock;
  std::map<int, CLoadProgress> m_Pages;  // m_Lock
};
