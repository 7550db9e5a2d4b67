#include "sim/quirks.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <sstream>
#include <variant>
#include <vector>

namespace {

using CField = std::variant<bool CQuirks::*, int CQuirks::*, std::string CQuirks::*>;

struct CQuirkDef {
  const char* Name;
  CField Field;
  std::vector<std::string> Choices;  // of a text switch
  const char* Help;
};

const std::vector<CQuirkDef>& Table() {
  static const std::vector<CQuirkDef> g_table = {
      {"clock_offset",
       &CQuirks::ClockOffset,
       {},
       "seconds that the camera's clock is ahead (negative: behind)"},
      {"clock_tolerance", &CQuirks::ClockTolerance, {}, "seconds that a login's creation time may be off"},
      {"reject_replay", &CQuirks::RejectReplay, {}, "a login with a nonce and time seen before is refused"},
      {"auth_device_info", &CQuirks::AuthDeviceInfo, {}, "GetDeviceInformation demands a login"},
      {"bare_401", &CQuirks::Bare401, {}, "a missing login is answered by 401 without a body"},
      {"no_snapshot", &CQuirks::NoSnapshot, {}, "no snapshots"},
      {"no_get_services", &CQuirks::NoGetServices, {}, "GetServices is not implemented"},
      {"no_get_capabilities", &CQuirks::NoGetCapabilities, {}, "GetCapabilities is not implemented"},
      {"discovery_silent", &CQuirks::DiscoverySilent, {}, "probes are not answered"},
      {"xaddrs", &CQuirks::XAddrs, {"one", "two", "https"}, "which addresses a probe match lists"},
      {"http",
       &CQuirks::HTTP,
       {"normal", "chunked", "until_close", "short_length", "long_length", "silence", "drop", "drop_half",
        "trickle"},
       "how answers are sent (trickle: one byte a second)"},
      {"http_keep_open", &CQuirks::HTTPKeepOpen, {}, "the connection stays open even when asked to close"},
      {"http_continue", &CQuirks::HTTPContinue, {}, "100 Continue comes first"},
      {"http_segment_ms",
       &CQuirks::HTTPSegmentMs,
       {},
       "body in several segments, so many ms apart (0: at once)"},
      {"xml_empty", &CQuirks::XMLEmpty, {"pair", "short", "spaced"}, "empty elements: <x></x>, <x/> or <x />"},
      {"encoder_set",
       &CQuirks::EncoderSet,
       {"exact", "round", "refuse", "ignore"},
       "what becomes of set encoder values (round: bit rate to 256, quality and GOV length to 10, frame rate "
       "to 5, "
       "High to Main)"},
      {"ptz_space", &CQuirks::PTZSpace, {"continuous", "fov"}, "default relative move space"},
      {"notify",
       &CQuirks::Notify,
       {"whole", "pieces", "no_length"},
       "how notifications are posted (no_length: the end of the connection ends them)"},
      {"parameter_sets_in_band", &CQuirks::ParameterSetsInBand, {}, "SPS and PPS repeat before each key frame"},
      {"rtcp_interval_ms", &CQuirks::RTCPIntervalMs, {}, "RTCP-Interval header in the PLAY reply (0: none)"},
      {"sip_invite",
       &CQuirks::SIPInvite,
       {"answer", "no_provisional", "immediate", "no_answer", "silent", "busy", "decline", "error"},
       "how a call is answered (no_answer: it rings for ever; silent: not at all)"},
      {"sip_answer_ms", &CQuirks::SIPAnswerMs, {}, "from a call's INVITE to its 200 OK"},
      {"sip_options_silent", &CQuirks::SIPOptionsSilent, {}, "OPTIONS is not answered"},
      {"sip_bye_silent", &CQuirks::SIPByeSilent, {}, "BYE ends the call but is not answered"},
      {"sip_takeover",
       &CQuirks::SIPTakeover,
       {},
       "a new caller ends the call before; else the speaker is busy"},
      {"sip_lose_acks", &CQuirks::SIPLoseAcks, {}, "so many ACKs of a call's 200 OK are overlooked"},
      {"sip_info_ms", &CQuirks::SIPInfoMs, {}, "between INFO requests in a call (0: none)"},
      {"sip_hang_up_ms", &CQuirks::SIPHangUpMs, {}, "the camera ends a call after this time (0: never)"},
  };
  return g_table;
}

bool ParseBool(const std::string& text, bool* out) {
  for (const char* yes : {"on", "true", "1", "yes"})
    if (text == yes) return *out = true, true;
  for (const char* no : {"off", "false", "0", "no"})
    if (text == no) return *out = false, true;
  return false;
}

bool ParseInt(const std::string& text, int* out) {
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, *out);
  return result.ec == std::errc() && result.ptr == end;
}

std::string Join(const std::vector<std::string>& words) {
  std::string all;
  for (const std::string& word : words) all += (all.empty() ? "" : "|") + word;
  return all;
}

std::string Values(const CQuirkDef& def) {
  if (std::holds_alternative<bool CQuirks::*>(def.Field)) return "on|off";
  if (std::holds_alternative<int CQuirks::*>(def.Field)) return "NUMBER";
  return Join(def.Choices);
}

bool Assign(CQuirks& quirks, const CQuirkDef& def, const std::string& value) {
  if (const auto* flag = std::get_if<bool CQuirks::*>(&def.Field)) return ParseBool(value, &(quirks.*(*flag)));
  if (const auto* number = std::get_if<int CQuirks::*>(&def.Field))
    return ParseInt(value, &(quirks.*(*number)));
  if (std::find(def.Choices.begin(), def.Choices.end(), value) == def.Choices.end()) return false;
  quirks.*std::get<std::string CQuirks::*>(def.Field) = value;
  return true;
}

}  // namespace

bool SetQuirk(CQuirks& quirks, const std::string& name, const std::string& value, std::string* error) {
  for (const CQuirkDef& def : Table()) {
    if (name != def.Name) continue;
    if (Assign(quirks, def, value)) return true;
    *error = "quirk ";
    error->append(name).append(" takes ").append(Values(def)).append(", not '").append(value).append("'");
    return false;
  }
  *error = "no quirk is called '" + name + "'";
  return false;
}

nlohmann::json QuirksToJSON(const CQuirks& quirks) {
  nlohmann::json json;
  for (const CQuirkDef& def : Table())
    std::visit([&](auto member) { json[def.Name] = quirks.*member; }, def.Field);
  return json;
}

std::string QuirkHelp() {
  std::ostringstream out;
  for (const CQuirkDef& def : Table()) out << def.Name << '=' << Values(def) << "  " << def.Help << '\n';
  return out.str();
}
