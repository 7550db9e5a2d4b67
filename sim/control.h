// The address where a test asks what the cameras saw and turns their switches: HTTP and JSON.
#pragma once

#include "sim/camera.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

// What can be asked and told there, a line each, as `camsim --help` shows it.
inline constexpr char CONTROL_HELP[] =
    "GET  /cameras             the state of all cameras, as an array\n"
    "GET  /cameras/N           of one (N from 1); what is posted to it answers with this too\n"
    "POST /cameras/N/quirks    {\"http\":\"chunked\",\"clock_offset\":7200}, see --list-quirks\n"
    "POST /cameras/N/power     {\"on\":false}\n"
    "POST /cameras/N/address   {\"address\":\"127.0.0.31\"}\n"
    "POST /cameras/N/motion    {\"on\":true}: in the picture, and subscribers are told, \"times\" times\n"
    "POST /cameras/N/alarm     {\"on\":true}: datagrams, \"times\" of them, of a camera of the kind alarm\n"
    "POST /quit                ends the program\n";

class CControl {
 public:
  CControl(std::vector<CSimCamera*> cameras, std::function<void()> quit);
  ~CControl();
  // `where` is ADDRESS:PORT. False with a reason in `error`.
  bool Start(const std::string& where, std::string* error);
  void Stop();

 private:
  struct CServer;
  std::vector<CSimCamera*> m_Cameras;
  std::function<void()> m_Quit;
  std::unique_ptr<CServer> m_PServer;
};
