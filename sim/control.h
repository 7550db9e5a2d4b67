#pragma once
// The address where a test asks what the cameras saw and turns their switches: HTTP and JSON.
#include "sim/camera.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

// GET  /cameras                 the state of all, as an array
// GET  /cameras/N               of one (N from 1); every POST below answers with it
// POST /cameras/N/quirks        {"http":"chunked","clock_offset":7200}
// POST /cameras/N/power         {"on":false}
// POST /cameras/N/address       {"address":"127.0.0.31"}
// POST /cameras/N/motion        {"on":true}, and "times" to tell subscribers that often
// POST /cameras/N/alarm         {"on":true}, and "times" for as many datagrams; cameras of the alarm brand
// POST /quit                    ends the program
class CControl {
 public:
  CControl(std::vector<CCamera*> cameras, std::function<void()> quit);
  ~CControl();
  // `where` is ADDRESS:PORT. False with a reason in `error`.
  bool Start(const std::string& where, std::string* error);
  void Stop();

 private:
  struct CServer;
  std::vector<CCamera*> m_cameras;
  std::function<void()> m_quit;
  std::unique_ptr<CServer> m_server;
};
