// The loading steps: what a camera is asked, in the order of the pass, to learn what it offers.
#include "camera/ONVIFCam.h"
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
std::unique_ptr<CONVIFMsg> CONVIFCam::Ask(const CGXString& url, const char* operation, const char* ns,
                                          const char* argument, const CGXString& value) {
  CSOAPRequest request(url, operation, ns, CreateLoginHeader());
  if (argument != nullptr) request.Element()->AddValue(argument, value);
  return request.Send();
}

bool CONVIFCam::FindONVIF_ServiceURL() {
  const CIdentity identity = Identity();
  CONVIFDevice device;
  device.Manufacturer(identity.Manufacturer);
  device.Model(identity.Model);
  device.Firmware(identity.Firmware);
  device.SerialNo(identity.SerialNo);
  device.HardwareID(identity.HardwareID);
  if (!CONVIF::FindDevice(&device, UserName(), Password())) return false;
  {
    const CGXLock lock(m_IdentityLock);
    m_Identity.Firmware = device.Firmware();
    m_ServiceURL = m_PTZURL = device.ServiceURL();
  }
  if (!(device.Firmware() == identity.Firmware)) CSystem::Instance()->NotifyWrite();
  UpdateTraceName();
  return true;
}

bool CONVIFCam::LoadONVIF_TimeSync() {
  // Without login: the login needs this clock.
  const CMsgRef reply(
      CONVIF::DoQuery_HTTP(ServiceURL(), "GetSystemDateAndTime", NS_ONVIF_DEVICE, QUERY_TIMEOUT_MS));
  CGXTime now;
  if (reply == nullptr || !CONVIF::ReadCameraTime(*reply, &now)) return false;
  if (Trace()) {
    CGXString line;
    line.Format("Device Time %d/%d/%d %s", now.Month(), now.Day(), now.Year(),
                now.TimeTextSeconds(CSystem::Instance()->ClockDisplayMode()).Str().c_str());
    Trace(line);
  }
  m_Clock.Set(now);
  return true;
}

bool CONVIFCam::LoadONVIF_MediaURL1() {
  const CMsgRef reply = Ask(ServiceURL(), "GetServices", NS_ONVIF_DEVICE, "IncludeCapability", "false");
  const CONVIFMsg* const response = reply != nullptr ? reply->FindResponseMSG("GetServices") : nullptr;
  const CONVIFMsg* service = response != nullptr ? response->Messages() : nullptr;
  while (service != nullptr && service->FindSubMSGValue("Namespace", 0).Find("ver10/media") < 0)
    service = service->Next();
  return TakeMediaURL(service);
}

bool CONVIFCam::LoadONVIF_MediaURL2() {
  const CMsgRef reply = Ask(ServiceURL(), "GetCapabilities", NS_ONVIF_DEVICE, "Category", "All");
  CONVIFMsg* const response = reply != nullptr ? reply->FindResponseMSG("GetCapabilities") : nullptr;
  return TakeMediaURL(response != nullptr ? response->FindSubMSG("Media") : nullptr);
}

// From the element that describes the media service; null when there is none.
bool CONVIFCam::TakeMediaURL(const CONVIFMsg* service) {
  const CGXString url = service != nullptr ? service->FindSubMSGValue("XAddr", 0) : CGXString();
  SetURL(&CONVIFCam::m_MediaURL, url.IsEmpty() ? ServiceURL() : url);
  // One text for both steps: who reads traces looks for this one.
  if (url.IsEmpty()) Trace("WARNING: Bad Reply from GetServices()");
  return !url.IsEmpty();
}

bool CONVIFCam::LoadONVIF_EncoderConfig() {
  const CMsgRef reply = Ask(MediaURL(), "GetVideoEncoderConfigurations", NS_ONVIF_MEDIA);
  if (reply == nullptr) return false;
  const CONVIFMsg* const response = reply->FindResponseMSG("GetVideoEncoderConfigurations");
  if (response == nullptr) return true;
  const auto encoders = std::make_shared<CEncoderConfig>();
  for (const CONVIFMsg* item = response->Messages(); item != nullptr; item = item->Next()) {
    CEncoder* const encoder = encoders->AddEncoder(item);
    if (Trace()) Trace("Found Encoder tkn " + encoder->Token() + " Name:" + encoder->Name());
    LoadONVIF_EncoderOptions(encoder);
  }
  m_Model.Take(encoders);
  return true;
}

