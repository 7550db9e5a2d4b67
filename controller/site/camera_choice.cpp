#include "controller/site/camera_choice.h"

#include "host/system/system.h"

#include <functional>

namespace {

using Matches = bool (*)(CVideoSystem* video, const std::string& wanted);

std::string Authority(CVideoSystem* video) {
  const std::string url = video->GetConfigURL().Str();
  const size_t begin = url.find("//");
  if (begin == std::string::npos) return "";
  return url.substr(begin + 2, url.find('/', begin + 2) - begin - 2);
}

constexpr Matches WAYS[] = {
    [](CVideoSystem* video, const std::string& wanted) { return video->Name().Str() == wanted; },
    [](CVideoSystem* video, const std::string& wanted) { return std::to_string(video->ID()) == wanted; },
    [](CVideoSystem* video, const std::string& wanted) { return video->GetConfigURL().Str() == wanted; },
    [](CVideoSystem* video, const std::string& wanted) {
      const std::string authority = Authority(video);
      return authority == wanted || authority.substr(0, authority.find(':')) == wanted;
    },
};

std::string Installed() {
  CSystem* system = CSystem::Instance();
  std::string names;
  for (int i = 0; i < system->NVideo(); ++i)
    names += (names.empty() ? "" : ", ") + system->VideoSystem(i)->Name().Str();
  return names.empty() ? "none is installed" : "there are " + names;
}

}  // namespace

CVideoSystem* ChooseCamera(const std::string& wanted, std::string* error) {
  CSystem* system = CSystem::Instance();
  for (const Matches matches : WAYS) {
    CVideoSystem* found = nullptr;
    for (int i = 0; i < system->NVideo() && !wanted.empty(); ++i) {
      CVideoSystem* video = system->VideoSystem(i);
      if (!matches(video, wanted)) continue;
      if (found != nullptr) {
        *error = "'" + wanted + "' means several cameras; give a name or an id";
        return nullptr;
      }
      found = video;
    }
    if (found != nullptr) return found;
  }
  *error = "no camera '" + wanted + "': " + Installed();
  return nullptr;
}
