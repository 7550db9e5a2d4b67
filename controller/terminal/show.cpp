// controller show: loads cameras one after the other and prints what each is and offers.
#include "controller/core/controller.h"
#include "controller/core/log.h"
#include "controller/core/printable.h"
#include "controller/core/stop_signal.h"
#include "controller/site/camera.h"
#include "controller/site/camera_choice.h"
#include "controller/site/profile_request.h"
#include "controller/site/reachability.h"
#include "controller/terminal/commands.h"
#include "controller/terminal/show_report.h"
#include "host/system/system.h"

#include <chrono>
#include <cstdio>

using Clock = std::chrono::steady_clock;

namespace {

constexpr unsigned PASS_PERIOD_MS = 10;

CVideoSystem* FindOrInstall(const std::string& wanted, const COptions& options, CSiteKeeper* site,
                            std::string* error) {
  CVideoSystem* video = nullptr;
  {
    const CMainThreadLock lock;
    video = ChooseCamera(wanted, error);
  }
  std::string noURL;
  if (video != nullptr || !CheckServiceURL(wanted, &noURL)) return video;
  return site->Install(wanted, options.User, options.Password, error);
}

// Works the main thread until `done` says so. False when the time is up or a stop signal came.
template <class Done>
bool WorkUntil(Clock::time_point end, Done done) {
  while (Clock::now() < end && !WaitForStop(PASS_PERIOD_MS)) {
    CSystem::Instance()->MainThreadPass();
    const CMainThreadLock lock;
    if (done()) return true;
  }
  return false;
}

// How each stream is opened. Streams that the camera cannot be made ready for in time are left out.
std::vector<CStreamAccess> Accesses(CVideoSystem* video, Clock::time_point end) {
  std::vector<CStreamAccess> list;
  for (const RTSP_PROFILE_TYPE type : {RTSP_PROFILE_H264, RTSP_PROFILE_JPEG})
    for (int i = 0; i < video->NResolutions(type); ++i) {
      CProfileRequest request(video, type, i);
      std::unique_ptr<CRTSPProfile> profile;
      if (WorkUntil(end, [&] { return (profile = request.Poll()) != nullptr; }))
        list.push_back({type, std::move(profile)});
    }
  return list;
}

CCameraSheet Load(CVideoSystem* video, CTraceBook* book, Clock::time_point end) {
  CCamera camera(video, book, {});
  camera.Start();
  // Until it can be shown, or it is known that it cannot.
  WorkUntil(end, [&] {
    const std::string state = camera.Status().State;
    const int streams = video->NResolutions(RTSP_PROFILE_H264) + video->NResolutions(RTSP_PROFILE_JPEG);
    return state != "loading" && (state != "running" || streams > 0);
  });
  CCameraSheet sheet;
  CGXMSG msg;
  {
    const CMainThreadLock lock;
    sheet.Status = camera.Status();
    video->GetONVIFConfig(&msg);
  }
  ReadCameraConfig(msg, &sheet.Config);
  sheet.User = video->UserName().Str();
  sheet.Options = video->Options();
  if (sheet.Status.State == "running") sheet.Accesses = Accesses(video, end);
  if (sheet.Status.State == "failed") sheet.Status.Reason += ": " + TryConnecting(sheet.Status.ServiceURL);
  if (sheet.Status.State == "loading") sheet.Status.Reason = "not ready in time, at " + sheet.Status.Step;
  return sheet;
}

}  // namespace

int ShowCommand(const COptions& options) {
  CPlugin plugin;
  std::string error;
  CTraceBook book;
  if (!PrepareDriver(options, &plugin, &error)) {
    WriteProblem(error);
    return 1;
  }
  const auto wait =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.WaitSeconds));
  CSiteKeeper site(&plugin, options.SiteFile);
  bool good = site.Load(&error);
  std::vector<CCameraSheet> sheets;
  for (size_t i = 0; good && i < options.Cameras.size() && !StopRequested(); ++i) {
    CVideoSystem* video = FindOrInstall(options.Cameras[i], options, &site, &error);
    good = video != nullptr;
    if (good && !options.JSON)
      std::fprintf(stderr, "loading %s, %g s at most\n", Printable(options.Cameras[i]).c_str(),
                   options.WaitSeconds);
    if (good) sheets.push_back(Load(video, &book, Clock::now() + wait));
  }
  CSystem::Instance()->RemoveAllComponents();
  WriteResult(options.JSON ? SheetsJSON(sheets) : SheetsText(sheets));
  for (const CCameraSheet& sheet : sheets)
    if (const CCameraStatus& s = sheet.Status; good && s.State != "running") {
      error = Printable(s.Name + ": " + s.State + ": " + s.Reason);
      good = false;
    }
  if (!good) WriteProblem(error);
  return good ? 0 : 1;
}
