// The ONVIF media service (version 1).
#include "sim/services.h"

#include <algorithm>
#include <cstdlib>

namespace {

struct CSize {
  int width, height;
};

constexpr CSize kSizes[] = {{1280, 720}, {640, 480}, {640, 360}, {320, 240}, {176, 144}};
constexpr const char* kH264Profiles[] = {"Baseline", "Main", "High"};
constexpr int kBestQuality = 100, kMostFps = 25, kLongestInterval = 10, kLongestGov = 100;
constexpr int kLeastBitrate = 64, kMostBitrate = 8192;  // kbit/s
// Of a camera that rounds; it also takes Main for High.
constexpr int kBitrateStep = 256, kQualityStep = 10, kFpsStep = 5, kGovStep = 10;
constexpr char kSourceToken[] = "VS_0", kSourceConfigToken[] = "VSC_0";
constexpr char kAudioSourceToken[] = "AS_0", kAudioSourceConfigToken[] = "ASC_0", kAudioEncoderToken[] = "AE_0";

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

void AddVideoSourceConfig(CCall& call, pugi::xml_node parent, const char* name) {
  pugi::xml_node node = Attr(Add(parent, name), "token", kSourceConfigToken);
  Add(node, "tt:Name", "VideoSourceConfig");
  Add(node, "tt:UseCount", static_cast<int>(call.model.profiles.size()));
  Add(node, "tt:SourceToken", kSourceToken);
  pugi::xml_node bounds = Attr(Attr(Add(node, "tt:Bounds"), "x", "0"), "y", "0");
  Attr(Attr(bounds, "width", std::to_string(kSizes[0].width)), "height", std::to_string(kSizes[0].height));
}

void AddVideoEncoder(CCall& call, pugi::xml_node parent, const char* name, const CVideoEncoder& encoder) {
  const auto& profiles = call.model.profiles;
  const auto uses = std::count_if(profiles.begin(), profiles.end(), [&](const CSimProfile& profile) {
    return profile.videoEncoder == encoder.token;
  });
  pugi::xml_node node = Attr(Add(parent, name), "token", encoder.token);
  Add(node, "tt:Name", encoder.name);
  Add(node, "tt:UseCount", static_cast<int>(uses));
  Add(node, "tt:Encoding", encoder.encoding);
  AddSize(node, "tt:Resolution", encoder.width, encoder.height);
  Add(node, "tt:Quality", encoder.quality);
  pugi::xml_node rate = Add(node, "tt:RateControl");
  Add(rate, "tt:FrameRateLimit", encoder.frameRate);
  Add(rate, "tt:EncodingInterval", encoder.interval);
  Add(rate, "tt:BitrateLimit", encoder.bitrate);
  if (encoder.encoding == "H264") {
    pugi::xml_node h264 = Add(node, "tt:H264");
    Add(h264, "tt:GovLength", encoder.govLength);
    Add(h264, "tt:H264Profile", encoder.h264Profile);
  }
  AddMulticast(node);
  Add(node, "tt:SessionTimeout", "PT60S");
}

void AddAudioSourceConfig(pugi::xml_node parent) {
  pugi::xml_node node = Attr(Add(parent, "tt:AudioSourceConfiguration"), "token", kAudioSourceConfigToken);
  Add(node, "tt:Name", "AudioSourceConfig");
  Add(node, "tt:UseCount", 1);
  Add(node, "tt:SourceToken", kAudioSourceToken);
}

void AddAudioEncoder(pugi::xml_node parent, const char* name) {
  pugi::xml_node node = Attr(Add(parent, name), "token", kAudioEncoderToken);
  Add(node, "tt:Name", "AudioEncoderConfig");
  Add(node, "tt:UseCount", 1);
  Add(node, "tt:Encoding", "G711");
  Add(node, "tt:Bitrate", 64);
  Add(node, "tt:SampleRate", 8);
  AddMulticast(node);
  Add(node, "tt:SessionTimeout", "PT60S");
}

void AddProfile(CCall& call, const char* name, const CSimProfile& profile) {
  pugi::xml_node node = Attr(Attr(Add(call.out, name), "token", profile.token), "fixed", "true");
  Add(node, "tt:Name", profile.name);
  AddVideoSourceConfig(call, node, "tt:VideoSourceConfiguration");
  if (profile.audio) AddAudioSourceConfig(node);
  if (const CVideoEncoder* encoder = call.model.EncoderByToken(profile.videoEncoder))
    AddVideoEncoder(call, node, "tt:VideoEncoderConfiguration", *encoder);
  if (profile.audio) AddAudioEncoder(node, "tt:AudioEncoderConfiguration");
  if (profile.ptz) AddPtzConfiguration(call.model, node, "tt:PTZConfiguration");
}

COutcome GetProfiles(CCall& call) {
  for (const CSimProfile& profile : call.model.profiles) AddProfile(call, "trt:Profiles", profile);
  return {};
}

COutcome GetProfile(CCall& call) {
  const CSimProfile* profile = call.model.ProfileByToken(Text(call.in, "ProfileToken"));
  if (profile == nullptr) return NoProfile();
  AddProfile(call, "trt:Profile", *profile);
  return {};
}

COutcome GetVideoSources(CCall& call) {
  pugi::xml_node node = Attr(Add(call.out, "trt:VideoSources"), "token", kSourceToken);
  Add(node, "tt:Framerate", kMostFps);
  AddSize(node, "tt:Resolution", kSizes[0].width, kSizes[0].height);
  return {};
}

COutcome GetVideoSourceConfigurations(CCall& call) {
  AddVideoSourceConfig(call, call.out, "trt:Configurations");
  return {};
}

COutcome GetVideoEncoderConfigurations(CCall& call) {
  for (const CVideoEncoder& encoder : call.model.encoders)
    AddVideoEncoder(call, call.out, "trt:Configurations", encoder);
  return {};
}

COutcome GetVideoEncoderConfiguration(CCall& call) {
  const CVideoEncoder* encoder = call.model.EncoderByToken(Text(call.in, "ConfigurationToken"));
  if (encoder == nullptr) return NoConfig();
  AddVideoEncoder(call, call.out, "trt:Configuration", *encoder);
  return {};
}

pugi::xml_node AddEncodingOptions(pugi::xml_node parent, const char* name, bool gov) {
  pugi::xml_node node = Add(parent, name);
  for (const CSize& size : kSizes) AddSize(node, "tt:ResolutionsAvailable", size.width, size.height);
  if (gov) AddRange(node, "tt:GovLengthRange", 1, kLongestGov);
  AddRange(node, "tt:FrameRateRange", 1, kMostFps);
  AddRange(node, "tt:EncodingIntervalRange", 1, kLongestInterval);
  if (gov)
    for (const char* profile : kH264Profiles) Add(node, "tt:H264ProfilesSupported", profile);
  return node;
}

COutcome GetVideoEncoderConfigurationOptions(CCall& call) {
  const std::string token = Text(call.in, "ConfigurationToken");
  if (!token.empty() && call.model.EncoderByToken(token) == nullptr) return NoConfig();
  pugi::xml_node options = Add(call.out, "trt:Options");
  AddRange(options, "tt:QualityRange", 1, kBestQuality);
  AddEncodingOptions(options, "tt:JPEG", false);
  AddEncodingOptions(options, "tt:H264", true);
  pugi::xml_node more = Add(options, "tt:Extension");
  AddRange(AddEncodingOptions(more, "tt:JPEG", false), "tt:BitrateRange", kLeastBitrate, kMostBitrate);
  AddRange(AddEncodingOptions(more, "tt:H264", true), "tt:BitrateRange", kLeastBitrate, kMostBitrate);
  return {};
}

int Number(const pugi::xml_node& parent, const std::string& path, int otherwise) {
  const std::string text = Text(parent, path);
  return text.empty() ? otherwise : std::atoi(text.c_str());
}

CVideoEncoder ReadEncoder(const pugi::xml_node& in, CVideoEncoder encoder) {
  if (const std::string name = Text(in, "Name"); !name.empty()) encoder.name = name;
  if (const std::string encoding = Text(in, "Encoding"); !encoding.empty()) encoder.encoding = encoding;
  encoder.width = Number(in, "Resolution/Width", encoder.width);
  encoder.height = Number(in, "Resolution/Height", encoder.height);
  encoder.quality = Number(in, "Quality", encoder.quality);
  encoder.frameRate = Number(in, "RateControl/FrameRateLimit", encoder.frameRate);
  encoder.interval = Number(in, "RateControl/EncodingInterval", encoder.interval);
  encoder.bitrate = Number(in, "RateControl/BitrateLimit", encoder.bitrate);
  encoder.govLength = Number(in, "H264/GovLength", encoder.govLength);
  if (const std::string profile = Text(in, "H264/H264Profile"); !profile.empty()) encoder.h264Profile = profile;
  return encoder;
}

bool Within(int value, int from, int to) {
  return value >= from && value <= to;
}

// Why a camera refuses these values; "" when it does not.
std::string Objection(const CVideoEncoder& e) {
  if (e.encoding != "JPEG" && e.encoding != "H264") return "Encoding not supported";
  if (std::none_of(std::begin(kSizes), std::end(kSizes),
                   [&](const CSize& size) { return size.width == e.width && size.height == e.height; }))
    return "Resolution not supported";
  if (!Within(e.quality, 1, kBestQuality) || !Within(e.frameRate, 1, kMostFps) ||
      !Within(e.interval, 1, kLongestInterval) || !Within(e.bitrate, kLeastBitrate, kMostBitrate))
    return "Value out of range";
  if (e.encoding != "H264") return "";
  if (!Within(e.govLength, 1, kLongestGov)) return "GovLength out of range";
  const auto known = [&](const char* profile) { return e.h264Profile == profile; };
  return std::any_of(std::begin(kH264Profiles), std::end(kH264Profiles), known) ? ""
                                                                                : "H264 profile not supported";
}

int Rounded(int value, int step, int most) {
  return std::clamp((value + step / 2) / step * step, step, most);
}

COutcome SetVideoEncoderConfiguration(CCall& call) {
  const pugi::xml_node in = Child(call.in, "Configuration");
  CVideoEncoder* encoder = call.model.EncoderByToken(in.attribute("token").value());
  if (encoder == nullptr) return NoConfig();
  CVideoEncoder wanted = ReadEncoder(in, *encoder);
  const std::string& manner = call.model.quirks.encoderSet;
  if (manner == "refuse") return BadConfig("The configuration cannot be set");
  if (manner == "ignore") return {};
  if (manner == "round") {
    wanted.bitrate = Rounded(wanted.bitrate, kBitrateStep, kMostBitrate);
    wanted.quality = Rounded(wanted.quality, kQualityStep, kBestQuality);
    wanted.frameRate = Rounded(wanted.frameRate, kFpsStep, kMostFps);
    if (wanted.encoding == "H264") wanted.govLength = Rounded(wanted.govLength, kGovStep, kLongestGov);
    if (wanted.h264Profile == "High") wanted.h264Profile = "Main";
  }
  if (const std::string objection = Objection(wanted); !objection.empty()) return BadConfig(objection);
  if (wanted == *encoder) return {};
  *encoder = wanted;
  ++encoder->changes;
  for (const CSimProfile& profile : call.model.profiles)
    if (profile.videoEncoder == encoder->token) call.changedProfiles.push_back(profile.token);
  return {};
}

COutcome AddVideoEncoderConfiguration(CCall& call) {
  CSimProfile* profile = call.model.ProfileByToken(Text(call.in, "ProfileToken"));
  if (profile == nullptr) return NoProfile();
  const std::string token = Text(call.in, "ConfigurationToken");
  if (call.model.EncoderByToken(token) == nullptr) return NoConfig();
  if (profile->videoEncoder == token) return {};
  profile->videoEncoder = token;
  call.changedProfiles.push_back(profile->token);
  return {};
}

bool HasAudio(const CCameraModel& model) {
  return std::any_of(model.profiles.begin(), model.profiles.end(),
                     [](const CSimProfile& p) { return p.audio; });
}

COutcome GetAudioSources(CCall& call) {
  if (HasAudio(call.model))
    Add(Attr(Add(call.out, "trt:AudioSources"), "token", kAudioSourceToken), "tt:Channels", 1);
  return {};
}

COutcome GetAudioEncoderConfigurations(CCall& call) {
  if (HasAudio(call.model)) AddAudioEncoder(call.out, "trt:Configurations");
  return {};
}

void AddMediaUri(CCall& call, const std::string& uri) {
  pugi::xml_node node = Add(call.out, "trt:MediaUri");
  Add(node, "tt:Uri", uri);
  Add(node, "tt:InvalidAfterConnect", "false");
  Add(node, "tt:InvalidAfterReboot", "false");
  Add(node, "tt:Timeout", "PT0S");
}

COutcome GetStreamUri(CCall& call) {
  const CSimProfile* profile = call.model.ProfileByToken(Text(call.in, "ProfileToken"));
  if (profile == nullptr) return NoProfile();
  const std::string protocol = Text(call.in, "StreamSetup/Transport/Protocol");
  if (Text(call.in, "StreamSetup/Stream") != "RTP-Unicast" || (protocol != "RTSP" && protocol != "UDP"))
    return InvalidArgument("ter:InvalidStreamSetup", "Only RTP-Unicast over RTSP or UDP");
  AddMediaUri(call, call.model.StreamUri(*profile));
  return {};
}

COutcome GetSnapshotUri(CCall& call) {
  if (call.model.quirks.noSnapshot) return NotSupported("Snapshots are not supported");
  const CSimProfile* profile = call.model.ProfileByToken(Text(call.in, "ProfileToken"));
  if (profile == nullptr) return NoProfile();
  AddMediaUri(call, call.model.HttpBase() + "/snapshot.jpg?ch=1&profile=" + profile->token);
  return {};
}

COutcome GetServiceCapabilities(CCall& call) {
  pugi::xml_node node =
      Attr(Attr(Add(call.out, "trt:Capabilities"), "SnapshotUri", "true"), "Rotation", "false");
  Attr(Add(node, "trt:ProfileCapabilities"), "MaximumNumberOfProfiles",
       std::to_string(call.model.profiles.size()));
  Attr(Attr(Add(node, "trt:StreamingCapabilities"), "RTPMulticast", "false"), "RTP_RTSP_TCP", "true");
  return {};
}

constexpr COperation kOperations[] = {
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
  static const CService g_service{ns::kMedia, "trt", kOperations};
  return g_service;
}
