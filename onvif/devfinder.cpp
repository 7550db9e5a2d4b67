#include "onvif/devfinder.h"

#include "host/net/socket.h"
#include "host/system/system.h"
#include "onvif/onvif.h"
#include "util/gxtimer.h"

#include <memory>

namespace {

constexpr int COMPONENT_TYPE_CAMERA = 8072;  // "ONVIF Video Source", made from a finder's record
constexpr int COMM_BUFFER_BYTES = 1024;
constexpr unsigned SEARCH_MS = 2500;  // a discovery takes two seconds and more, so there are two as a rule
constexpr unsigned RETRY_MS = 250;
constexpr int SHOWN = 0, NEEDED = 1;  // descriptor flags

std::unique_ptr<CDeviceConfig> RecordOf(const CONVIFDevice& device, const CGXString& user,
                                        const CGXString& password) {
  auto record = std::make_unique<CDeviceConfig>(COMPONENT_TYPE_CAMERA);
  record->AddDescriptor("Manufacturer", device.Manufacturer(), SHOWN);
  record->AddDescriptor("Model", device.Model(), SHOWN);
  record->AddDescriptor("Firmware", device.Firmware(), SHOWN);
  record->AddDescriptor("Serial No.", device.SerialNo(), SHOWN);
  record->AddDescriptor("Hardware ID", device.HardwareID(), NEEDED);
  record->AddDescriptor("Service URL", device.ServiceURL(), NEEDED);
  record->AddDescriptor("UserName", user, NEEDED);
  record->AddDescriptor("Password", password, NEEDED);
  return record;
}

}  // namespace

CONVIF_DevFinder::CONVIF_DevFinder(CSystemComponentDef* definition)
    : CVideoSystem(definition),
      CNetworkCommThread(COMM_BUFFER_BYTES, COMM_BUFFER_BYTES),
      CTraceProducer(definition->TypeName()) {}

void CONVIF_DevFinder::FindNewDevices(CGXString user, CGXString password, CGXObList* records) {
  CONVIFDeviceSet found;
  const CGXTimer timer;
  while (timer.GXTickCount() < SEARCH_MS && !CGXThread::CurrentCancelled()) {
    const CGXTimer discovery;
    CONVIF::DoDiscovery(&found, user, password);
    if (discovery.GXTickCount() < RETRY_MS) Sleep(RETRY_MS);  // it ended at once: there is no network to search
  }
  for (const CONVIFDevice* device = found.Devices(); device != nullptr; device = device->Next()) {
    auto record = RecordOf(*device, user, password);
    if (!FindInstalledDevice(record.get())) records->AddTail(record.release());
  }
}

bool CONVIF_DevFinder::FindInstalledDevice(CDeviceConfig* record) {
  const CComponentListLock installed;  // a camera that is compared is not deleted meanwhile
  CSystem* const system = CSystem::Instance();
  for (int i = 0; i < system->NVideo(); ++i) {
    CVideoSystem* const component = system->VideoSystem(i);
    if (component != nullptr && component->ComponentType() == COMPONENT_TYPE_CAMERA &&
        component->IsSameConfig(record)) {
      return true;
    }
  }
  return false;
}
