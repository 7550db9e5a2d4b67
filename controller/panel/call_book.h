// What became of the calls that door stations placed.
#pragma once

#include "controller/panel/talk_counts.h"
#include "host/intercom/intercom.h"

#include <chrono>
#include <map>
#include <memory>
#include <string>

const char* StateName(ICOM_CLIENT_STATE state);  // "idle", "calling", "ringing" or "talking"

struct CCallCounts {
  int Placed = 0, Accepted = 0, Declined = 0, TimedOut = 0, Cancelled = 0;  // those that ring: only placed
  std::string State;  // of the door station, as StateName has it
  int64_t SpeakerPackets = 0, MicrophonePackets = 0, Lost = 0;
  int LongestGapMs = 0;
};

// Follows the states of the intercom's clients, from construction to destruction. By component id; under the
// main-thread lock.
class CCallBook : public CIntercomSink {
 public:
  // A door station that nobody answered takes its call back after this time.
  static constexpr std::chrono::seconds RINGS_AT_LEAST{15};

  CCallBook() { CIntercomServer::Instance()->RegisterSink(this); }
  ~CCallBook() override { CIntercomServer::Instance()->UnregisterSink(this); }
  CCallBook(const CCallBook&) = delete;
  CCallBook& operator=(const CCallBook&) = delete;

  CCallCounts Counts(CIntercomClient* door) const;
  std::shared_ptr<CTalkCounts> Talks(CIntercomClient* door);  // to be added to; never null

  // A party has declined the call of `door`. What ends otherwise without having been accepted has timed out,
  // was cancelled, or found nobody who was free, which counts as declined.
  void Declined(const CIntercomClient* door);

  void OnClientAdded(CIntercomClient*) override {}
  void OnClientRemoved(CIntercomClient*) override {}
  void OnClientState(CIntercomClient* client, ICOM_CLIENT_STATE state) override;

 private:
  struct CDoor {
    CCallCounts Counts;
    std::shared_ptr<CTalkCounts> Talks = std::make_shared<CTalkCounts>();
  };
  struct CCall {
    std::chrono::steady_clock::time_point Placed;
    bool Rang = false, Declined = false;
  };
  CDoor& DoorOf(CIntercomClient* client);
  static void Close(const CCall& call, CCallCounts* counts);

  std::map<int, CDoor> m_Doors;
  std::map<const CIntercomClient*, CCall> m_Open;
};
