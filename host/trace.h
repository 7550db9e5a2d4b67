// Trace lines: what a component says about its progress, its warnings and its errors.
#pragma once

#include "host/gxstring.h"
#include "host/gxthread.h"

#include <atomic>

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

class CTraceServer {
 public:
  static CTraceServer* Instance();

  // Sets the producer's tracing on or off by its present name; called whenever that name changes.
  void LoadStateFor(CTraceProducer* producer);

  void AddListener(CTraceListener* listener);     // the caller keeps it; tracing is on while there is one
  void RemoveListener(CTraceListener* listener);  // afterwards it gets no further line
};
