// Events that components raise, and commands that the host sends to components.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

// What a raised event carries.
struct GXT_EVENT {
  int ComponentID;
  int Event;  // 2275: motion or alarm
  int Data;
};

inline constexpr int EVENT_MOTION = 2275;
inline constexpr int COMMAND_PLACE_CALL = 1180;   // the component's intercom client places its call
inline constexpr int COMMAND_CANCEL_CALL = 1181;  // and takes it back

class CEventServer {
 public:
  static constexpr size_t MOST_EVENTS = 4096;  // that wait; datagrams raise events, so further ones are dropped

  static CEventServer* Instance();

  // Queues an event; any thread, never blocks on a receiver.
  void RegisterEvent(int componentID, int event, int data);

  // Declares that a component obeys a command (`enabled` 0: no longer). Declaring it again has no effect.
  void CheckCommand(int componentID, int command, int category, int enabled);
  bool HasCommand(int componentID, int command) const;
  void ForgetComponent(int componentID);  // drops its commands

  // Readable while events are queued, so that a main thread can wait for them; -1: the system has none to give.
  int Descriptor() const;

  // Main thread: hands every queued event to the receiver, in order, and returns how many.
  int DispatchEvents();
  void Receiver(
      std::function<void(const GXT_EVENT&)> receiver);  // one; empty: events are dropped when dispatched

  // Main thread: carries out a declared command. False when the component has not declared it, is gone, or its
  // intercom client did not do it.
  bool ExecuteCommand(int componentID, int command);

 private:
  CEventServer();
  ~CEventServer();
  struct State;
  std::unique_ptr<State> m_pState;
};
