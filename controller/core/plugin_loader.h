// The camera driver, loaded by name.
#pragma once

#include "host/system/component.h"

#include <memory>
#include <string>
#include <vector>

class CPlugin {
 public:
  CPlugin() = default;
  CPlugin(const CPlugin&) = delete;
  CPlugin& operator=(const CPlugin&) = delete;
  // The library stays loaded: its threads and tables may outlive this object.

  static std::string DefaultPath();  // onvifcam.so beside this program

  // Loads the library, finds every entry point and asks for what it offers. False with a reason.
  bool Load(const std::string& path, std::string* error);

  // The component types, in the library's order.
  const std::vector<std::unique_ptr<CSystemComponentDef>>& Types() const { return m_Types; }

  // A new component; null when the library does not offer that type.
  std::unique_ptr<CSystemComponent> Create(int type) const;

 private:
  void AskForTypes();

  void* m_pLibrary = nullptr;
  CSystemComponent* (*m_pCreate)(CSystemComponentDef*) = nullptr;
  std::vector<std::unique_ptr<CSystemComponentDef>> m_Types;
};
