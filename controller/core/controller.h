// The running controller: plug-in, site, cameras, searches. Everything on the main thread.
#pragma once

#include "controller/core/command_socket.h"
#include "controller/core/operations.h"
#include "controller/core/options.h"
#include "controller/core/plugin_loader.h"
#include "controller/site/camera.h"
#include "controller/site/finder.h"
#include "controller/site/site.h"
#include "controller/terminal/display.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

// What every command needs before the driver can work: log, network interface, plug-in. False with a reason.
bool PrepareDriver(const COptions& options, CPlugin* plugin, std::string* error);

class CController {
 public:
  explicit CController(const COptions& options);
  ~CController();  // ends and removes every camera

  // Loads the site and starts its cameras. False with a reason.
  bool Start(std::string* error);

  // Works until a stop signal or the end of the time asked for; then writes the summary. False with a reason
  // when something that was asked for could not be written.
  bool Run(std::string* error);

 private:
  using Clock = std::chrono::steady_clock;

  bool PrepareFolders(std::string* error);
  bool StartPanel(std::string* error);
  bool InstallByURL(std::string* error);
  void Watch(CVideoSystem* video);
  bool MayInstall(CDeviceConfig* found, std::string* why) const;
  void InstallFound();
  void FinishRemovals();
  void SearchWhenDue();
  CCommandSocket::Answer Answer(const std::string& request);
  void TakeEvent(const GXT_EVENT& event);
  void Serve();
  void Tick();
  void SaveWhenAsked();
  std::vector<CCameraStatus> Statuses();
  std::string Note() const;
  void Show();
  bool TimeIsUp() const;
  bool WriteSummary(std::string* error);

  const COptions m_Options;
  CPlugin m_Plugin;
  CTraceBook m_Book;
  std::unique_ptr<CSiteKeeper> m_pSite;
  std::unique_ptr<CPictureStore> m_pPictures;
  std::unique_ptr<CFinder> m_pFinder;
  std::unique_ptr<CDisplay> m_pDisplay;
  CRunningSite m_Running;
  CCommandSocket m_Socket;
  Clock::time_point m_Started, m_NextTick, m_NextShow, m_NextSearch, m_NextSave, m_NextFileThread;
  bool m_bSaveWanted = false;
  std::string m_SaveError;
};
