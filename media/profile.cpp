#include "media/profile.h"

#include "host/base/gxassert.h"
#include "host/net/http.h"
#include "media/xml_values.h"
#include "onvif/namespaces.h"
#include "onvif/onvif.h"
#include "onvif/soap_request.h"
#include "rtsp/rtsp.h"

#include <algorithm>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdlib>

namespace {

constexpr int DESCRIBE_ANSWER_BYTES = 2048;  // longer answers are cut
constexpr int DESCRIBE_ATTEMPTS = 3;         // of a profile that is reloaded each time meanwhile

// With a point, also where the host's language writes a comma.
float FloatOf(const CONVIFMsg* msg, const char* name) {
  static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
  const double number = strtod_l(TextOf(msg, name), nullptr, plain);
  return std::isnan(number) ? 0.0F : static_cast<float>(std::clamp<double>(number, -FLT_MAX, FLT_MAX));
}

}  // namespace

CProfile::CProfile(const CONVIFMsg* profile)
    : m_Token(profile->Attribute("token")),
      m_PTZ(ExtractPTZ(profile)),
      m_pPresets(std::make_shared<CPresetList>()) {
  LoadEncoders(profile);
}

void CProfile::LoadEncoders(const CONVIFMsg* profile) {
  const CONVIFMsg* const video = profile->FindSubMSG("VideoEncoderConfiguration");
  const CONVIFMsg* const audio = profile->FindSubMSG("AudioEncoderConfiguration");
  CGXLock lock(m_Lock);
  m_Name = TextOf(profile, "Name");
  if (video != nullptr) {
    m_VideoEncoderToken = video->Attribute("token");
    m_CurrentSettings.LoadFrom(video, audio);
  }
  if (audio != nullptr) {
    m_AudioEncoderToken = audio->Attribute("token");
    m_iSampleRate = IntOf(audio, "SampleRate");
  }
}

CProfile::CPTZ CProfile::ExtractPTZ(const CONVIFMsg* profile) {
  CPTZ ptz;
  const CONVIFMsg* const configuration = profile->FindSubMSG("PTZConfiguration");
  if (configuration == nullptr) return ptz;
  ptz.ConfigToken = configuration->Attribute("token");
  ptz.NodeToken = TextOf(configuration, "NodeToken");
  ptz.RelPositionSpace = TextOf(configuration, "DefaultRelativePanTiltTranslationSpace");
  if (const CONVIFMsg* limits = configuration->FindSubMSG("PanTiltLimits")) {
    ExtractPTZRange(limits->FindSubMSG("XRange"), &ptz.Pan);
    ExtractPTZRange(limits->FindSubMSG("YRange"), &ptz.Tilt);
  }
  ExtractPTZRange(configuration->FindSubMSG("ZoomLimits"), &ptz.Zoom);
  return ptz;
}

void CProfile::ExtractPTZRange(const CONVIFMsg* element, GXT_PTZ_RANGE* range) {
  *range = {};
  if (element != nullptr) *range = {FloatOf(element, "Min"), FloatOf(element, "Max")};
}

// The stream must be described again even when the token is another one: who asks for a reload has changed the
// camera. PTZ and presets stay, since users see and recall them while an encoder is being changed.
bool CProfile::ReloadFrom(const CONVIFMsg* profile) {
  State(0);
  if (!(profile->Attribute("token") == m_Token)) {
    AssertWrap("profile", 466);
    return false;
  }
  LoadEncoders(profile);
  return true;
}

bool CProfile::LoadStreamUri(CMediaCamera* camera) {
  CSOAPRequest request(camera->MediaURL(), "GetStreamUri", NS_ONVIF_MEDIA, camera->CreateLoginHeader());
  request.Envelope()->AddAttrib(CONVIF::FormatXMLNS_M(NS_ONVIF_MEDIA));
  request.Envelope()->AddAttrib(CONVIF::FormatXMLNS_TT(NS_ONVIF_SCHEMA));
  CONVIFMsg* const element = request.Body()->AddMSGVer10_Media("GetStreamUri");
  CONVIFMsg* const setup = element->AddMSG("StreamSetup");
  setup->AddValueVer10_Schema("Stream", "RTP-Unicast");
  setup->AddMSGVer10_Schema("Transport")->AddValue("Protocol", "RTSP");
  element->AddValue("ProfileToken", m_Token);

  const std::unique_ptr<CONVIFMsg> answer = request.Send();
  const CONVIFMsg* const response = answer ? answer->FindResponseMSG("GetStreamUri") : nullptr;
  const CONVIFMsg* const media = response != nullptr ? response->FindSubMSG("MediaUri") : nullptr;
  if (media == nullptr) return false;
  for (const CONVIFMsg* child = media->Messages(); child != nullptr; child = child->Next()) {
    const CONVIFMsg* const uri = child->FindSubMSG("Uri");
    if (uri == nullptr) continue;
    TakeStreamUri(UnformatHTTPString(uri->Value(0)));
    return true;
  }
  return false;
}

void CProfile::TakeStreamUri(const CGXString& uri) {
  CGXLock lock(m_Lock);
  if (m_StreamUri == uri) return;
  m_StreamUri = uri;
  m_Description.Forget();
  m_iState &= ~STATE_DESCRIBED;
  ++m_nReloads;
}

