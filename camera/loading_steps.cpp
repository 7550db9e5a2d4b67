// The loading steps: what a camera is asked, in the order of the pass, to learn what it offers.
#include "camera/ONVIFCam.h"
#include "camera/loading.h"
#include "host/net/http.h"
#include "host/system/system.h"
#include "onvif/namespaces.h"
#include "onvif/onvif.h"
#include "onvif/soap_request.h"

namespace {

using CMsgRef = std::unique_ptr<CONVIFMsg>;

bool IsWide(const GXT_PTZ_RANGE& range) {
  return range.Max != range.Min;
}

}  // namespace

// Null when no XML came back.
std::unique_ptr<CONVIFMsg> CLoading::Ask(const CGXString& url, const char* operation, const char* ns,
                                         const char* argument, const CGXString& value) {
  CSOAPRequest request(url, operation, ns, m_Rooms.Camera->CreateLoginHeader());
  if (argument != nullptr) request.Element()->AddValue(argument, value);
  CMsgRef answer = request.Send();
  if (answer != nullptr)
    NoteRefusal(operation, *answer);
  else
    m_Reason = "no answer from " + url;
  return answer;
}

bool CLoading::FindONVIF_ServiceURL() {
  const CCameraIdentity::CNames names = m_Rooms.Identity->Names();
  CONVIFDevice device;
  device.Manufacturer(names.Manufacturer);
  device.Model(names.Model);
  device.Firmware(names.Firmware);
  device.SerialNo(names.SerialNo);
  device.HardwareID(names.HardwareID);
  if (!CONVIF::FindDevice(&device, m_Rooms.Camera->UserName(), m_Rooms.Camera->Password())) {
    m_Reason = "it did not answer the search on the network";
    return false;
  }
  m_Rooms.Identity->Name(&CCameraIdentity::CNames::Firmware, device.Firmware());
  m_Rooms.Identity->MoveTo(device.ServiceURL());
  if (!(device.Firmware() == names.Firmware)) CSystem::Instance()->NotifyWrite();
  m_Rooms.Camera->UpdateTraceName();
  return true;
}

bool CLoading::LoadDeviceInfo() {
  const CGXString url = m_Rooms.Identity->ServiceURL();
  const std::unique_ptr<CONVIFDevice> device(
      CONVIF::QueryDeviceAtURL(url, m_Rooms.Camera->UserName(), m_Rooms.Camera->Password()));
  if (device == nullptr) {
    m_Reason = "no device information came from " + url;
    return false;
  }
  m_Rooms.Identity->Names(
      {device->Manufacturer(), device->Model(), device->Firmware(), device->SerialNo(), device->HardwareID()});
  m_Rooms.Camera->UpdateTraceName();
  return true;
}

bool CLoading::SyncTime() {
  // Without login: the login needs this clock.
  const CMsgRef reply(CONVIF::DoQuery_HTTP(m_Rooms.Identity->ServiceURL(), "GetSystemDateAndTime",
                                           NS_ONVIF_DEVICE, CONVIFCam::QUERY_TIMEOUT_MS));
  CGXTime now;
  if (reply == nullptr || !CONVIF::ReadCameraTime(*reply, &now)) return false;
  if (m_Rooms.Camera->Trace()) {
    CGXString line;
    line.Format("Device Time %d/%d/%d %s", now.Month(), now.Day(), now.Year(),
                now.TimeTextSeconds(CSystem::Instance()->ClockDisplayMode()).Str().c_str());
    m_Rooms.Camera->Trace(line);
  }
  m_Rooms.Clock->Set(now);
  return true;
}

// Never fails: a camera that names no media service is asked at its device service.
bool CLoading::LoadMediaURLs() {
  LoadONVIF_MediaURL1();
  LoadONVIF_MediaURL2();
  return true;
}

bool CLoading::LoadONVIF_MediaURL1() {
  const CMsgRef reply =
      Ask(m_Rooms.Identity->ServiceURL(), "GetServices", NS_ONVIF_DEVICE, "IncludeCapability", "false");
  const CONVIFMsg* const response = reply != nullptr ? reply->FindResponseMSG("GetServices") : nullptr;
  const CONVIFMsg* service = response != nullptr ? response->Messages() : nullptr;
  while (service != nullptr && service->FindSubMSGValue("Namespace", 0).Find("ver10/media") < 0)
    service = service->Next();
  return TakeMediaURL(service);
}

