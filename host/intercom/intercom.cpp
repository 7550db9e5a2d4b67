#include "host/intercom/intercom.h"

#include "host/system/system.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <tuple>
#include <utility>

namespace {

struct CTarget {
  CIntercomClient* Client;
  bool Rings;  // false: it did not take the call, which the delegate is still to be told
};

struct CCall {
  CIntercomClient* Caller;
  CIcomCallDelegate* Delegate;
  CALL_TYPE Type;
  std::vector<CTarget> Targets;

  CTarget* Find(const CIntercomClient* client) {
    const auto found = std::find_if(Targets.begin(), Targets.end(),
                                    [client](const CTarget& target) { return target.Client == client; });
    return found != Targets.end() ? &*found : nullptr;
  }
};

struct CTalk {
  CIntercomClient* Caller;
  CIntercomClient* Target;
};

enum class ANSWER { NONE, ACCEPT, DECLINE, END };

struct CAnswer {
  ANSWER What;
  CIntercomClient* Client;
};

void SetState(CIntercomClient* client, ICOM_CLIENT_STATE state, CIntercomClient* peer = nullptr) {
  const GXT_ICOM_STATE now{state, peer};
  client->RegisterIcomState(&now);
}

}  // namespace

// Calls, talks and sinks have a lock of their own beside the main thread's: it is held while clients and sinks
// are called, which is why one that was taken out is not being called any more. It comes after the main
// thread's and before all others.
struct CIntercomServer::State {
  CGXCritical CallLock;
  std::vector<CCall> Calls GUARDED_BY(CallLock);
  std::vector<CTalk> Talks GUARDED_BY(CallLock);
  std::vector<CIntercomSink*> Sinks GUARDED_BY(CallLock);

  mutable CGXCritical ListLock;  // held for moments only
  std::vector<CIntercomClient*> Clients GUARDED_BY(ListLock);
  std::deque<CAnswer> Answers GUARDED_BY(ListLock);

  bool Has(const CIntercomClient* client) const;
  void Notify(const std::function<void(CIntercomSink*)>& call) REQUIRES(CallLock);

  CCall* CallOf(const CIntercomClient* caller) REQUIRES(CallLock);
  CCall* CallTo(const CIntercomClient* target) REQUIRES(CallLock);    // the one that it rings for
  CCall* CallWith(const CIntercomClient* target) REQUIRES(CallLock);  // rings or not
  bool Ring(CIntercomClient* caller, CIntercomClient* target) REQUIRES(CallLock);
  CTarget Take(CIntercomClient* caller, CIntercomClient* target) REQUIRES(CallLock);
  void EndRinging(CIntercomClient* caller, const CTarget& target) REQUIRES(CallLock);
  void Cancel(CIntercomClient* caller, CIntercomClient* target) REQUIRES(CallLock);
  void CancelAll(CIntercomClient* caller) REQUIRES(CallLock);
  void Decline(CIntercomClient* caller, CIntercomClient* target) REQUIRES(CallLock);
  void DeclineRefused() REQUIRES(CallLock);
  void Accept(CIntercomClient* target) REQUIRES(CallLock);
  void BeginTalk(CIntercomClient* caller, CIntercomClient* target) REQUIRES(CallLock);
  CTalk* TalkOf(const CIntercomClient* party) REQUIRES(CallLock);
  void EndTalk(const CIntercomClient* party) REQUIRES(CallLock);

  void Post(ANSWER what, CIntercomClient* client);
  void DropAnswers(const CIntercomClient* client);
  bool NextAnswer(CAnswer* answer);
  static void TakeAnswers(void* state);
};

CIntercomSink::~CIntercomSink() = default;

CIntercomServer::CIntercomServer() : m_pState(std::make_unique<State>()) {}
CIntercomServer::~CIntercomServer() = default;

CIntercomServer* CIntercomServer::Instance() {
  static CIntercomServer* const server = new CIntercomServer;  // never destroyed: clients may outlive statics
  return server;
}

