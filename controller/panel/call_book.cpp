#include "controller/panel/call_book.h"

#include "host/system/component.h"

namespace {

int IDOf(CIntercomClient* client) {
  CSystemComponent* const component = client != nullptr ? client->IcomBindingObject() : nullptr;
  return component != nullptr ? component->ID() : 0;
}

}  // namespace

const char* StateName(ICOM_CLIENT_STATE state) {
  switch (state) {
    case ICOM_CLIENT_CALLING:
      return "calling";
    case ICOM_CLIENT_RINGING:
      return "ringing";
    case ICOM_CLIENT_TALKING:
      return "talking";
    default:
      return "idle";
  }
}

CCallBook::CDoor& CCallBook::DoorOf(CIntercomClient* client) {
  return m_Doors[IDOf(client)];
}

CCallCounts CCallBook::Counts(CIntercomClient* door) const {
  CCallCounts counts;
  if (const auto found = m_Doors.find(IDOf(door)); found != m_Doors.end()) {
    const CTalkCounts& talks = *found->second.Talks;
    counts = found->second.Counts;
    counts.SpeakerPackets = talks.SpeakerPackets;
    counts.MicrophonePackets = talks.MicrophonePackets;
    counts.Lost = talks.Lost;
    counts.LongestGapMs = talks.LongestGapMs;
  }
  counts.State = StateName(door != nullptr ? door->IcomState() : ICOM_CLIENT_IDLE);
  return counts;
}

std::shared_ptr<CTalkCounts> CCallBook::Talks(CIntercomClient* door) {
  return DoorOf(door).Talks;
}

void CCallBook::Declined(const CIntercomClient* door) {
  if (const auto call = m_Open.find(door); call != m_Open.end()) call->second.Declined = true;
}

void CCallBook::OnClientState(CIntercomClient* client, ICOM_CLIENT_STATE state) {
  if (state == ICOM_CLIENT_RINGING) {
    if (const auto call = m_Open.find(client->IcomPeer()); call != m_Open.end()) call->second.Rang = true;
    return;
  }
  if (state == ICOM_CLIENT_CALLING) {
    ++DoorOf(client).Counts.Placed;
    m_Open[client] = {std::chrono::steady_clock::now()};
    return;
  }
  const auto call = m_Open.find(client);
  if (call == m_Open.end()) return;
  CCallCounts& counts = DoorOf(client).Counts;
  if (state == ICOM_CLIENT_TALKING)
    ++counts.Accepted;
  else
    Close(call->second, &counts);
  m_Open.erase(call);
}

void CCallBook::Close(const CCall& call, CCallCounts* counts) {
  if (call.Declined || !call.Rang)
    ++counts->Declined;
  else if (std::chrono::steady_clock::now() - call.Placed >= RINGS_AT_LEAST)
    ++counts->TimedOut;
  else
    ++counts->Cancelled;
}
