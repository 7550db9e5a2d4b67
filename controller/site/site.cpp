#include "controller/site/site.h"

#include "controller/core/printable.h"
#include "controller/core/problems.h"
#include "controller/site/camera.h"
#include "host/base/gxfile.h"
#include "host/system/system.h"

namespace {

constexpr size_t MOST_RECORD_BYTES = 512 * 1024;  // of one component
constexpr char RECORD_PROBLEM[] = "site file";

template <class Call>
void ForEachComponent(Call call) {
  CSystem* system = CSystem::Instance();
  const CMainThreadLock lock;
  for (int i = 0; i < system->NComponents(); ++i) call(system->Component(i));
}

std::string UniqueName(const std::string& wanted) {
  std::string name = Bounded(Printable(wanted), NAME_BYTES);
  for (int i = 2; CSiteKeeper::NameTaken(name); ++i)
    name = Bounded(Printable(wanted), NAME_BYTES) + " (" + std::to_string(i) + ")";
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

bool CSiteKeeper::NameTaken(const std::string& name) {
  bool taken = false;
  ForEachComponent([&](CSystemComponent* component) { taken |= component->Name().Str() == name; });
  return taken;
}

bool CSiteKeeper::Describe(CSystemComponent* component, CSiteComponent* to, std::string* error) {
  CGXFile file;
  *to = {component->ComponentType(), component->ID(), component->Name().Str(), {}};
  if (!component->WriteData(&file, file.Version())) {
    *error = "its record could not be made";
    return false;
  }
  to->Record = file.Items().Items();
  size_t bytes = 0;
  for (const GXT_ITEM& item : to->Record)
    bytes += std::holds_alternative<std::string>(item) ? std::get<std::string>(item).size() : sizeof(int32_t);
  if (bytes <= MOST_RECORD_BYTES) return true;
  *error = "its record has " + std::to_string(bytes) + " bytes, more than " + std::to_string(MOST_RECORD_BYTES);
  return false;
}

// A camera whose record cannot be saved does not keep the others from being saved: the file has its last good
// one, or none.
bool CSiteKeeper::Save(std::string* error) {
  CSite site;
  site.Version = GX_FILE_VERSION;
  std::map<int, CSiteComponent> good;
  ForEachComponent([&](CSystemComponent* component) {
    const int id = component->ID();
    CSiteComponent described;
    std::string why;
    if (Describe(component, &described, &why)) {
      CProblemList::Instance()->Clear(RECORD_PROBLEM, id);
    } else if (const auto last = m_LastGood.find(id); last != m_LastGood.end()) {
      described = last->second;
      CProblemList::Instance()->Raise(RECORD_PROBLEM, id, why + "; the site file has an older one");
    } else {
      CProblemList::Instance()->Raise(RECORD_PROBLEM, id, why + "; the site file is without this camera");
      return;
    }
    good[id] = described;
    site.Components.push_back(std::move(described));
  });
  for (const auto& [id, held] : m_Held)
    if (!good.contains(id)) site.Components.push_back(held);
  m_LastGood = std::move(good);
  return m_File.Write(site, error);
}

bool CSiteKeeper::Hold(CSystemComponent* component, std::string* error) {
  CSiteComponent described;
  if (!Describe(component, &described, error)) return false;
  m_Held[described.ID] = std::move(described);
  return true;
}

CVideoSystem* CSiteKeeper::RestoreHeld(int id, std::string* error) {
  const auto held = m_Held.find(id);
  if (held == m_Held.end() || !Restore(held->second, GX_FILE_VERSION, "the camera", error)) return nullptr;
  m_Held.erase(held);
  return dynamic_cast<CVideoSystem*>(CSystem::Instance()->ComponentByID(id));
}

void CSiteKeeper::DropHeld(int id) {
  m_Held.erase(id);
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
