#include "camera/ONVIF_proc.h"

#include "camera/ONVIFCam.h"
#include "host/base/gxassert.h"
#include "onvif/namespaces.h"
#include "onvif/soap_request.h"

namespace {

// What every encoder configuration carries besides the user's settings: some cameras refuse one without, none
// is ever asked to multicast.
constexpr const char* MULTICAST_ADDRESS = "239.255.76.67";
constexpr const char* MULTICAST_PORT = "5568";
constexpr const char* SESSION_TIMEOUT = "PT1M";

using CMsgRef = std::unique_ptr<CONVIFMsg>;

CSOAPRequest MediaRequest(CONVIFCam* camera, const char* operation) {
  return {camera->MediaURL(), operation, NS_ONVIF_MEDIA, camera->CreateLoginHeader()};
}

CGXString Decimal(int value) {
  return std::to_string(value);
}

const CONVIFMsg* FirstOf(const CMsgRef& reply, const char* operation) {
  CONVIFMsg* const response = reply != nullptr ? reply->FindResponseMSG(operation) : nullptr;
  return response != nullptr ? response->Messages() : nullptr;
}

void WriteMulticast(CONVIFMsg* configuration) {
  CONVIFMsg* const multicast = configuration->AddMSGVer10_Schema("Multicast");
  CONVIFMsg* const address = multicast->AddMSG("Address");
  address->AddValue("Type", "IPv4");
  address->AddValue("IPv4Address", MULTICAST_ADDRESS);
  multicast->AddValue("Port", MULTICAST_PORT);
  multicast->AddValue("TTL", "0");
  multicast->AddValue("AutoStart", "false");
}

bool Failed(CONVIFCam* camera) {
  camera->Trace("FAILED");
  return false;
}

}  // namespace

int CONVIF_Proc::PostProc(CONVIFCam* /*camera*/) {
  return 1;
}

bool CONVIF_Proc::ReloadEncoder(CONVIFCam* camera, CEncoder* encoder) {
  CSOAPRequest request = MediaRequest(camera, "GetVideoEncoderConfiguration");
  request.Element()->AddValue("ConfigurationToken", encoder->Token());
  const CMsgRef reply = request.Send();
  const CONVIFMsg* const configuration = FirstOf(reply, request.Operation());
  if (configuration == nullptr) return false;
  encoder->ReloadFrom(configuration);
  return true;
}

bool CONVIF_Proc::ReloadProfile(CONVIFCam* camera, CProfile* profile) {
  CSOAPRequest request = MediaRequest(camera, "GetProfile");
  request.Element()->AddValue("ProfileToken", profile->Token());
  const CMsgRef reply = request.Send();
  const CONVIFMsg* const answer = FirstOf(reply, request.Operation());
  if (answer == nullptr) return false;
  profile->ReloadFrom(answer);
  return true;
}

int CCheckUserSet::DoProc(CONVIFCam* camera) {
  const CUserSettingsRef entry = camera->FindUserSettings(m_pEntry);
  if (entry == nullptr) return 0;  // the user has changed the settings since
  bool changed = false;
  if (!entry->ReadOnlyProfile() && !AlignEncoder(camera, entry.get(), &changed)) return 0;
  const CProfileRef profile = camera->ProfileByToken(entry->ProfileToken());
  if (profile == nullptr) {
    camera->Trace("WARNING: Profile not found");
    return 0;
  }
  if (!entry->ReadOnlyProfile() && !AlignProfile(camera, *entry, profile.get(), changed)) return 0;
  if ((profile->State() & CProfile::STATE_DESCRIBED) == 0) {
    m_iProfile = camera->IndexOfProfile(profile->Token());
    camera->Trace("Loading RTSP Config...");
    if (!profile->EnsureRTSPConfig(camera)) return Failed(camera);
  }
  camera->Trace("SUCCESS");
  return 1;
}

bool CCheckUserSet::AlignEncoder(CONVIFCam* camera, CONVIFUserSettings* entry, bool* changed) {
  const CEncoderRef encoder = camera->EncoderByToken(entry->EncoderToken());
  if (encoder == nullptr) {
    camera->Trace("WARNING: Encoder not found");
    return false;
  }
  CONVIFSettings* const wanted = entry->Settings();
  if (encoder->CurrentConfig()->IsSameConfig(wanted)) return true;
  m_iEncoder = camera->IndexOfEncoder(encoder->Token());
  camera->Trace("Configuring Encoder...");
  if (!ConfigureEncoder(camera, *encoder, wanted)) return Failed(camera);
  camera->Trace("Reloading Encoder...");
  if (!ReloadEncoder(camera, encoder.get())) return Failed(camera);
  if (!encoder->CurrentConfig()->IsSameConfig(wanted)) {
    camera->Trace("WARNING: Encoder settings didn't stick, changing our params");
    AdoptRates(*encoder->CurrentConfig(), wanted);
  }
  *changed = true;
  return true;
}

