// Trace lines: what a component says about its progress, its warnings and its errors.
#pragma once

#include "host/base/gxstring.h"
#include "host/base/gxthread.h"

#include <atomic>
#include <unordered_set>
#include <vector>

// A source of trace lines; a base class of the components that speak. Polymorphic, so that whoever receives a
// line can ask what else the speaker is.
class CTraceProducer {
 public:
  explicit CTraceProducer(CGXString name);
  virtual ~CTraceProducer();

  bool Trace() const {
    return m_bTrace;
  }                                   // whether anybody listens; texts that format data are built only then
  void Trace(const CGXString& line);  // any thread

  CGXString TraceName() const;
  void TraceName(const CGXString& name);

 private:
  friend class CTraceServer;
  mutable CGXCritical m_NameLock;
  CGXString m_TraceName GUARDED_BY(m_NameLock);
  std::atomic<bool> m_bTrace{false};
};

// Receives trace lines, on the thread that speaks; must not block and must not trace.
class CTraceListener {
 public:
  virtual ~CTraceListener();
  // `producer` is null for a line that belongs to no component (TraceWrap).
  virtual void OnTrace(CTraceProducer* producer, const CGXString& line) = 0;
};

// Knows who speaks and who listens; one a process. A line is handed over under the server's lock, which is why
// a listener that was removed is not being called any more. The lock is the lowest of all: what a listener
// locks must not be held by anybody who traces.
class CTraceServer {
 public:
  static CTraceServer* Instance();

  // Sets the producer's tracing on or off by its present name; called whenever that name changes.
  void LoadStateFor(CTraceProducer* producer);

  void AddListener(CTraceListener* listener);     // the caller keeps it; tracing is on while there is one
  void RemoveListener(CTraceListener* listener);  // waits for a line in flight; afterwards it gets no other

  // Hands a line to every listener, on the calling thread. Lines that a listener itself speaks are dropped.
  void Deliver(CTraceProducer* producer, const CGXString& line);

 private:
  friend class CTraceProducer;
  CTraceServer();
  void AddProducer(CTraceProducer* producer);
  void RemoveProducer(CTraceProducer* producer);
  void SwitchProducers() REQUIRES(m_Lock);  // and the process-wide line, by whether anybody listens

  CGXCritical m_Lock;
  std::vector<CTraceListener*> m_Listeners GUARDED_BY(m_Lock);
  std::unordered_set<CTraceProducer*> m_Producers GUARDED_BY(m_Lock);
};
