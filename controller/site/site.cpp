#include "controller/site/site.h"

#include "controller/site/camera.h"
#include "host/base/gxfile.h"
#include "host/system/system.h"

namespace {

template <class Call>
void ForEachComponent(Call call) {
  CSystem* system = CSystem::Instance();
  const CMainThreadLock lock;
  for (int i = 0; i < system->NComponents(); ++i) call(system->Component(i));
}

bool NameTaken(const std::string& name) {
  bool taken = false;
  ForEachComponent([&](CSystemComponent* component) { taken |= component->Name().Str() == name; });
  return taken;
}

std::string UniqueName(const std::string& wanted) {
  std::string name = wanted;
  for (int i = 2; NameTaken(name); ++i) name = wanted + " (" + std::to_string(i) + ")";
  return name;
}

std::string HostOf(const std::string& url) {
  const size_t begin = url.find("//") + 2;
  return url.substr(begin, url.find('/', begin) - begin);
}

// How many items a reader has left in the file.
size_t Remaining(const CGXFile& file) {
  CGXItems items = file.Items();
  size_t n = 0;
  for (; !items.AtEnd(); ++n)
    if (items.NextInt() == nullptr) items.NextString();
  return n;
}

}  // namespace

bool CSiteKeeper::Load(std::string* error) {
  CSite site;
  const ESiteRead read = m_File.Read(&site, error);
  if (read != ESiteRead::Good) return read == ESiteRead::Absent;
  for (size_t i = 0; i < site.Components.size(); ++i) {
    const std::string place = m_File.Path() + ": components[" + std::to_string(i) + "]";
    if (Restore(site.Components[i], site.Version, place, error)) continue;
    *error += " (the file is kept as it is)";
    CSystem::Instance()->RemoveAllComponents();
    return false;
  }
  return true;
}

bool CSiteKeeper::Restore(const CSiteComponent& from, int version, const std::string& place,
                          std::string* error) {
  std::unique_ptr<CSystemComponent> component = m_pPlugin->Create(from.Type);
  if (!component) {
    *error = place + ".type: the driver offers no component of type " + std::to_string(from.Type);
    return false;
  }
  component->ID(from.ID);
  component->Name(from.Name);
  CGXFile file(CGXItems(from.Record), version);
  if (!component->ReadData(&file, version)) {
    *error = place + ".record[" + std::to_string(from.Record.size() - Remaining(file)) +
             "]: the camera's record does not go on as it should here";
    return false;
  }
  CSystem::Instance()->AddComponent(std::move(component));
  return true;
}

bool CSiteKeeper::Save(std::string* error) {
  CSite site;
  site.Version = GX_FILE_VERSION;
  bool good = true;
  ForEachComponent([&](CSystemComponent* component) {
    CGXFile file;
    if (!component->WriteData(&file, file.Version())) {
      *error = component->Name().Str() + ": its record could not be made";
      good = false;
    }
    site.Components.push_back(
        {component->ComponentType(), component->ID(), component->Name().Str(), file.Items().Items()});
  });
  return good && m_File.Write(site, error);
}

CVideoSystem* CSiteKeeper::Add(std::unique_ptr<CSystemComponent> component, const std::string& name) {
  auto* video = dynamic_cast<CVideoSystem*>(component.get());
  component->Name(UniqueName(name));
  CSystem::Instance()->AddComponent(std::move(component));
  return video;
}

CVideoSystem* CSiteKeeper::Install(CDeviceConfig* found, std::string* error) {
  std::unique_ptr<CSystemComponent> component = m_pPlugin->Create(found->ComponentType());
  auto* video = dynamic_cast<CVideoSystem*>(component.get());
  if (video == nullptr) {
    *error = "the driver makes no camera of type " + std::to_string(found->ComponentType());
    return nullptr;
  }
  component->LoadFrom(found);
  return Add(std::move(component), video->EDRVName().Str());
}

CVideoSystem* CSiteKeeper::Install(const std::string& url, const std::string& user, const std::string& password,
                                   std::string* error) {
  std::unique_ptr<CSystemComponent> component = m_pPlugin->Create(TYPE_STATIC_CAMERA);
  auto* video = dynamic_cast<CVideoSystem*>(component.get());
  if (video == nullptr) {
    *error = "the driver makes no camera of type " + std::to_string(TYPE_STATIC_CAMERA);
    return nullptr;
  }
  video->UserName(user);
  video->Password(password);
  Add(std::move(component), HostOf(url));
  video->SetConfigURL(url);  // starts its connection thread
  return video;
}

CVideoSystem* CSiteKeeper::FindByURL(const std::string& url) {
  CVideoSystem* found = nullptr;
  ForEachComponent([&](CSystemComponent* component) {
    auto* video = dynamic_cast<CVideoSystem*>(component);
    if (video != nullptr && video->ComponentType() == TYPE_STATIC_CAMERA &&
        video->GetConfigURL() == url.c_str())
      found = video;
  });
  return found;
}
