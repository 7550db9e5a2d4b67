#include "controller/core/controller.h"

#include "controller/core/atomic_file.h"
#include "controller/core/log.h"
#include "controller/core/printable.h"
#include "controller/core/problems.h"
#include "controller/core/stop_signal.h"
#include "controller/terminal/report.h"
#include "host/net/netinterface.h"
#include "host/system/system.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

namespace {

constexpr unsigned PASS_PERIOD_MS = 10;
constexpr std::chrono::milliseconds TICK_PERIOD{20};
constexpr std::chrono::seconds SEARCH_PERIOD{60};
constexpr std::chrono::seconds SAVE_RETRY{5};
constexpr int MOST_FOUND_AT_ONE_ADDRESS = 4;
constexpr size_t MOST_FOUND_BYTES = 1024;             // of a text in what a search has found
constexpr std::chrono::seconds FILE_THREAD_RETRY{5};  // does nothing while it runs
constexpr char SEARCH[] = "discovery", SEARCH_THREAD[] = "search";
constexpr char SITE_FILE[] = "site file";  // of a problem

std::string FolderOf(const std::string& file) {
  const std::string folder = std::filesystem::path(file).parent_path().string();
  return folder.empty() ? "." : folder;
}

std::string HostOf(const std::string& url) {
  const size_t slashes = url.find("//"), begin = slashes == std::string::npos ? 0 : slashes + 2;
  return url.substr(begin, url.find_first_of(":/", begin) - begin);
}

// True when the time has come, and sets the next one.
bool Due(std::chrono::steady_clock::time_point* next, std::chrono::steady_clock::duration period) {
  const auto now = std::chrono::steady_clock::now();
  if (now < *next) return false;
  *next = now + period;
  return true;
}

// Whether somebody has removed that camera since the controller was started.
bool WasRemoved(const std::vector<CIdentityTexts>& removed, CDeviceConfig* found) {
  return std::ranges::any_of(removed, [found](const CIdentityTexts& one) {
    return found->DescriptorVal("Manufacturer").Str() == one.Manufacturer &&
           found->DescriptorVal("Model").Str() == one.Model &&
           found->DescriptorVal("Serial No.").Str() == one.Serial &&
           found->DescriptorVal("Hardware ID").Str() == one.HardwareID;
  });
}

}  // namespace

bool PrepareDriver(const COptions& options, CPlugin* plugin, std::string* error) {
  if (!MakeFolder(FolderOf(options.LogFile), error)) return false;
  if (!options.Interface.empty() && !SetNetworkInterface(options.Interface)) {
    *error = "there is no network interface '" + options.Interface + "' with an IPv4 address";
    return false;
  }
  return OpenLog(options.LogFile, error) && plugin->Load(options.Plugin, error);
}

CController::CController(const COptions& options)
    : m_Options(options), m_Socket([this](const std::string& request) { return Answer(request); }) {}

CController::~CController() {
  CEventServer::Instance()->Receiver(nullptr);
  m_pFinder.reset();
  {
    const CMainThreadLock lock;
    m_Running.Panel.reset();
  }
  CSystem::Instance()->StopFileThread();
  for (const auto& removal : m_Running.Removals) removal->Wait();
  m_Running.Cameras.clear();
  CSystem::Instance()->RemoveAllComponents();
}

bool CController::PrepareFolders(std::string* error) {
  for (const std::string& folder : {FolderOf(m_Options.SiteFile), m_Options.PictureFolder,
                                    m_Options.RecordFolder, m_Options.KeepFolder, m_Options.SoundFolder})
    if (!folder.empty() && !MakeFolder(folder, error)) return false;
  if (m_Options.SummaryFile.empty()) return true;
  return MakeFolder(FolderOf(m_Options.SummaryFile), error);
}

bool CController::Start(std::string* error) {
  m_Started = Clock::now();
  if (!PrepareFolders(error) || !PrepareDriver(m_Options, &m_Plugin, error)) return false;
  m_pSite = std::make_unique<CSiteKeeper>(&m_Plugin, m_Options.SiteFile);
  if (!m_pSite->Lock(error) || !m_pSite->Load(error)) return false;
  if (!m_Socket.Listen(CommandSocketPath(m_Options.SiteFile), error)) return false;
  CEventServer::Instance()->Receiver([this](const GXT_EVENT& event) { TakeEvent(event); });
  m_pPictures = std::make_unique<CPictureStore>(m_Options.PictureFolder, m_Options.KeepFolder);
  m_pFinder = std::make_unique<CFinder>(&m_Plugin);
  m_Running.Keeper = m_pSite.get();
  m_Running.Watch = [this](CVideoSystem* video) { Watch(video); };
  m_pDisplay = std::make_unique<CDisplay>(m_Options.JSON);
  if (!StartPanel(error)) return false;
  if (!m_Options.URL.empty() && !InstallByURL(error)) return false;
  CSystem* system = CSystem::Instance();
  for (int i = 0; i < system->NVideo(); ++i) Watch(system->VideoSystem(i));
  // Written at once, so that an unwritable site file is known before anything depends on it.
  if (!m_pSite->Save(error)) return false;
  system->StartFileThread();
  return true;
}