// ---- Who is there ----

void CIntercomServer::RegisterClient(CIntercomClient* client) {
  const CMainThreadLock main;
  const CGXLock calls(m_pState->CallLock);
  if (client == nullptr || HasClient(client)) return;
  {
    const CGXLock list(m_pState->ListLock);
    m_pState->Clients.push_back(client);
  }
  m_pState->Notify([client](CIntercomSink* sink) { sink->OnClientAdded(client); });
}

void CIntercomServer::RemoveClient(CIntercomClient* client) {
  const CMainThreadLock main;  // not to be had on a cancelled thread, where the next one has to do
  State& state = *m_pState;
  const CGXLock calls(state.CallLock);
  if (!HasClient(client)) return;
  while (state.TalkOf(client) != nullptr) state.EndTalk(client);
  state.CancelAll(client);
  while (const CCall* const call = state.CallWith(client)) state.Decline(call->Caller, client);
  state.DropAnswers(client);
  state.Notify([client](CIntercomSink* sink) { sink->OnClientRemoved(client); });
  const CGXLock list(state.ListLock);
  std::erase(state.Clients, client);
}

bool CIntercomServer::HasClient(const CIntercomClient* client) const {
  return m_pState->Has(client);
}

bool CIntercomServer::State::Has(const CIntercomClient* client) const {
  const CGXLock list(ListLock);
  return std::find(Clients.begin(), Clients.end(), client) != Clients.end();
}

std::vector<CIntercomClient*> CIntercomServer::Clients() const {
  const CGXLock list(m_pState->ListLock);
  return m_pState->Clients;
}

void CIntercomServer::RegisterSink(CIntercomSink* sink) {
  const CGXLock calls(m_pState->CallLock);
  std::vector<CIntercomSink*>& sinks = m_pState->Sinks;
  if (sink != nullptr && std::find(sinks.begin(), sinks.end(), sink) == sinks.end()) sinks.push_back(sink);
}

void CIntercomServer::UnregisterSink(CIntercomSink* sink) {
  const CGXLock calls(m_pState->CallLock);
  std::erase(m_pState->Sinks, sink);
}

void CIntercomServer::NotifyState(CIntercomClient* client, ICOM_CLIENT_STATE state) {
  const CGXLock calls(m_pState->CallLock);
  if (HasClient(client))
    m_pState->Notify([client, state](CIntercomSink* sink) { sink->OnClientState(client, state); });
}

void CIntercomServer::State::Notify(const std::function<void(CIntercomSink*)>& call) {
  for (size_t i = 0; i < Sinks.size();) {
    CIntercomSink* const sink = Sinks[i];
    call(sink);
    // It may have taken itself out, or one before it: then the next one has moved to this place.
    if (i < Sinks.size() && Sinks[i] == sink) ++i;
  }
}

// ---- The caller's side ----

CCall* CIntercomServer::State::CallOf(const CIntercomClient* caller) {
  for (CCall& call : Calls)
    if (call.Caller == caller) return &call;
  return nullptr;
}

CCall* CIntercomServer::State::CallTo(const CIntercomClient* client) {
  for (CCall& call : Calls)
    if (const CTarget* const target = call.Find(client); target != nullptr && target->Rings) return &call;
  return nullptr;
}

CCall* CIntercomServer::State::CallWith(const CIntercomClient* client) {
  for (CCall& call : Calls)
    if (call.Find(client) != nullptr) return &call;
  return nullptr;
}

int CIntercomServer::LoadDefaultCallTargets(CIntercomClient* caller, CIntercomClient** targets, int most) {
  int count = 0;
  for (CIntercomClient* const client : Clients())
    if (client != caller && count < most && client->TakesDefaultCalls()) targets[count++] = client;
  return count;
}

