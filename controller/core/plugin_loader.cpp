#include "controller/core/plugin_loader.h"

#include "host/base/gxlist.h"

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>

namespace {

constexpr unsigned REASON_ATTACH = 1;
constexpr const char* ENTRY_POINTS[] = {"DllMain",
                                        "LoadDeviceInterfaces",
                                        "CreateDeviceInterface",
                                        "LoadSystemComponentDefs",
                                        "CreateSystemComponent",
                                        "LoadAudioServices",
                                        "CreateAudioService",
                                        "CreateAudioShare",
                                        "LoadAudioFileTypes",
                                        "CreateAudioFile",
                                        "RegisterInterface",
                                        "RegisterComponent"};

template <class Function>
Function Symbol(void* library, const char* name) {
  return reinterpret_cast<Function>(dlsym(library, name));
}

}  // namespace

std::string CPlugin::DefaultPath() {
  std::error_code code;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", code);
  return (program.parent_path() / "onvifcam.so").string();
}

bool CPlugin::Load(const std::string& path, std::string* error) {
  if (access(path.c_str(), R_OK) != 0) {
    *error = path + ": no such plug-in can be read; name the camera driver with --plugin";
    return false;
  }
  // Without a slash dlopen would search the system's folders instead.
  const std::string absolute = std::filesystem::absolute(path).string();
  m_pLibrary = dlopen(absolute.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (m_pLibrary == nullptr) {
    *error = std::string("cannot load the plug-in: ") + dlerror();
    return false;
  }
  for (const char* name : ENTRY_POINTS) {
    if (dlsym(m_pLibrary, name) != nullptr) continue;
    *error = path + ": not a camera driver: it has no entry point " + name;
    return false;
  }
  AskForTypes();
  return true;
}

void CPlugin::AskForTypes() {
  Symbol<int (*)(unsigned, void*, void*)>(m_pLibrary, "DllMain")(REASON_ATTACH, nullptr, nullptr);
  CGXObList interfaces, components, services, fileTypes;
  using Loader = void (*)(CGXObList*);
  Symbol<Loader>(m_pLibrary, "LoadDeviceInterfaces")(&interfaces);
  Symbol<void (*)(int, CGXObList*)>(m_pLibrary, "LoadSystemComponentDefs")(COMPONENT_CATEGORY_VIDEO,
                                                                           &components);
  Symbol<Loader>(m_pLibrary, "LoadAudioServices")(&services);
  Symbol<Loader>(m_pLibrary, "LoadAudioFileTypes")(&fileTypes);
  m_pCreate = Symbol<CSystemComponent* (*)(CSystemComponentDef*)>(m_pLibrary, "CreateSystemComponent");
  while (!components.IsEmpty())
    m_Types.emplace_back(static_cast<CSystemComponentDef*>(components.RemoveHead()));
  while (!interfaces.IsEmpty()) delete static_cast<CDeviceInterfaceDef*>(interfaces.RemoveHead());
}

std::unique_ptr<CSystemComponent> CPlugin::Create(int type) const {
  for (const auto& definition : m_Types)
    if (definition->Type() == type) return std::unique_ptr<CSystemComponent>(m_pCreate(definition.get()));
  return nullptr;
}
