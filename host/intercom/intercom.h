// The intercom server: knows the clients, rings them for one another, and joins those who accept.
//
// A call: InitiateCall has every target's HandleBeginSession called, and the targets ring. AcceptCall (or
// ICOM_ANSWER_BY_ITSELF) of the first: in the next main-thread pass the caller's delegate has CallAccepted, the
// other targets stop ringing, and each of the two plays the other (BeginReceiveAudioFrom). DeclineCall:
// CallDeclined. CancelCall of the caller: HandleCancelSession of the target, and the delegate is told nothing.
// EndCall of either, or its leaving: both StopReceiveAudio, and the other one has HandleCancelSession.
#pragma once

#include "host/intercom/intercom_client.h"

#include <memory>
#include <vector>

// Told who comes, goes and talks; under the main-thread lock, on the thread that holds it.
class CIntercomSink {
 public:
  virtual ~CIntercomSink();
  virtual void OnClientAdded(CIntercomClient* client) = 0;
  virtual void OnClientRemoved(CIntercomClient* client) = 0;  // the last moment to detach from it
  virtual void OnClientState(CIntercomClient* client, ICOM_CLIENT_STATE state) = 0;
};

class CIntercomServer {
 public:
  static constexpr int MOST_CALL_TARGETS = 256;

  static CIntercomServer* Instance();

  // Both take the main-thread lock. The caller keeps the client.
  void RegisterClient(CIntercomClient* client);  // registering twice has no effect
  void RemoveClient(CIntercomClient* client);    // its calls and its talk end; an unknown client is ignored
  // Any thread; what Clients() gives may be used under the main-thread lock.
  bool HasClient(const CIntercomClient* client) const;
  std::vector<CIntercomClient*> Clients() const;

  // Any thread. The caller keeps the sink. Unregistering waits for a notice in flight; a sink may do so from
  // within one.
  void RegisterSink(CIntercomSink* sink);
  void UnregisterSink(CIntercomSink* sink);

  // ---- The caller's side; under the main-thread lock ----
  // Fills in up to `most` clients that take calls of `caller`'s button, never `caller`; how many.
  int LoadDefaultCallTargets(CIntercomClient* caller, CIntercomClient** targets, int most);
  // Rings the targets; one that is busy, or does not take the call, has declined. 0 when `caller` is busy
  // itself or none of the targets is registered. `delegate` may be null; it lives as long as the caller does.
  int InitiateCall(CIntercomClient* caller, CIntercomClient* const* targets, int count,
                   CIcomCallDelegate* delegate, CALL_TYPE type);
  void CancelCall(CIntercomClient* caller, CIntercomClient* target);  // one that does not ring is ignored

  // ---- The side that is called; any thread, carried out in the next main-thread pass ----
  void AcceptCall(CIntercomClient* target);
  void DeclineCall(CIntercomClient* target);
  void EndCall(CIntercomClient* party);  // of the two that talk

 private:
  friend class CIntercomClient;
  CIntercomServer();
  ~CIntercomServer();
  void NotifyState(CIntercomClient* client, ICOM_CLIENT_STATE state);
  struct State;
  std::unique_ptr<State> m_pState;
};