bool CLoading::LoadONVIF_MediaURL2() {
  const CMsgRef reply =
      Ask(m_Rooms.Identity->ServiceURL(), "GetCapabilities", NS_ONVIF_DEVICE, "Category", "All");
  CONVIFMsg* const response = reply != nullptr ? reply->FindResponseMSG("GetCapabilities") : nullptr;
  return TakeMediaURL(response != nullptr ? response->FindSubMSG("Media") : nullptr);
}

// From the element that describes the media service; null when there is none.
bool CLoading::TakeMediaURL(const CONVIFMsg* service) {
  const CGXString url = service != nullptr ? service->FindSubMSGValue("XAddr", 0) : CGXString();
  m_Rooms.Identity->MediaURL(url.IsEmpty() ? m_Rooms.Identity->ServiceURL() : url);
  // One text for both steps: who reads traces looks for this one.
  if (url.IsEmpty()) m_Rooms.Camera->Trace("WARNING: Bad Reply from GetServices()");
  return !url.IsEmpty();
}

bool CLoading::LoadONVIF_EncoderConfig() {
  const CMsgRef reply = Ask(m_Rooms.Identity->MediaURL(), "GetVideoEncoderConfigurations", NS_ONVIF_MEDIA);
  if (reply == nullptr) return false;
  const CONVIFMsg* const response = reply->FindResponseMSG("GetVideoEncoderConfigurations");
  if (response == nullptr) return true;
  const auto encoders = std::make_shared<CEncoderConfig>();
  for (const CONVIFMsg* item = response->Messages(); item != nullptr; item = item->Next()) {
    CEncoder* const encoder = encoders->AddEncoder(item);
    if (m_Rooms.Camera->Trace())
      m_Rooms.Camera->Trace("Found Encoder tkn " + encoder->Token() + " Name:" + encoder->Name());
    LoadONVIF_EncoderOptions(encoder);
  }
  m_Rooms.Model->Take(encoders);
  return true;
}

bool CLoading::LoadONVIF_EncoderOptions(CEncoder* encoder) {
  const CMsgRef reply = Ask(m_Rooms.Identity->MediaURL(), "GetVideoEncoderConfigurationOptions", NS_ONVIF_MEDIA,
                            "ConfigurationToken", encoder->Token());
  if (reply == nullptr) return false;
  const CONVIFMsg* const response = reply->FindResponseMSG("GetVideoEncoderConfigurationOptions");
  const CONVIFMsg* const options = response != nullptr ? response->Messages() : nullptr;
  if (options == nullptr) return true;
  for (const CONVIFMsg* item = options->Messages(); item != nullptr; item = item->Next())
    encoder->AddOptions(item);
  return true;
}

bool CLoading::LoadONVIF_Capabilities() {
  const CMsgRef reply =
      Ask(m_Rooms.Identity->ServiceURL(), "GetCapabilities", NS_ONVIF_DEVICE, "Category", "All");
  if (reply == nullptr) return false;
  const CONVIFMsg* const ptz = reply->FindSubMSG("PTZ");
  const CONVIFMsg* const address = ptz != nullptr ? ptz->FindSubMSG("XAddr") : nullptr;
  if (address == nullptr) return true;
  const CGXString url = address->Value(0);
  m_Rooms.Identity->PTZURL(url);
  if (!url.IsEmpty())
    m_Rooms.Camera->AddOptions(VIDEO_OPTION_PAN_TILT | VIDEO_OPTION_ZOOM | VIDEO_OPTION_CONTINUOUS_MOVE);
  return true;
}

