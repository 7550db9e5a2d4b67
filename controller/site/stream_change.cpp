#include "controller/site/stream_change.h"

#include "controller/site/config_report.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

using nlohmann::json;

namespace {

constexpr size_t MOST_STREAMS = 3;  // of a list
constexpr char AS_CAMERA_HAS_IT[] = "default";

template <class Entry>
const Entry* ByToken(const std::vector<Entry>& entries, const std::string& token) {
  const auto found = std::ranges::find(entries, token, &Entry::Token);
  return found == entries.end() ? nullptr : &*found;
}

template <class Entry>
std::string Tokens(const std::vector<Entry>& entries) {
  std::string text;
  for (const Entry& entry : entries) text += (text.empty() ? "" : ", ") + entry.Token;
  return text.empty() ? "none" : text;
}

// One entry under change; the first objection stays.
class CChange {
 public:
  CChange(const CCameraConfig& config, const json& changes, CUserStream* stream)
      : m_Config(config), m_Changes(changes), m_Stream(*stream) {}

  bool Apply(std::string* error) {
    Profile();
    Encoder();
    Transport();
    Settings();
    if (const std::string* name = Text("name")) m_Stream.Name = *name;
    if (m_Stream.Name.empty()) m_Stream.Name = m_Stream.ProfileToken;
    *error = m_Error;
    return m_Error.empty();
  }

 private:
  void Refuse(const std::string& why) {
    if (m_Error.empty()) m_Error = why;
  }

  const std::string* Text(const char* key) const {
    const auto found = m_Changes.find(key);
    return found != m_Changes.end() && found->is_string() ? found->get_ptr<const std::string*>() : nullptr;
  }

  void Profile() {
    const std::string* wanted = Text("profile");
    if (wanted == nullptr && !m_Stream.ProfileToken.empty()) return;
    const CConfigProfile* profile = wanted != nullptr ? ByToken(m_Config.Profiles, *wanted) : nullptr;
    if (profile == nullptr)
      return Refuse((wanted == nullptr ? "a new stream needs a profile" : "no profile '" + *wanted + "'") +
                    std::string("; there are ") + Tokens(m_Config.Profiles));
    m_Stream.ProfileToken = profile->Token;
    if (m_Stream.EncoderToken == DEFAULT_ENCODER) m_Stream.Settings = profile->Settings;
  }

  void Encoder() {
    const std::string* wanted = Text("encoder");
    if (wanted != nullptr && *wanted == AS_CAMERA_HAS_IT) {
      m_Stream.EncoderToken = DEFAULT_ENCODER;
      if (const CConfigProfile* profile = ByToken(m_Config.Profiles, m_Stream.ProfileToken))
        m_Stream.Settings = profile->Settings;
    } else if (wanted != nullptr && *wanted != m_Stream.EncoderToken) {
      Take(ByToken(m_Config.Encoders, *wanted), "no encoder '" + *wanted + "'");
    } else if (m_Stream.EncoderToken == DEFAULT_ENCODER && ChangesSettings()) {
      Take(RunningEncoder(), "it is not clear which encoder runs profile '" + m_Stream.ProfileToken + "'");
    }
  }

  void Take(const CConfigEncoder* encoder, const std::string& objection) {
    if (encoder == nullptr) return Refuse(objection + "; name one of " + Tokens(m_Config.Encoders));
    m_Stream.EncoderToken = encoder->Token;
    m_Stream.Settings = encoder->Settings;
  }

  // The record does not say which encoder a profile uses; it is the only one with the profile's settings.
  const CConfigEncoder* RunningEncoder() const {
    const CConfigProfile* profile = ByToken(m_Config.Profiles, m_Stream.ProfileToken);
    const CConfigEncoder* found = nullptr;
    for (const CConfigEncoder& encoder : m_Config.Encoders) {
      if (profile == nullptr || encoder.Settings.Encoding != profile->Settings.Encoding ||
          encoder.Settings.Size != profile->Settings.Size)
        continue;
      if (found != nullptr) return nullptr;
      found = &encoder;
    }
    return found;
  }

  bool ChangesSettings() const {
    return std::ranges::any_of(m_Changes.items(), [](const auto& item) {
      return item.key() == "size" || item.key() == "encoding" || item.key() == "h264_profile" ||
             std::ranges::any_of(NUMBERS, [&](const Number& number) { return item.key() == number.Key; });
    });
  }

  void Transport() {
    const std::string* wanted = Text("transport");
    if (wanted == nullptr) return;
    for (const int transport : {RTP_TRANSPORT_TCP, RTP_TRANSPORT_UDP})
      if (*wanted == TransportName(transport)) {
        m_Stream.Transport = transport;
        return;
      }
    Refuse("the transport is tcp or udp");
  }

  void Settings() {
    const CConfigEncoder* encoder = ByToken(m_Config.Encoders, m_Stream.EncoderToken);
    if (encoder == nullptr || !m_Error.empty()) return;
    CStreamSettings& s = m_Stream.Settings;
    if (const std::string* encoding = Text("encoding")) s.Encoding = *encoding;
    if (s.Encoding != "JPEG" && s.Encoding != "H264") return Refuse("the encoding is JPEG or H264");
    const CConfigOptions& offered = s.Encoding == "H264" ? encoder->H264 : encoder->JPEG;
    Size(offered);
    for (const Number& number : NUMBERS) Take(number, number.Offered(*encoder, offered));
    H264Profile();
  }

