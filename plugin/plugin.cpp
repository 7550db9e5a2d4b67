// The entry points that the controller finds by name in the loaded library.
#include "camera/ONVIFCam.h"
#include "host/base/gxassert.h"
#include "host/base/gxlist.h"
#include "host/system/component.h"
#include "onvif/devfinder.h"

#include <memory>

// Everything else of the library stays inside (exports.map).
#define EXPORTED __attribute__((visibility("default")))

namespace {

constexpr int TYPE_CAMERA = CONVIFCam::TYPE_DISCOVERED;
constexpr int TYPE_CAMERA_STATIC = CONVIFCam::TYPE_STATIC;
constexpr int TYPE_FINDER = 8073;

template <class Definition>
void Append(CGXObList* list, std::unique_ptr<Definition> definition) {
  list->AddTail(definition.get());
  static_cast<void>(definition.release());  // the list's now
}

}  // namespace

extern "C" {

EXPORTED int DllMain(unsigned /*reason*/, void* /*reserved*/, void* /*reserved*/) {
  return 1;
}

// Adds one definition to the list, whose owner it becomes.
EXPORTED void RegisterInterface(CGXObList* list, int id, CGXString name, int number, int flags) {
  Append(list, std::make_unique<CDeviceInterfaceDef>(id, name, number, flags));
}

EXPORTED void RegisterComponent(CGXObList* list, int type, CGXString name, CGXString text, int flags) {
  Append(list, std::make_unique<CSystemComponentDef>(type, name, text, flags, 0));
}

EXPORTED void LoadDeviceInterfaces(CGXObList* /*list*/) {}

// The driver offers no device interfaces, so the controller has nothing to ask this with.
EXPORTED void* CreateDeviceInterface(CDeviceInterfaceDef* /*definition*/) {
  AssertWrap("plugin", 69);
  return nullptr;
}

EXPORTED void LoadSystemComponentDefs(int category, CGXObList* list) {
  if (category != COMPONENT_CATEGORY_VIDEO) return;
  RegisterComponent(list, TYPE_FINDER, "ONVIF Video Source (Dynamic)", "", COMPONENT_FLAG_DYNAMIC);
  RegisterComponent(list, TYPE_CAMERA_STATIC, "ONVIF Video Source (Static)", "", 0);
  RegisterComponent(list, TYPE_CAMERA, "ONVIF Video Source", "", COMPONENT_FLAG_DISCOVERED);
}

// The caller owns the component; null for a type that is not ours.
EXPORTED CSystemComponent* CreateSystemComponent(CSystemComponentDef* definition) {
  switch (definition->Type()) {
    case TYPE_FINDER:
      return new CONVIF_DevFinder(definition);
    case TYPE_CAMERA_STATIC:
    case TYPE_CAMERA:
      return new CONVIFCam(definition);
    default:
      return nullptr;
  }
}

EXPORTED void LoadAudioServices(CGXObList* /*list*/) {}

EXPORTED void* CreateAudioService(void* /*service*/, void* /*context*/) {
  return nullptr;
}

EXPORTED void* CreateAudioShare(void* /*service*/, void* /*context*/, void* /*name*/) {
  return nullptr;
}

EXPORTED void LoadAudioFileTypes(CGXObList* /*list*/) {}

EXPORTED void* CreateAudioFile(void* /*type*/, void* /*context*/) {
  return nullptr;
}

}  // extern "C"
