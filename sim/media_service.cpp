// The ONVIF media service (version 1).
#include "sim/services.h"

#include <algorithm>
#include <cstdlib>

namespace {

struct CSize {
  int Width, Height;
};

constexpr CSize SIZES[] = {{1280, 720}, {640, 480}, {640, 360}, {320, 240}, {176, 144}};
constexpr const char* H264_PROFILES[] = {"Baseline", "Main", "High"};
constexpr int BEST_QUALITY = 100, MOST_FPS = 25, LONGEST_INTERVAL = 10, LONGEST_GOV = 100;
constexpr int LEAST_BITRATE = 64, MOST_BITRATE = 8192;  // kbit/s
// Of a camera that rounds; it also takes Main for High.
constexpr int BITRATE_STEP = 256, QUALITY_STEP = 10, FPS_STEP = 5, GOV_STEP = 10;
constexpr char SOURCE_TOKEN[] = "VS_0", SOURCE_CONFIG_TOKEN[] = "VSC_0";
constexpr char AUDIO_SOURCE_TOKEN[] = "AS_0", AUDIO_SOURCE_CONFIG_TOKEN[] = "ASC_0",
               AUDIO_ENCODER_TOKEN[] = "AE_0";

CFault NoProfile() {
  return InvalidArgument("ter:NoProfile", "The requested profile token does not exist");
}
CFault NoConfig() {
  return InvalidArgument("ter:NoConfig", "The requested configuration token does not exist");
}
CFault BadConfig(const std::string& why) {
  return InvalidArgument("ter:ConfigModify", why);
}

void AddRange(pugi::xml_node parent, const char* name, int from, int to) {
  pugi::xml_node node = Add(parent, name);
  Add(node, "tt:Min", from);
  Add(node, "tt:Max", to);
}

void AddSize(pugi::xml_node parent, const char* name, int width, int height) {
  pugi::xml_node node = Add(parent, name);
  Add(node, "tt:Width", width);
  Add(node, "tt:Height", height);
}

void AddMulticast(pugi::xml_node parent) {
  pugi::xml_node node = Add(parent, "tt:Multicast");
  pugi::xml_node address = Add(node, "tt:Address");
  Add(address, "tt:Type", "IPv4");
  Add(address, "tt:IPv4Address", "0.0.0.0");
  Add(node, "tt:Port", 0);
  Add(node, "tt:TTL", 1);
  Add(node, "tt:AutoStart", "false");
}

void AddVideoSourceConfig(CSOAPCall& call, pugi::xml_node parent, const char* name) {
  pugi::xml_node node = Attr(Add(parent, name), "token", SOURCE_CONFIG_TOKEN);
  Add(node, "tt:Name", "VideoSourceConfig");
  Add(node, "tt:UseCount", static_cast<int>(call.Model.Profiles.size()));
  Add(node, "tt:SourceToken", SOURCE_TOKEN);
  pugi::xml_node bounds = Attr(Attr(Add(node, "tt:Bounds"), "x", "0"), "y", "0");
  Attr(Attr(bounds, "width", std::to_string(SIZES[0].Width)), "height", std::to_string(SIZES[0].Height));
}

void AddVideoEncoder(CSOAPCall& call, pugi::xml_node parent, const char* name, const CVideoEncoder& encoder) {
  const auto& profiles = call.Model.Profiles;
  const auto uses = std::count_if(profiles.begin(), profiles.end(), [&](const CSimProfile& profile) {
    return profile.VideoEncoder == encoder.Token;
  });
  pugi::xml_node node = Attr(Add(parent, name), "token", encoder.Token);
  Add(node, "tt:Name", encoder.Name);
  Add(node, "tt:UseCount", static_cast<int>(uses));
  Add(node, "tt:Encoding", encoder.Encoding);
  AddSize(node, "tt:Resolution", encoder.Width, encoder.Height);
  Add(node, "tt:Quality", encoder.Quality);
  pugi::xml_node rate = Add(node, "tt:RateControl");
  Add(rate, "tt:FrameRateLimit", encoder.FrameRate);
  Add(rate, "tt:EncodingInterval", encoder.Interval);
  Add(rate, "tt:BitrateLimit", encoder.Bitrate);
  if (encoder.Encoding == "H264") {
    pugi::xml_node h264 = Add(node, "tt:H264");
    Add(h264, "tt:GovLength", encoder.GovLength);
    Add(h264, "tt:H264Profile", encoder.H264Profile);
  }
  AddMulticast(node);
  Add(node, "tt:SessionTimeout", "PT60S");
}

void AddAudioSourceConfig(pugi::xml_node parent) {
  pugi::xml_node node = Attr(Add(parent, "tt:AudioSourceConfiguration"), "token", AUDIO_SOURCE_CONFIG_TOKEN);
  Add(node, "tt:Name", "AudioSourceConfig");
  Add(node, "tt:UseCount", 1);
  Add(node, "tt:SourceToken", AUDIO_SOURCE_TOKEN);
}

void AddAudioEncoder(pugi::xml_node parent, const char* name) {
  pugi::xml_node node = Attr(Add(parent, name), "token", AUDIO_ENCODER_TOKEN);
  Add(node, "tt:Name", "AudioEncoderConfig");
  Add(node, "tt:UseCount", 1);
  Add(node, "tt:Encoding", "G711");
  Add(node, "tt:Bitrate", 64);
  Add(node, "tt:SampleRate", 8);
  AddMulticast(node);
  Add(node, "tt:SessionTimeout", "PT60S");
}

void AddProfile(CSOAPCall& call, const char* name, const CSimProfile& profile) {
  pugi::xml_node node = Attr(Attr(Add(call.Out, name), "token", profile.Token), "fixed", "true");
  Add(node, "tt:Name", profile.Name);
  AddVideoSourceConfig(call, node, "tt:VideoSourceConfiguration");
  if (profile.Audio) AddAudioSourceConfig(node);
  if (const CVideoEncoder* encoder = call.Model.EncoderByToken(profile.VideoEncoder))
    AddVideoEncoder(call, node, "tt:VideoEncoderConfiguration", *encoder);
  if (profile.Audio) AddAudioEncoder(node, "tt:AudioEncoderConfiguration");
  if (profile.PTZ) AddPTZConfiguration(call.Model, node, "tt:PTZConfiguration");
}

COutcome GetProfiles(CSOAPCall& call) {
  for (const CSimProfile& profile : call.Model.Profiles) AddProfile(call, "trt:Profiles", profile);
  return {};
}

COutcome GetProfile(CSOAPCall& call) {
  const CSimProfile* profile = call.Model.ProfileByToken(Text(call.In, "ProfileToken"));
  if (profile == nullptr) return NoProfile();
  AddProfile(call, "trt:Profile", *profile);
  return {};
}

COutcome GetVideoSources(CSOAPCall& call) {
  pugi::xml_node node = Attr(Add(call.Out, "trt:VideoSources"), "token", SOURCE_TOKEN);
  Add(node, "tt:Framerate", MOST_FPS);
  AddSize(node, "tt:Resolution", SIZES[0].Width, SIZES[0].Height);
  return {};
}

COutcome GetVideoSourceConfigurations(CSOAPCall& call) {
  AddVideoSourceConfig(call, call.Out, "trt:Configurations");
  return {};
}

COutcome GetVideoEncoderConfigurations(CSOAPCall& call) {
  for (const CVideoEncoder& encoder : call.Model.Encoders)
    AddVideoEncoder(call, call.Out, "trt:Configurations", encoder);
  return {};
}

COutcome GetVideoEncoderConfiguration(CSOAPCall& call) {
  const CVideoEncoder* encoder = call.Model.EncoderByToken(Text(call.In, "ConfigurationToken"));
  if (encoder == nullptr) return NoConfig();
  AddVideoEncoder(call, call.Out, "trt:Configuration", *encoder);
  return {};
}

pugi::xml_node AddEncodingOptions(pugi::xml_node parent, const char* name, bool gov) {
  pugi::xml_node node = Add(parent, name);
  for (const CSize& size : SIZES) AddSize(node, "tt:ResolutionsAvailable", size.Width, size.Height);
  if (gov) AddRange(node, "tt:GovLengthRange", 1, LONGEST_GOV);
  AddRange(node, "tt:FrameRateRange", 1, MOST_FPS);
  AddRange(node, "tt:EncodingIntervalRange", 1, LONGEST_INTERVAL);
  if (gov)
    for (const char* profile : H264_PROFILES) Add(node, "tt:H264ProfilesSupported", profile);
  return node;
}

COutcome GetVideoEncoderConfigurationOptions(CSOAPCall& call) {
  const std::string token = Text(call.In, "ConfigurationToken");
  if (!token.empty() && call.Model.EncoderByToken(token) == nullptr) return NoConfig();
  pugi::xml_node options = Add(call.Out, "trt:Options");
  AddRange(options, "tt:QualityRange", 1, BEST_QUALITY);
  AddEncodingOptions(options, "tt:JPEG", false);
  AddEncodingOptions(options, "tt:H264", true);
  pugi::xml_node more = Add(options, "tt:Extension");
  AddRange(AddEncodingOptions(more, "tt:JPEG", false), "tt:BitrateRange", LEAST_BITRATE, MOST_BITRATE);
  AddRange(AddEncodingOptions(more, "tt:H264", true), "tt:BitrateRange", LEAST_BITRATE, MOST_BITRATE);
  return {};
}

int Number(const pugi::xml_node& parent, const std::string& path, int otherwise) {
  const std::string text = Text(parent, path);
  return text.empty() ? otherwise : std::atoi(text.c_str());
}

CVideoEncoder ReadEncoder(const pugi::xml_node& in, CVideoEncoder encoder) {
  if (const std::string name = Text(in, "Name"); !name.empty()) encoder.Name = name;
  if (const std::string encoding = Text(in, "Encoding"); !encoding.empty()) encoder.Encoding = encoding;
  encoder.Width = Number(in, "Resolution/Width", encoder.Width);
  encoder.Height = Number(in, "Resolution/Height", encoder.Height);
  encoder.Quality = Number(in, "Quality", encoder.Quality);
  encoder.FrameRate = Number(in, "RateControl/FrameRateLimit", encoder.FrameRate);
  encoder.Interval = Number(in, "RateControl/EncodingInterval", encoder.Interval);
  encoder.Bitrate = Number(in, "RateControl/BitrateLimit", encoder.Bitrate);
  encoder.GovLength = Number(in, "H264/GovLength", encoder.GovLength);
  if (const std::string profile = Text(in, "H264/H264Profile"); !profile.empty()) encoder.H264Profile = profile;
  return encoder;
}

bool Within(int value, int from, int to) {
  return value >= from && value <= to;
}

// Why a camera refuses these values; "" when it does not.
std::string Objection(const CVideoEncoder& e) {
  if (e.Encoding != "JPEG" && e.Encoding != "H264") return "Encoding not supported";
  if (std::none_of(std::begin(SIZES), std::end(SIZES),
                   [&](const CSize& size) { return size.Width == e.Width && size.Height == e.Height; }))
    return "Resolution not supported";
  if (!Within(e.Quality, 1, BEST_QUALITY) || !Within(e.FrameRate, 1, MOST_FPS) ||
      !Within(e.Interval, 1, LONGEST_INTERVAL) || !Within(e.Bitrate, LEAST_BITRATE, MOST_BITRATE))
    return "Value out of range";
  if (e.Encoding != "H264") return "";
  if (!Within(e.GovLength, 1, LONGEST_GOV)) return "GovLength out of range";
  const auto known = [&](const char* profile) { return e.H264Profile == profile; };
  return std::any_of(std::begin(H264_PROFILES), std::end(H264_PROFILES), known) ? ""
                                                                                : "H264 profile not supported";
}

int Rounded(int value, int step, int most) {
  return std::clamp((value + step / 2) / step * step, step, most);
}

COutcome SetVideoEncoderConfiguration(CSOAPCall& call) {
  const pugi::xml_node in = Child(call.In, "Configuration");
  CVideoEncoder* encoder = call.Model.EncoderByToken(in.attribute("token").value());
  if (encoder == nullptr) return NoConfig();
  CVideoEncoder wanted = ReadEncoder(in, *encoder);
  const std::string& manner = call.Model.Quirks.EncoderSet;
  if (manner == "refuse") return BadConfig("The configuration cannot be set");
  if (manner == "ignore") return {};
  if (manner == "round") {
    wanted.Bitrate = Rounded(wanted.Bitrate, BITRATE_STEP, MOST_BITRATE);
    wanted.Quality = Rounded(wanted.Quality, QUALITY_STEP, BEST_QUALITY);
    wanted.FrameRate = Rounded(wanted.FrameRate, FPS_STEP, MOST_FPS);
    if (wanted.Encoding == "H264") wanted.GovLength = Rounded(wanted.GovLength, GOV_STEP, LONGEST_GOV);
    if (wanted.H264Profile == "High") wanted.H264Profile = "Main";
  }
  if (const std::string objection = Objection(wanted); !objection.empty()) return BadConfig(objection);
  if (wanted == *encoder) return {};
  *encoder = wanted;
  ++encoder->Changes;
  for (const CSimProfile& profile : call.Model.Profiles)
    if (profile.VideoEncoder == encoder->Token) call.ChangedProfiles.push_back(profile.Token);
  return {};
}

COutcome AddVideoEncoderConfiguration(CSOAPCall& call) {
  CSimProfile* profile = call.Model.ProfileByToken(Text(call.In, "ProfileToken"));
  if (profile == nullptr) return NoProfile();
  const std::string token = Text(call.In, "ConfigurationToken");
  if (call.Model.EncoderByToken(token) == nullptr) return NoConfig();
  if (profile->VideoEncoder == token) return {};
  profile->VideoEncoder = token;
  call.ChangedProfiles.push_back(profile->Token);
  return {};
}

bool HasAudio(const CCameraModel& model) {
  return std::any_of(model.Profiles.begin(), model.Profiles.end(),
                     [](const CSimProfile& p) { return p.Audio; });
}

COutcome GetAudioSources(CSOAPCall& call) {
  if (HasAudio(call.Model))
    Add(Attr(Add(call.Out, "trt:AudioSources"), "token", AUDIO_SOURCE_TOKEN), "tt:Channels", 1);
  return {};
}

COutcome GetAudioEncoderConfigurations(CSOAPCall& call) {
  if (HasAudio(call.Model)) AddAudioEncoder(call.Out, "trt:Configurations");
  return {};
}

void AddMediaUri(CSOAPCall& call, const std::string& uri) {
  pugi::xml_node node = Add(call.Out, "trt:MediaUri");
  Add(node, "tt:Uri", uri);
  Add(node, "tt:InvalidAfterConnect", "false");
  Add(node, "tt:InvalidAfterReboot", "false");
  Add(node, "tt:Timeout", "PT0S");
}

COutcome GetStreamUri(CSOAPCall& call) {
  const CSimProfile* profile = call.Model.ProfileByToken(Text(call.In, "ProfileToken"));
  if (profile == nullptr) return NoProfile();
  const std::string protocol = Text(call.In, "StreamSetup/Transport/Protocol");
  if (Text(call.In, "StreamSetup/Stream") != "RTP-Unicast" || (protocol != "RTSP" && protocol != "UDP"))
    return InvalidArgument("ter:InvalidStreamSetup", "Only RTP-Unicast over RTSP or UDP");
  AddMediaUri(call, call.Model.StreamURI(*profile));
  return {};
}

COutcome GetSnapshotUri(CSOAPCall& call) {
  if (call.Model.Quirks.NoSnapshot) return NotSupported("Snapshots are not supported");
  const CSimProfile* profile = call.Model.ProfileByToken(Text(call.In, "ProfileToken"));
  if (profile == nullptr) return NoProfile();
  AddMediaUri(call, call.Model.HTTPBase() + "/snapshot.jpg?ch=1&profile=" + profile->Token);
  return {};
}

COutcome GetServiceCapabilities(CSOAPCall& call) {
  pugi::xml_node node =
      Attr(Attr(Add(call.Out, "trt:Capabilities"), "SnapshotUri", "true"), "Rotation", "false");
  Attr(Add(node, "trt:ProfileCapabilities"), "MaximumNumberOfProfiles",
       std::to_string(call.Model.Profiles.size()));
  Attr(Attr(Add(node, "trt:StreamingCapabilities"), "RTPMulticast", "false"), "RTP_RTSP_TCP", "true");
  return {};
}

constexpr CSOAPOperation OPERATIONS[] = {
    {"GetServiceCapabilities", true, GetServiceCapabilities},
    {"GetProfiles", false, GetProfiles},
    {"GetProfile", false, GetProfile},
    {"GetVideoSources", false, GetVideoSources},
    {"GetVideoSourceConfigurations", false, GetVideoSourceConfigurations},
    {"GetVideoEncoderConfigurations", false, GetVideoEncoderConfigurations},
    {"GetCompatibleVideoEncoderConfigurations", false, GetVideoEncoderConfigurations},
    {"GetVideoEncoderConfiguration", false, GetVideoEncoderConfiguration},
    {"GetVideoEncoderConfigurationOptions", false, GetVideoEncoderConfigurationOptions},
    {"SetVideoEncoderConfiguration", false, SetVideoEncoderConfiguration},
    {"AddVideoEncoderConfiguration", false, AddVideoEncoderConfiguration},
    {"GetAudioSources", false, GetAudioSources},
    {"GetAudioEncoderConfigurations", false, GetAudioEncoderConfigurations},
    {"GetStreamUri", false, GetStreamUri},
    {"GetSnapshotUri", false, GetSnapshotUri},
};

}  // namespace

const CService& MediaService() {
  static const CService g_service{ns::MEDIA, "trt", OPERATIONS};
  return g_service;
}
