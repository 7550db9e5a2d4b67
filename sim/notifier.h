// Pushes WS-BaseNotification messages to whoever has subscribed at a camera.
#pragma once

#include "sim/model.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

// Each notification goes over a connection of its own, to one subscriber after the other, and the next follows
// when the answer has come. All operations: any thread, without the model's lock.
class CNotifier {
 public:
  explicit CNotifier(CCameraModel& model) : m_Model(model) {}
  ~CNotifier() { Stop(); }

  void Start();
  // Drops what waits and breaks off what is being sent; returns when the thread has ended. May start again.
  void Stop();
  // Tells all subscribers `times` times whether there is motion. Who has subscribed is looked up at sending;
  // while stopped, nobody is told.
  void PushMotion(bool on, int times);

 private:
  void Run();
  void Send(const std::string& consumer, const std::string& body);
  int Connect(const std::string& host, int port);
  void SendOver(int socket, const std::string& head, const std::string& body);
  bool Pieces(int socket, const std::string& bytes);

  CCameraModel& m_Model;
  std::mutex m_Lock;  // guards what follows; the model's lock may be taken under it
  std::condition_variable m_Changed;
  bool m_BStop = true;
  int m_ISocket = -1;  // of the notification under way
  std::deque<bool> m_Waiting;
  std::thread m_Thread;
};
