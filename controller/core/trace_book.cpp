#include "controller/core/trace_book.h"

#include "controller/core/log.h"
#include "controller/core/printable.h"
#include "host/system/component.h"

CTraceBook::CTraceBook() {
  CTraceServer::Instance()->AddListener(this);
}

CTraceBook::~CTraceBook() {
  CTraceServer::Instance()->RemoveListener(this);
}

void CTraceBook::OnTrace(CTraceProducer* producer, const CGXString& line) {
  const auto* component = dynamic_cast<CSystemComponent*>(producer);
  CGXString text = line;
  text.TrimRight();  // some lines end in a line feed
  const std::string speaker =
      producer == nullptr ? "driver" : Bounded(Printable(producer->TraceName().Str()), NAME_BYTES);
  Log(speaker + ": " + text.Str(), speaker);
  if (component == nullptr) return;
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_Pages[component->ID()].Add(text.Str());
}

CLoadProgress CTraceBook::Progress(int id) const {
  const std::lock_guard<std::mutex> lock(m_Lock);
  const auto page = m_Pages.find(id);
  return page == m_Pages.end() ? CLoadProgress() : page->second;
}

bool CTraceBook::Failed(int id) const {
  const std::lock_guard<std::mutex> lock(m_Lock);
  const auto page = m_Pages.find(id);
  return page != m_Pages.end() && page->second.Failed();
}

void CTraceBook::Forget(int id) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_Pages.erase(id);
}