bool CController::StartPanel(std::string* error) {
  CPanelSettings settings;
  settings.Answer = m_Options.Answer == "accept"    ? EAnswer::Accept
                    : m_Options.Answer == "decline" ? EAnswer::Decline
                                                    : EAnswer::Ask;
  settings.SoundFolder = m_Options.SoundFolder;
  settings.Relayed = m_Options.Relay;
  settings.Speech = CSpeech(m_Options.ToneHz);
  if (!m_Options.SpeechFile.empty()) {
    const CSoundLoader loader(m_Options.SpeechFile);
    while (!loader.Done() && !WaitForStop(PASS_PERIOD_MS)) {
    }
    *error = loader.Done() ? loader.Error() : m_Options.SpeechFile + ": not read before the end";
    if (!error->empty()) return false;
    settings.Speech = CSpeech(loader.Sound());
  }
  const CMainThreadLock lock;
  m_Running.Panel = std::make_unique<CPanel>(std::move(settings), &m_Running.Calls);
  m_Running.Panel->Enter();
  return true;
}

bool CController::InstallByURL(std::string* error) {
  CVideoSystem* known = CSiteKeeper::FindByURL(m_Options.URL);
  if (known == nullptr)
    return m_pSite->Install(m_Options.URL, m_Options.User, m_Options.Password, error) != nullptr;
  if (m_Options.User.empty()) return true;
  known->UserName(m_Options.User);
  known->Password(m_Options.Password);
  return true;
}

void CController::Watch(CVideoSystem* video) {
  CCameraWishes wishes{m_Options.RecordFolder, m_Options.Transport, m_pPictures.get(), &m_Running.Calls};
  m_Running.Cameras.push_back(std::make_unique<CCamera>(video, &m_Book, std::move(wishes)));
  m_Running.Cameras.back()->Start();
}

// A search takes any answer on the network, so what it installs is bounded.
bool CController::MayInstall(CDeviceConfig* found, std::string* why) const {
  const CSystem* system = CSystem::Instance();
  int all = 0, there = 0;
  const std::string url = found->DescriptorVal("Service URL").Str();
  for (int i = 0; i < system->NVideo(); ++i) {
    CVideoSystem* const video = system->VideoSystem(i);
    if (video->ComponentType() != TYPE_FOUND_CAMERA) continue;
    ++all;
    if (HostOf(video->GetConfigURL().Str()) == HostOf(url)) ++there;
  }
  if (all >= m_Options.DiscoverMost)
    *why = "--discover-most is " + std::to_string(m_Options.DiscoverMost);
  else if (there >= MOST_FOUND_AT_ONE_ADDRESS)
    *why = std::to_string(MOST_FOUND_AT_ONE_ADDRESS) + " cameras of its address are installed already";
  for (const CDeviceConfig::Descriptor& text : found->Descriptors())
    if (text.Value.Str().size() > MOST_FOUND_BYTES)
      *why = "its " + text.Name.Str() + " has " + std::to_string(text.Value.Str().size()) + " bytes";
  return why->empty();
}

void CController::InstallFound() {
  int left = 0;
  std::string first;
  const auto list = m_pFinder->Take();
  for (const auto& found : list) {
    std::string error;
    if (WasRemoved(m_Running.Removed, found.get())) continue;
    if (!MayInstall(found.get(), &error)) {
      if (left++ == 0) first = Bounded(found->DescriptorVal("Service URL").Str(), NAME_BYTES) + ": " + error;
    } else if (CVideoSystem* video = m_pSite->Install(found.get(), &error)) {
      Watch(video);
      m_bSaveWanted = true;
    } else {
      Log(error);
    }
  }
  if (left > 0)
    CProblemList::Instance()->Raise(
        SEARCH, 0, std::to_string(left) + " found cameras are not installed; " + first, SEARCH_PERIOD);
  else if (!list.empty())
    CProblemList::Instance()->Clear(SEARCH, 0);
}

