// Keeps what every component says, and passes it to the log.
#pragma once

#include "controller/site/load_progress.h"
#include "host/base/trace.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

class CTraceBook : public CTraceListener {
 public:
  CTraceBook();  // listens until destroyed
  ~CTraceBook() override;

  void OnTrace(CTraceProducer* producer, const CGXString& line) override;

  // What the component with that id has said; empty when nothing.
  CLoadProgress Progress(int id) const;
  bool Failed(int id) const;  // its loading

  // Calls `follower` with each line of that component, on the thread that speaks; it must not block. Null ends
  // it, and after that the old one is not called any more.
  using Follower = std::function<void(std::string_view)>;
  void Follow(int id, Follower follower);
  void Forget(int id);

 private:
  struct Page {
    CLoadProgress Progress;
    Follower OnLine;
  };
  mutable std::mutex m_Lock;
  std::map<int, Page> m_Pages;  // m_Lock
};