bool CProfile::LoadPresetConfig(CMediaCamera* camera) {
  CSOAPRequest request(camera->PTZURL(), "GetPresets", NS_ONVIF_PTZ, camera->CreateLoginHeader());
  request.Element()->AddValue("ProfileToken", m_Token);
  const std::unique_ptr<CONVIFMsg> answer = request.Send();
  if (!answer) return false;
  const CONVIFMsg* const response = answer->FindResponseMSG("GetPresets");
  if (response == nullptr) return true;
  auto presets = std::make_shared<CPresetList>();
  for (const CONVIFMsg* child = response->Messages(); child != nullptr; child = child->Next())
    presets->Append(std::make_unique<CONVIFPreset>(child->Attribute("token"), TextOf(child, "Name")));
  CGXLock lock(m_Lock);
  m_pPresets = presets;
  return true;
}

bool CProfile::LoadRTSPConfig(CMediaCamera* camera, CGXString* reason) {
  Described result = Described::STALE;
  for (int i = 0; i < DESCRIBE_ATTEMPTS && result == Described::STALE; ++i) result = Describe(camera, reason);
  if (result == Described::STALE && reason != nullptr) *reason = "its settings change all the time";
  return result == Described::STORED;
}

CProfile::Described CProfile::Describe(CMediaCamera* camera, CGXString* reason) {
  CGXString uri;
  unsigned reloads = 0;
  {
    CGXLock lock(m_Lock);
    uri = m_StreamUri;
    reloads = m_nReloads;
  }
  CRTSP session(uri, uri, RTP_TRANSPORT_TCP, camera->UserName(), camera->Password(), -1, nullptr, nullptr);
  char answer[DESCRIBE_ANSWER_BYTES + 1] = {};  // a full answer comes without a terminator
  if (!session.Login() ||
      !session.RTSPExchange(uri, "DESCRIBE", "Accept: application/sdp", answer, DESCRIBE_ANSWER_BYTES, 0)) {
    if (reason != nullptr) *reason = session.Failure();
    return Described::FAILED;
  }
  CGXLock lock(m_Lock);
  // What was asked before a change would overwrite what was asked after it.
  if (reloads != m_nReloads) return Described::STALE;

  m_nDescribed = reloads;
  m_Description.Parse(answer, DESCRIBE_ANSWER_BYTES, uri);
  return Described::STORED;
}

void CProfile::TakeStreamFrom(const CProfile& older) {
  CGXString uri;
  CSessionDescription description;
  {
    CGXLock lock(older.m_Lock);
    uri = older.m_StreamUri;
    description.TakeFrom(older.m_Description);
  }
  CGXLock lock(m_Lock);
  m_StreamUri = uri;
  m_Description.TakeFrom(description);
}

bool CProfile::EnsureRTSPConfig(CMediaCamera* camera, CGXString* reason) {
  if ((State() & STATE_DESCRIBED) != 0) return true;
  if (!LoadRTSPConfig(camera, reason)) return false;
  CGXLock lock(m_Lock);
  if (m_nDescribed == m_nReloads) m_iState |= STATE_DESCRIBED;
  return true;
}

void CProfile::ConfigureVideo(CRTSPProfile* rtsp) const {
  const CONVIFSettings settings = m_CurrentSettings;
  CGXLock lock(m_Lock);
  rtsp->URL(m_StreamUri);
  rtsp->ContentBase(m_Description.ContentBase());
  rtsp->ControlURL(m_Description.ControlURLVideo());
  rtsp->FormatTag(m_Description.VideoFormatTag());
  rtsp->SetStartupData(m_Description.StartupData().data(), NStartupData());
  rtsp->Resolution(settings.Resolution().Width, settings.Resolution().Height);
  rtsp->GOVLength(settings.GovLength());
  rtsp->FrameRate(settings.FrameRate());
  rtsp->Bitrate(settings.Bitrate());
}

void CProfile::ConfigureAudio(CRTSPProfile* rtsp) const {
  CGXLock lock(m_Lock);
  rtsp->URL(m_StreamUri);
  rtsp->ContentBase(m_Description.ContentBase());
  rtsp->ControlURL(m_Description.ControlURLAudio());
  rtsp->FormatTag(m_Description.AudioFormatTag());
  rtsp->SetStartupData(m_Description.StartupData().data(), NStartupData());
  rtsp->Bitrate(m_iSampleRate);  // the host's audio relay takes its clock from the bit rate
}

void CProfile::RemoveAll() {
  CGXLock lock(m_Lock);
  m_Description.RemoveAll();
}

void CProfile::RemovePresets() {
  CGXLock lock(m_Lock);
  m_pPresets = std::make_shared<CPresetList>();
}

std::shared_ptr<const CProfile::CPresetList> CProfile::Presets() const {
  CGXLock lock(m_Lock);
  return m_pPresets;
}

int CProfile::NPresets() const {
  return Presets()->Count();
}

std::shared_ptr<const CONVIFPreset> CProfile::Preset(int index) const {
  const auto presets = Presets();
  return {presets, presets->At(index)};
}

void CProfile::WriteTo(CGXMSG* msg) const {
  msg->PutString(Name());
  msg->PutString(m_Token);
  m_CurrentSettings.WriteTo(msg);
}