void CController::FinishRemovals() {
  // What follows a removal may begin another one.
  for (size_t i = 0; i < m_Running.Removals.size(); ++i) m_Running.Removals[i]->Finish();
  std::erase_if(m_Running.Removals, [](const auto& removal) { return removal->Finished(); });
}

void CController::SearchWhenDue() {
  if (m_pFinder->Searching()) return;
  InstallFound();
  if (!m_Options.Discover || !Due(&m_NextSearch, SEARCH_PERIOD)) return;
  if (m_pFinder->Start(m_Options.User, m_Options.Password))
    CProblemList::Instance()->Clear(SEARCH_THREAD, 0);
  else
    CProblemList::Instance()->Raise(SEARCH_THREAD, 0, "no search can be started: there is no thread to be had",
                                    SEARCH_PERIOD);
}

CCommandSocket::Answer CController::Answer(const std::string& request) {
  const CMainThreadLock lock;
  return [answer = BeginOperation(m_Running, request)] {
    const CMainThreadLock hold;
    const nlohmann::json reply = answer();
    return reply.is_null() ? "" : reply.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  };
}

void CController::TakeEvent(const GXT_EVENT& event) {
  CCamera* camera = m_Running.ByID(event.ComponentID);
  if (camera == nullptr) return;
  const std::string name = camera->Video()->Name().Str();
  Log(name + ": " + EventName(event.Event));
  m_Running.Events.Add(event, name);
  if (event.Event == EVENT_MOTION) camera->CountEvent();
}

void CController::Serve() {
  CEventServer::Instance()->DispatchEvents();
  m_Socket.Pass();
}

void CController::Tick() {
  {
    const CMainThreadLock lock;
    FinishRemovals();
    for (const auto& camera : m_Running.Cameras) m_bSaveWanted |= camera->Tick();
  }
  if (Due(&m_NextFileThread, FILE_THREAD_RETRY)) CSystem::Instance()->StartFileThread();
  m_bSaveWanted |= CSystem::Instance()->TakeSaveRequest();
  SaveWhenAsked();
}

void CController::SaveWhenAsked() {
  if (!m_bSaveWanted || Clock::now() < m_NextSave) return;
  if (m_pSite->Save(&m_SaveError)) {
    m_SaveError.clear();
    m_bSaveWanted = false;
    CProblemList::Instance()->Clear(SITE_FILE, 0);
    return;
  }
  CProblemList::Instance()->Raise(SITE_FILE, 0, "not saved: " + m_SaveError, SAVE_RETRY);
  m_NextSave = Clock::now() + SAVE_RETRY;
}

std::vector<CCameraStatus> CController::Statuses() {
  const CMainThreadLock lock;
  std::vector<CCameraStatus> statuses;
  for (const auto& camera : m_Running.Cameras) statuses.push_back(camera->Status());
  return statuses;
}

std::string CController::Note() const {
  std::string note = m_pFinder->Searching() ? "searching for cameras; " : "";
  if (!m_SaveError.empty()) note += "SITE FILE NOT SAVED: " + m_SaveError + "; ";
  return note + "site file " + m_Options.SiteFile + ", log " + m_Options.LogFile;
}

void CController::Show() {
  m_pDisplay->Update(Statuses(), Note());
}

bool CController::TimeIsUp() const {
  return m_Options.Seconds > 0 && Clock::now() - m_Started >= std::chrono::duration<double>(m_Options.Seconds);
}

bool CController::Run(std::string* error) {
  // An event is not kept waiting for the next pass.
  while (!WaitForStop(PASS_PERIOD_MS, CEventServer::Instance()->Descriptor()) && !TimeIsUp()) {
    CSystem::Instance()->MainThreadPass();
    Serve();
    SearchWhenDue();
    if (Due(&m_NextTick, TICK_PERIOD)) Tick();
    if (Due(&m_NextShow, std::chrono::milliseconds(m_pDisplay->PeriodMs()))) Show();
  }
  Show();
  const bool saved = m_pSite->Save(error);
  return WriteSummary(error) && saved;
}

bool CController::WriteSummary(std::string* error) {
  if (m_Options.SummaryFile.empty()) return true;
  // The summary tells of whole files.
  for (const auto& camera : m_Running.Cameras) camera->EndRecording();
  return ReplaceFile(m_Options.SummaryFile, SummaryText(Statuses()), PRIVATE_FILE_MODE, false, error);
}
