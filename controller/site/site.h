// The components of the running controller and the site file that they come from and go to. Main thread.
#pragma once

#include "controller/core/plugin_loader.h"
#include "controller/site/site_file.h"
#include "host/video/video.h"

#include <map>
#include <string>

class CSiteKeeper {
 public:
  CSiteKeeper(const CPlugin* plugin, const std::string& path) : m_pPlugin(plugin), m_File(path) {}

  bool Lock(std::string* error) { return m_File.Lock(error); }

  // Creates every component of the file and adds it to the system. An absent file is an empty site. False with
  // a reason that names the place; the system is then empty again.
  bool Load(std::string* error);

  // Writes the system's components back. False with a reason: the file is then as it was.
  bool Save(std::string* error);

  // A new camera in the system's list, not started. The name is made unique. Null when the driver makes none.
  CVideoSystem* Install(CDeviceConfig* found, std::string* error);
  CVideoSystem* Install(const std::string& url, const std::string& user, const std::string& password,
                        std::string* error);

  static bool NameTaken(const std::string& name);

  // Keeps a component's record, so that it is saved although the component is away, until it is brought back
  // with its id or dropped. False with a reason.
  bool Hold(CSystemComponent* component, std::string* error);
  CVideoSystem* RestoreHeld(int id, std::string* error);  // null with a reason: it is still held
  void DropHeld(int id);

  // The static camera with that address; null when there is none.
  static CVideoSystem* FindByURL(const std::string& url);

 private:
  bool Restore(const CSiteComponent& from, int version, const std::string& place, std::string* error);
  CVideoSystem* Add(std::unique_ptr<CSystemComponent> component, const std::string& name);

  static bool Describe(CSystemComponent* component, CSiteComponent* to, std::string* error);

  const CPlugin* const m_pPlugin;
  std::map<int, CSiteComponent> m_Held, m_LastGood;  // by id
  CSiteFile m_File;
};
