#include "controller/terminal/commands.h"

#include "controller/core/controller.h"
#include "controller/core/log.h"
#include "controller/core/stop_signal.h"
#include "controller/terminal/report.h"
#include "host/system/system.h"

#include <nlohmann/json.hpp>

namespace {

constexpr unsigned WAIT_PERIOD_MS = 50;

int Refuse(const std::string& why) {
  WriteProblem(why);
  return 1;
}

}  // namespace

int RunCommand(const COptions& options) {
  CController controller(options);
  std::string error;
  if (!controller.Start(&error) || !controller.Run(&error)) return Refuse(error);
  return 0;
}

int DiscoverCommand(const COptions& options) {
  CPlugin plugin;
  std::string error;
  if (!PrepareDriver(options, &plugin, &error)) return Refuse(error);
  // Installed cameras are loaded, so that the search can leave them out, but not started.
  CSiteKeeper site(&plugin, options.SiteFile);
  if (!site.Load(&error)) return Refuse(error);
  int code = 0;
  {
    CFinder finder(&plugin);
    if (!finder.Start(options.User, options.Password)) return Refuse("the driver offers no search for cameras");
    while (!finder.Wait(WAIT_PERIOD_MS) && !StopRequested()) {
    }
    const auto found = finder.Take();
    if (StopRequested())
      code = Refuse("the search was broken off");
    else if (options.JSON)
      WriteResult(FoundJSON(found));
    else
      WriteResult(found.empty() ? "No cameras found that are not installed already.\n" : FoundTable(found));
  }
  CSystem::Instance()->RemoveAllComponents();
  return code;
}

int ComponentsCommand(const COptions& options) {
  CPlugin plugin;
  std::string error;
  if (!PrepareDriver(options, &plugin, &error)) return Refuse(error);
  std::vector<std::vector<std::string>> rows(1, {"Type", "Name", "Flags"});
  nlohmann::json list = nlohmann::json::array();
  for (const auto& type : plugin.Types()) {
    char flags[16];
    std::snprintf(flags, sizeof flags, "0x%x", static_cast<unsigned>(type->Flags()));
    rows.push_back({std::to_string(type->Type()), type->TypeName().Str(), flags});
    list.push_back({{"type", type->Type()}, {"name", type->TypeName().Str()}, {"flags", type->Flags()}});
  }
  WriteResult(options.JSON ? nlohmann::json{{"components", list}}.dump(2) + "\n" : Table(rows));
  return 0;
}