// What cameras round to steps of their own. Encoding and size stay as the user chose them.
void CCheckUserSet::AdoptRates(const CONVIFSettings& current, CONVIFSettings* wanted) {
  wanted->Bitrate(current.Bitrate());
  wanted->FrameRate(current.FrameRate());
  wanted->Quality(current.Quality());
  wanted->GovLength(current.GovLength());
  wanted->H264Profile(current.H264Profile());
}

bool CCheckUserSet::AlignProfile(CONVIFCam* camera, const CONVIFUserSettings& entry, CProfile* profile,
                                 bool changed) {
  if (profile->VideoEncoderToken() != entry.EncoderToken()) {
    m_iProfile = camera->IndexOfProfile(profile->Token());
    camera->Trace("Configuring Profile Encoder Token...");
    if (!ConfigureProfileEncoderToken(camera, *profile, entry.EncoderToken())) return Failed(camera);
    changed = true;
  }
  if (changed) {
    camera->Trace("Reloading Profile...");
    if (!ReloadProfile(camera, profile)) return Failed(camera);
    camera->Trace("Reloading Stream Uri...");
    if (!profile->LoadStreamUri(camera)) return Failed(camera);
    profile->State(profile->State() & ~CProfile::STATE_DESCRIBED);
  }
  // Cameras with one encoder a profile keep theirs; their stream is described and played all the same.
  if (profile->VideoEncoderToken() != entry.EncoderToken()) AssertWrap("ONVIF_proc", 210);
  return true;
}

bool CCheckUserSet::ConfigureEncoder(CONVIFCam* camera, const CEncoder& encoder, CONVIFSettings* settings) {
  CSOAPRequest request = MediaRequest(camera, "SetVideoEncoderConfiguration");
  WriteEncoder(request.Element(), encoder, settings);
  return request.Send() != nullptr;
}

void CCheckUserSet::WriteEncoder(CONVIFMsg* parent, const CEncoder& encoder, CONVIFSettings* settings) {
  CONVIFMsg* const configuration = parent->AddMSG("Configuration");
  configuration->AddAttrib("token=\"" + encoder.Token() + "\"");
  configuration->AddValueVer10_Schema("Name", encoder.Name());
  configuration->AddValueVer10_Schema("UseCount", encoder.UseCount());
  configuration->AddValueVer10_Schema("Encoding", settings->VideoEncoderType());
  CONVIFMsg* const resolution = configuration->AddMSGVer10_Schema("Resolution");
  resolution->AddValue("Width", Decimal(settings->Resolution().Width));
  resolution->AddValue("Height", Decimal(settings->Resolution().Height));
  configuration->AddValueVer10_Schema("Quality", Decimal(settings->Quality()));
  CONVIFMsg* const rate = configuration->AddMSGVer10_Schema("RateControl");
  rate->AddValue("FrameRateLimit", Decimal(settings->FrameRate()));
  rate->AddValue("EncodingInterval", Decimal(settings->EncoderInterval()));
  rate->AddValue("BitrateLimit", Decimal(settings->Bitrate()));
  if (settings->VideoEncoderType() == "H264") {
    if (settings->H264Profile() == H264_PROFILE_NONE)
      settings->H264Profile(encoder.CurrentConfig()->H264Profile());
    CONVIFMsg* const h264 = configuration->AddMSGVer10_Schema("H264");
    h264->AddValue("GovLength", Decimal(settings->GovLength()));
    h264->AddValue("H264Profile", CONVIFSettings::H264ProfileName(settings->H264Profile()));
  }
  WriteMulticast(configuration);
  configuration->AddValueVer10_Schema("SessionTimeout", SESSION_TIMEOUT);
  parent->AddValue("ForcePersistence", "true");
}

bool CCheckUserSet::ConfigureProfileEncoderToken(CONVIFCam* camera, const CProfile& profile,
                                                 const CGXString& encoderToken) {
  CSOAPRequest request = MediaRequest(camera, "AddVideoEncoderConfiguration");
  request.Element()->AddValue("ProfileToken", profile.Token());
  request.Element()->AddValue("ConfigurationToken", encoderToken);
  return request.Send() != nullptr;
}

int CCheckUserSet::PostProc(CONVIFCam* camera) {
  camera->NotifySinks(camera->ID(), (m_iProfile << 16) | (m_iEncoder << 8) | 2);
  return 1;
}
