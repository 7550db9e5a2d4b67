// Operations on the list of cameras: remove, rename, password.
#include "controller/core/operations.h"
#include "controller/core/problems.h"
#include "controller/site/site.h"
#include "controller/terminal/report.h"
#include "host/system/system.h"

#include <algorithm>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

constexpr size_t MOST_REMOVED = 1000;  // remembered
constexpr char NOT_BACK[] = "camera";  // of a problem

// Takes the camera out of the list. Null, and it stays, when there is no thread to be had.
std::shared_ptr<CCameraRemoval> TakeOut(CRunningSite& site, int id, std::function<void()> then) {
  const auto camera = std::ranges::find(site.Cameras, id, [](const auto& one) { return one->ID(); });
  auto removal = std::make_shared<CCameraRemoval>(std::move(then));
  if (camera == site.Cameras.end() || !removal->Start(&*camera)) return nullptr;
  site.Cameras.erase(camera);
  site.Removals.push_back(removal);
  return removal;
}

CAnswer WhenFinished(std::shared_ptr<CCameraRemoval> removal, std::string text) {
  if (removal == nullptr) return Refused("there is no thread to be had to end the camera; try again later");
  return [removal = std::move(removal), text = std::move(text)]() -> json {
    if (!removal->Finished()) return nullptr;
    return {{"ok", true}, {"text", text}};
  };
}

CAnswer Remove(CRunningSite& site, const json& request) {
  std::string error;
  CCamera* camera = CameraArgument(site, request, &error);
  if (camera == nullptr) return Refused(error);
  const std::string name = Printable(camera->Video()->Name().Str());
  const CIdentityTexts identity = IdentityOf(camera->Video());
  auto removal = TakeOut(site, camera->ID(), [] { CSystem::Instance()->NotifyConfigChanged(); });
  if (removal != nullptr && site.Removed.size() < MOST_REMOVED) site.Removed.push_back(identity);
  return WhenFinished(std::move(removal),
                      name +
                          " is removed; its recordings and pictures stay. A search does not install it "
                          "again before the controller is started anew\n");
}

CAnswer Rename(CRunningSite& site, const json& request) {
  std::string error;
  CCamera* camera = CameraArgument(site, request, &error);
  if (camera == nullptr) return Refused(error);
  const std::string name = TextArgument(request, "name"), old = camera->Video()->Name().Str();
  if (name.empty() || name.size() > NAME_BYTES || name != Printable(name))
    return Refused("a name has 1 to " + std::to_string(NAME_BYTES) +
                   " bytes, and characters that can be shown");
  if (name != old && CSiteKeeper::NameTaken(name)) return Refused("there is a camera '" + name + "' already");
  camera->Video()->Name(name);
  CSystem::Instance()->NotifyConfigChanged();
  return Ready({{"text", Printable(old) + " is now called " + name +
                             "; its files are named so from the controller's next start on\n"}});
}

// The camera is made anew with it, so that it is loaded from the beginning.
CAnswer Password(CRunningSite& site, const json& request) {
  std::string error;
  CCamera* camera = CameraArgument(site, request, &error);
  if (camera == nullptr) return Refused(error);
  const auto password = request.find("password");
  if (password == request.end() || !password->is_string()) return Refused("no password is given");
  CVideoSystem* const video = camera->Video();
  const int id = camera->ID();
  const std::string user = TextArgument(request, "user", video->UserName().Str());
  const CGXString userBefore = video->UserName(), passwordBefore = video->Password();
  video->UserName(user);
  video->Password(password->get<std::string>());
  std::shared_ptr<CCameraRemoval> removal;
  if (site.Keeper->Hold(video, &error)) {
    removal = TakeOut(site, id, [&site, id] {
      std::string why;
      if (CVideoSystem* anew = site.Keeper->RestoreHeld(id, &why))
        site.Watch(anew);
      else
        CProblemList::Instance()->Raise(NOT_BACK, id, "not made anew: " + why);
      CSystem::Instance()->NotifyConfigChanged();
    });
    error.clear();
  }
  if (removal == nullptr) {
    site.Keeper->DropHeld(id);
    video->UserName(userBefore);
    video->Password(passwordBefore);
    if (!error.empty()) return Refused(error);
  }
  return WhenFinished(std::move(removal), Printable(request.value("camera", "")) + " is loaded anew as user " +
                                              Printable(user) + "; status tells how that goes\n");
}

constexpr COperation OPERATIONS[] = {
    {"remove", Remove},
    {"rename", Rename},
    {"password", Password},
};

}  // namespace

std::span<const COperation> CameraOperations() {
  return OPERATIONS;
}