bool CLoading::LoadONVIF_ProfileConfig() {
  const CMsgRef reply = Ask(m_Rooms.Identity->MediaURL(), "GetProfiles", NS_ONVIF_MEDIA);
  if (reply == nullptr) return false;
  const CONVIFMsg* const response = reply->FindResponseMSG("GetProfiles");
  if (response == nullptr) return true;
  const auto profiles = std::make_shared<CProfileConfig>();
  for (const CONVIFMsg* item = response->Messages(); item != nullptr; item = item->Next()) {
    const CProfile* const profile = profiles->AddProfile(item);
    if (m_Rooms.Camera->Trace()) m_Rooms.Camera->Trace("Found Profile " + profile->Token());
    if (profile->AudioEncoderType().CompareNoCase("g711") == 0) m_Rooms.Camera->AddOptions(VIDEO_OPTION_AUDIO);
  }
  if (CProfile* const profile = CMediaModel::PTZProfile(*profiles)) AddPTZOptions(profile);
  m_Rooms.Model->Take(profiles);
  return true;
}

void CLoading::AddPTZOptions(CProfile* profile) {
  if (IsWide(profile->RangePan()) || IsWide(profile->RangeTilt()))
    m_Rooms.Camera->AddOptions(VIDEO_OPTION_PAN_TILT);
  if (IsWide(profile->RangeZoom())) m_Rooms.Camera->AddOptions(VIDEO_OPTION_ZOOM);
  if (profile->PTZRelPositionSpace() != CONVIFCam::SPACE_FIELD_OF_VIEW)
    m_Rooms.Camera->AddOptions(VIDEO_OPTION_CONTINUOUS_MOVE);
  profile->LoadPresetConfig(m_Rooms.Camera);
  if (profile->NPresets() > 0)
    m_Rooms.Camera->AddOptions(VIDEO_OPTION_PRESETS | VIDEO_OPTION_PAN_TILT | VIDEO_OPTION_ZOOM |
                               VIDEO_OPTION_CONTINUOUS_MOVE);
}

bool CLoading::LoadONVIF_SnapshotConfig() {
  const auto profiles = m_Rooms.Model->Profiles();
  bool any = false;
  for (CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next()) {
    const CMsgRef reply =
        Ask(m_Rooms.Identity->MediaURL(), "GetSnapshotUri", NS_ONVIF_MEDIA, "ProfileToken", profile->Token());
    const CONVIFMsg* const response = reply != nullptr ? reply->FindResponseMSG("GetSnapshotUri") : nullptr;
    // With the colon: "MediaUri" around it would match without.
    const CGXString uri = response != nullptr ? response->FindSubMSGValue(":Uri", 0) : CGXString();
    if (uri.IsEmpty()) continue;
    profile->SnapshotUri(UnformatHTTPString(uri));
    any = true;
  }
  return any;
}

bool CLoading::LoadStreams() {
  if (!LoadONVIF_MediaConfig()) return false;
  // Only speeds up the first call; a stream start asks again.
  if (m_Rooms.Camera->IsDoorStation()) LoadONVIF_RTSPConfig();
  return true;
}

bool CLoading::LoadONVIF_MediaConfig() {
  const auto profiles = m_Rooms.Model->Profiles();
  for (CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next())
    profile->LoadStreamUri(
        m_Rooms.Camera);  // a profile without one is of no use, but no reason to do without the others
  return true;
}

bool CLoading::LoadONVIF_RTSPConfig() {
  const auto profiles = m_Rooms.Model->Profiles();
  for (CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next())
    // The clock is looked at in between: each description may take its time.
    if (m_Rooms.Clock->Wrong() || !profile->LoadRTSPConfig(m_Rooms.Camera)) return false;
  return true;
}

bool CLoading::LoadONVIF_PTZConfig() {
  CSOAPRequest request(m_Rooms.Identity->MediaURL(), "GetNodes", NS_ONVIF_PTZ,
                       m_Rooms.Camera->CreateLoginHeader());
  // Sent to the media service under the action of GetProfiles: small cameras serve all at one address and read
  // only the body. Nothing is kept of the answer, so nothing is lost with those that refuse it.
  request.SendAs("GetProfiles", NS_ONVIF_MEDIA);
  return true;
}

bool CLoading::StartONVIF_EventConfig() {
  return m_Rooms.Camera->StartONVIF_EventConfig();
}