  void Size(const CConfigOptions& offered) {
    const std::string* wanted = Text("size");
    GXT_RESOLUTION size;
    char rest = 0;
    if (wanted == nullptr) return;
    if (std::sscanf(wanted->c_str(), "%5dx%5d%c", &size.Width, &size.Height, &rest) != 2)
      return Refuse("a size is given as 640x480, not '" + *wanted + "'");
    if (!offered.Sizes.empty() && std::ranges::find(offered.Sizes, size) == offered.Sizes.end()) {
      std::string sizes;
      for (const GXT_RESOLUTION& one : offered.Sizes) sizes += " " + SizeText(one);
      return Refuse("encoder " + m_Stream.EncoderToken + " offers no " + *wanted + "; it offers" + sizes);
    }
    m_Stream.Settings.Size = size;
  }

  struct Number {
    const char* Key;
    int CStreamSettings::*Field;
    GXT_RANGE (*Offered)(const CConfigEncoder& encoder, const CConfigOptions& options);
  };
  static constexpr Number NUMBERS[] = {
      {"quality", &CStreamSettings::Quality, [](const auto& e, const auto&) { return e.Quality; }},
      {"frame_rate", &CStreamSettings::FrameRate, [](const auto&, const auto& o) { return o.FrameRate; }},
      {"bitrate", &CStreamSettings::Bitrate, [](const auto&, const auto& o) { return o.Bitrate; }},
      {"gov_length", &CStreamSettings::GovLength, [](const auto&, const auto& o) { return o.GovLength; }},
      {"interval", &CStreamSettings::Interval, [](const auto&, const auto& o) { return o.Interval; }}};

  // Both ends are 0 where a camera announces nothing; of the bit rate the driver then gives its own range,
  // which says nothing of the camera: that one is the judge.
  static bool Announced(const Number& number, const GXT_RANGE& offered) {
    if (number.Field == &CStreamSettings::Bitrate && offered == CConfigOptions::BITRATE_UNKNOWN) return false;
    return offered.Max > offered.Min;
  }

  void Take(const Number& number, const GXT_RANGE& offered) {
    const auto wanted = m_Changes.find(number.Key);
    if (wanted == m_Changes.end() || !wanted->is_number_integer()) return;
    const int value = static_cast<int>(std::clamp<int64_t>(wanted->get<int64_t>(), -1, 1000000000));
    if (value < 0) return Refuse(std::string(number.Key) + " " + wanted->dump() + ": it is 0 or more");
    if (Announced(number, offered) && (value < offered.Min || value > offered.Max))
      return Refuse(std::string(number.Key) + " " + wanted->dump() + ": encoder " + m_Stream.EncoderToken +
                    " takes " + std::to_string(offered.Min) + " to " + std::to_string(offered.Max));
    m_Stream.Settings.*number.Field = value;
  }

  void H264Profile() {
    const std::string* wanted = Text("h264_profile");
    if (wanted == nullptr) return;
    for (int code = 0; code < 4; ++code)
      if (*wanted == H264ProfileName(code)) {
        m_Stream.Settings.H264Profile = code;
        return;
      }
    Refuse("an H.264 profile is Baseline, Main, Extended or High");
  }

  const CCameraConfig& m_Config;
  const json& m_Changes;
  CUserStream& m_Stream;
  std::string m_Error;
};

// Two entries that want different things of one encoder or profile would change it to and fro.
bool Agree(const CUserStream& a, const CUserStream& b) {
  if (a.EncoderToken == DEFAULT_ENCODER || b.EncoderToken == DEFAULT_ENCODER) return true;
  if (a.EncoderToken == b.EncoderToken) return a.Settings == b.Settings;
  return a.ProfileToken != b.ProfileToken;
}

bool CheckAgreement(const CCameraConfig& config, RTSP_PROFILE_TYPE list, size_t number, std::string* error) {
  const CUserStream& changed = config.UserStreams(list).Streams[number - 1];
  for (const RTSP_PROFILE_TYPE other : {RTSP_PROFILE_H264, RTSP_PROFILE_JPEG}) {
    size_t n = 0;
    for (const CUserStream& stream : config.UserStreams(other).Streams) {
      if ((++n == number && other == list) || Agree(changed, stream)) continue;
      *error = std::string("stream ") + ListName(other) + " " + std::to_string(n) +
               " wants something else of encoder " + stream.EncoderToken + " and profile " +
               stream.ProfileToken;
      return false;
    }
  }
  return true;
}

}  // namespace

bool ChangeStream(CCameraConfig* config, RTSP_PROFILE_TYPE list, size_t number, const json& changes,
                  std::string* error) {
  CCameraConfig changed = *config;
  std::vector<CUserStream>& streams = changed.UserStreams(list).Streams;
  if (number < 1 || number > std::min(streams.size() + 1, MOST_STREAMS)) {
    *error = std::string("there is no stream ") + ListName(list) + " " + std::to_string(number);
    return false;
  }
  if (number > streams.size()) streams.push_back({"", "", DEFAULT_ENCODER, RTP_TRANSPORT_TCP, {}});
  if (!CChange(*config, changes, &streams[number - 1]).Apply(error) ||
      !CheckAgreement(changed, list, number, error))
    return false;
  *config = std::move(changed);
  return true;
}

bool RemoveStream(CCameraConfig* config, RTSP_PROFILE_TYPE list, size_t number, std::string* error) {
  std::vector<CUserStream>& streams = config->UserStreams(list).Streams;
  if (number < 1 || number > streams.size()) {
    *error = std::string("there is no stream ") + ListName(list) + " " + std::to_string(number);
    return false;
  }
  streams.erase(streams.begin() + static_cast<long>(number) - 1);
  return true;
}