int CIntercomServer::InitiateCall(CIntercomClient* caller, CIntercomClient* const* targets, int count,
                                  CIcomCallDelegate* delegate, CALL_TYPE type) {
  State& state = *m_pState;
  const CGXLock calls(state.CallLock);
  if (!HasClient(caller) || caller->IcomState() != ICOM_CLIENT_IDLE || state.CallOf(caller) != nullptr)
    return 0;
  CCall call{caller, delegate, type, {}};
  for (int i = 0; i < count; ++i)
    if (targets[i] != caller && HasClient(targets[i]) && call.Find(targets[i]) == nullptr)
      call.Targets.push_back({targets[i], false});
  if (call.Targets.empty()) return 0;
  state.Calls.push_back(call);
  SetState(caller, ICOM_CLIENT_CALLING);
  for (const CTarget& target : call.Targets)
    if (!state.Ring(caller, target.Client)) state.Post(ANSWER::NONE, target.Client);
  return 1;
}

// Whether the target took the call; it is then RINGING. Anything may have happened since the call was placed.
bool CIntercomServer::State::Ring(CIntercomClient* caller, CIntercomClient* client) {
  CCall* call = CallOf(caller);
  CTarget* target = call != nullptr ? call->Find(client) : nullptr;
  if (target == nullptr || client->IcomState() != ICOM_CLIENT_IDLE) return false;
  const CALL_TYPE type = call->Type;
  target->Rings = true;
  SetState(client, ICOM_CLIENT_RINGING, caller);
  const bool takes = client->HandleBeginSession(caller, type, type, INCOMING_CALL_RING) != 0;
  if ((call = CallTo(client)) == nullptr || call->Caller != caller) return true;
  if (takes) {
    if (client->AnswerMode() == ICOM_ANSWER_BY_ITSELF) Post(ANSWER::ACCEPT, client);
    return true;
  }
  call->Find(client)->Rings = false;
  client->RegisterIcomState(nullptr);
  return false;
}

void CIntercomServer::CancelCall(CIntercomClient* caller, CIntercomClient* target) {
  const CGXLock calls(m_pState->CallLock);
  m_pState->Cancel(caller, target);
}

void CIntercomServer::State::Cancel(CIntercomClient* caller, CIntercomClient* client) {
  const CTarget target = Take(caller, client);
  if (target.Client == nullptr) return;
  EndRinging(caller, target);
  if (target.Rings) client->HandleCancelSession();
}

void CIntercomServer::State::CancelAll(CIntercomClient* caller) {
  while (CCall* const call = CallOf(caller)) Cancel(caller, call->Targets.front().Client);
}

// Takes a target out of a call, and the call away with its last. Without a client: there is none.
CTarget CIntercomServer::State::Take(CIntercomClient* caller, CIntercomClient* client) {
  CCall* const call = CallOf(caller);
  CTarget* const found = call != nullptr ? call->Find(client) : nullptr;
  if (found == nullptr) return {nullptr, false};
  const CTarget target = *found;
  call->Targets.erase(call->Targets.begin() + (found - call->Targets.data()));
  if (call->Targets.empty()) Calls.erase(Calls.begin() + (call - Calls.data()));
  return target;
}

// Of one that was taken out of the call, and of the caller when it was the last.
void CIntercomServer::State::EndRinging(CIntercomClient* caller, const CTarget& target) {
  if (target.Rings) {
    DropAnswers(target.Client);  // they were given to this call
    target.Client->RegisterIcomState(nullptr);
  }
  if (CallOf(caller) == nullptr && caller->IcomState() == ICOM_CLIENT_CALLING)
    caller->RegisterIcomState(nullptr);
}

// ---- The side that is called ----

void CIntercomServer::AcceptCall(CIntercomClient* target) {
  m_pState->Post(ANSWER::ACCEPT, target);
}

void CIntercomServer::DeclineCall(CIntercomClient* target) {
  m_pState->Post(ANSWER::DECLINE, target);
}

void CIntercomServer::EndCall(CIntercomClient* party) {
  m_pState->Post(ANSWER::END, party);
}

void CIntercomServer::State::Post(ANSWER what, CIntercomClient* client) {
  {
    const CGXLock list(ListLock);
    Answers.push_back({what, client});
  }
  CSystem::Instance()->PostToMainThread(TakeAnswers, this);
}

