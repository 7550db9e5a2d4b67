#include "controller/trace_book.h"

#include "controller/log.h"
#include "host/component.h"

CTraceBook::CTraceBook() {
  CTraceServer::Instance()->AddListener(this);
}

CTraceBook::~CTraceBook() {
  CTraceServer::Instance()->RemoveListener(this);
}

void CTraceBook::OnTrace(CTraceProducer* producer, const CGXString& line) {
  const auto* component = dynamic_cast<CSystemComponent*>(producer);
  const std::string speaker = producer == nullptr ? "driver" : producer->TraceName().Str();
  Log(speaker + ": " + line.Str());
  if (component == nullptr) return;
  const std::lock_guard<std::mutex> lock(m_Lock);
  Page& page = m_Pages[component->ID()];
  page.Progress.Add(line.Str());
  if (page.OnLine) page.OnLine(line.Str());
}

CLoadProgress CTraceBook::Progress(int id) const {
  const std::lock_guard<std::mutex> lock(m_Lock);
  const auto page = m_Pages.find(id);
  return page == m_Pages.end() ? CLoadProgress() : page->second.Progress;
}

void CTraceBook::Follow(int id, Follower follower) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_Pages[id].OnLine = std::move(follower);
}

void CTraceBook::Forget(int id) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_Pages.erase(id);
}