bool CONVIFCam::LoadONVIF_EncoderOptions(CEncoder* encoder) {
  const CMsgRef reply = Ask(MediaURL(), "GetVideoEncoderConfigurationOptions", NS_ONVIF_MEDIA,
                            "ConfigurationToken", encoder->Token());
  if (reply == nullptr) return false;
  const CONVIFMsg* const response = reply->FindResponseMSG("GetVideoEncoderConfigurationOptions");
  const CONVIFMsg* const options = response != nullptr ? response->Messages() : nullptr;
  if (options == nullptr) return true;
  for (const CONVIFMsg* item = options->Messages(); item != nullptr; item = item->Next())
    encoder->AddOptions(item);
  return true;
}

bool CONVIFCam::LoadONVIF_Capabilities() {
  const CMsgRef reply = Ask(ServiceURL(), "GetCapabilities", NS_ONVIF_DEVICE, "Category", "All");
  if (reply == nullptr) return false;
  const CONVIFMsg* const ptz = reply->FindSubMSG("PTZ");
  const CONVIFMsg* const address = ptz != nullptr ? ptz->FindSubMSG("XAddr") : nullptr;
  if (address == nullptr) return true;
  const CGXString url = address->Value(0);
  SetURL(&CONVIFCam::m_PTZURL, url);
  if (!url.IsEmpty()) AddOptions(VIDEO_OPTION_PAN_TILT | VIDEO_OPTION_ZOOM | VIDEO_OPTION_CONTINUOUS_MOVE);
  return true;
}

bool CONVIFCam::LoadONVIF_ProfileConfig() {
  const CMsgRef reply = Ask(MediaURL(), "GetProfiles", NS_ONVIF_MEDIA);
  if (reply == nullptr) return false;
  const CONVIFMsg* const response = reply->FindResponseMSG("GetProfiles");
  if (response == nullptr) return true;
  const auto profiles = std::make_shared<CProfileConfig>();
  for (const CONVIFMsg* item = response->Messages(); item != nullptr; item = item->Next()) {
    const CProfile* const profile = profiles->AddProfile(item);
    if (Trace()) Trace("Found Profile " + profile->Token());
    if (profile->AudioEncoderType().CompareNoCase("g711") == 0) AddOptions(VIDEO_OPTION_AUDIO);
  }
  if (CProfile* const profile = CMediaModel::PTZProfile(*profiles)) AddPTZOptions(profile);
  m_Model.Take(profiles);
  return true;
}

void CONVIFCam::AddPTZOptions(CProfile* profile) {
  if (IsWide(profile->RangePan()) || IsWide(profile->RangeTilt())) AddOptions(VIDEO_OPTION_PAN_TILT);
  if (IsWide(profile->RangeZoom())) AddOptions(VIDEO_OPTION_ZOOM);
  if (profile->PTZRelPositionSpace() != SPACE_FIELD_OF_VIEW) AddOptions(VIDEO_OPTION_CONTINUOUS_MOVE);
  profile->LoadPresetConfig(this);
  if (profile->NPresets() > 0)
    AddOptions(VIDEO_OPTION_PRESETS | VIDEO_OPTION_PAN_TILT | VIDEO_OPTION_ZOOM | VIDEO_OPTION_CONTINUOUS_MOVE);
}

bool CONVIFCam::LoadONVIF_SnapshotConfig() {
  const auto profiles = m_Model.Profiles();
  bool any = false;
  for (CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next()) {
    const CMsgRef reply = Ask(MediaURL(), "GetSnapshotUri", NS_ONVIF_MEDIA, "ProfileToken", profile->Token());
    const CONVIFMsg* const response = reply != nullptr ? reply->FindResponseMSG("GetSnapshotUri") : nullptr;
    // With the colon: "MediaUri" around it would match without.
    const CGXString uri = response != nullptr ? response->FindSubMSGValue(":Uri", 0) : CGXString();
    if (uri.IsEmpty()) continue;
    profile->SnapshotUri(UnformatHTTPString(uri));
    any = true;
  }
  return any;
}

bool CONVIFCam::LoadONVIF_MediaConfig() {
  const auto profiles = m_Model.Profiles();
  for (CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next())
    profile->LoadStreamUri(this);  // a profile without one is of no use, but no reason to do without the others
  return true;
}

bool CONVIFCam::LoadONVIF_RTSPConfig() {
  const auto profiles = m_Model.Profiles();
  for (CProfile* profile = profiles->Profiles(); profile != nullptr; profile = profile->Next())
    if (!profile->LoadRTSPConfig(this)) return false;
  return true;
}

bool CONVIFCam::LoadONVIF_PTZConfig() {
  CSOAPRequest request(MediaURL(), "GetNodes", NS_ONVIF_PTZ, CreateLoginHeader());
  // Sent to the media service under the action of GetProfiles: small cameras serve all at one address and read
  // only the body. Nothing is kept of the answer, so nothing is lost with those that refuse it.
  request.SendAs("GetProfiles", NS_ONVIF_MEDIA);
  return true;
}