void CIntercomServer::State::DropAnswers(const CIntercomClient* client) {
  const CGXLock list(ListLock);
  std::erase_if(Answers, [client](const CAnswer& answer) { return answer.Client == client; });
}

bool CIntercomServer::State::NextAnswer(CAnswer* answer) {
  const CGXLock list(ListLock);
  if (Answers.empty()) return false;
  *answer = Answers.front();
  Answers.pop_front();
  return true;
}

void CIntercomServer::State::TakeAnswers(void* self) {
  State& state = *static_cast<State*>(self);
  const CGXLock calls(state.CallLock);
  state.DeclineRefused();
  CAnswer answer;
  while (state.NextAnswer(&answer)) {
    const CCall* const call = state.CallTo(answer.Client);
    if (answer.What == ANSWER::END) state.EndTalk(answer.Client);
    if (answer.What == ANSWER::ACCEPT && call != nullptr) state.Accept(answer.Client);
    if (answer.What == ANSWER::DECLINE && call != nullptr) state.Decline(call->Caller, answer.Client);
  }
}

void CIntercomServer::State::DeclineRefused() {
  const auto refused = [this]() REQUIRES(CallLock) {
    for (const CCall& call : Calls)
      for (const CTarget& target : call.Targets)
        if (!target.Rings) return std::pair(call.Caller, target.Client);
    return std::pair<CIntercomClient*, CIntercomClient*>(nullptr, nullptr);
  };
  for (auto [caller, target] = refused(); target != nullptr; std::tie(caller, target) = refused())
    Decline(caller, target);
}

void CIntercomServer::State::Decline(CIntercomClient* caller, CIntercomClient* client) {
  const CCall* const call = CallOf(caller);
  if (call == nullptr) return;
  CIcomCallDelegate* const delegate = call->Delegate;
  const CTarget target = Take(caller, client);
  if (target.Client == nullptr) return;
  EndRinging(caller, target);
  if (delegate != nullptr) delegate->CallDeclined(client);
}

void CIntercomServer::State::Accept(CIntercomClient* client) {
  const CCall call = *CallTo(client);
  Take(call.Caller, client);
  Talks.push_back({call.Caller, client});
  SetState(call.Caller, ICOM_CLIENT_TALKING, client);
  SetState(client, ICOM_CLIENT_TALKING, call.Caller);
  if (call.Delegate != nullptr) call.Delegate->CallAccepted(client, nullptr, call.Type);
  CancelAll(call.Caller);
  BeginTalk(call.Caller, client);
}

// ---- Talks ----

CTalk* CIntercomServer::State::TalkOf(const CIntercomClient* party) {
  for (CTalk& talk : Talks)
    if (talk.Caller == party || talk.Target == party) return &talk;
  return nullptr;
}

void CIntercomServer::State::BeginTalk(CIntercomClient* caller, CIntercomClient* target) {
  // Asked again before each: what is called may end the talk.
  const auto talks = [this, caller, target]() REQUIRES(CallLock) {
    const CTalk* const talk = TalkOf(caller);
    return talk != nullptr && talk->Target == target;
  };
  if (talks() && caller->HasAudioRX()) caller->BeginReceiveAudioFrom(target);
  if (talks() && target->HasAudioRX()) target->BeginReceiveAudioFrom(caller);
}

void CIntercomServer::State::EndTalk(const CIntercomClient* party) {
  CTalk* const found = TalkOf(party);
  if (found == nullptr) return;
  const CTalk talk = *found;
  Talks.erase(Talks.begin() + (found - Talks.data()));
  CIntercomClient* const other = talk.Caller == party ? talk.Target : talk.Caller;
  talk.Caller->StopReceiveAudio();
  talk.Target->StopReceiveAudio();
  talk.Caller->RegisterIcomState(nullptr);
  talk.Target->RegisterIcomState(nullptr);
  other->HandleCancelSession();
}
