// The component that finds new cameras (type 8073).
#pragma once

#include "host/base/trace.h"
#include "host/system/comm_thread.h"
#include "host/video/video.h"

class CONVIF_DevFinder : public CVideoSystem,
                         public CNetworkCommThread,
                         public CGXCritical,
                         public CTraceProducer {
 public:
  explicit CONVIF_DevFinder(CSystemComponentDef* definition);

  // Appends one new CDeviceConfig (type 8072) for each camera found that is not installed; the host owns them.
  // Blocks for some seconds, on the caller's worker thread.
  void FindNewDevices(CGXString user, CGXString password, CGXObList* records) override;

  // Whether an installed camera of type 8072 is the one described. Cameras entered by URL (8074) do not count:
  // the user may install the same camera as a found one too.
  bool FindInstalledDevice(CDeviceConfig* record);
};
