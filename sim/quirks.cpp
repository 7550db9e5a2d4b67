#include "sim/quirks.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <sstream>
#include <variant>
#include <vector>

namespace {

using Field = std::variant<bool CQuirks::*, int CQuirks::*, std::string CQuirks::*>;

struct CQuirkDef {
  const char* name;
  Field field;
  std::vector<std::string> choices;  // of a text switch
  const char* help;
};

const std::vector<CQuirkDef>& Table() {
  static const std::vector<CQuirkDef> g_table = {
      {"clock_offset",
       &CQuirks::clockOffset,
       {},
       "seconds that the camera's clock is ahead (negative: behind)"},
      {"clock_tolerance", &CQuirks::clockTolerance, {}, "seconds that a login's creation time may be off"},
      {"reject_replay", &CQuirks::rejectReplay, {}, "a login with a nonce and time seen before is refused"},
      {"auth_device_info", &CQuirks::authDeviceInfo, {}, "GetDeviceInformation demands a login"},
      {"bare_401", &CQuirks::bare401, {}, "a missing login is answered by 401 without a body"},
      {"no_snapshot", &CQuirks::noSnapshot, {}, "no snapshots"},
      {"no_get_services", &CQuirks::noGetServices, {}, "GetServices is not implemented"},
      {"no_get_capabilities", &CQuirks::noGetCapabilities, {}, "GetCapabilities is not implemented"},
      {"discovery_silent", &CQuirks::discoverySilent, {}, "probes are not answered"},
      {"xaddrs", &CQuirks::xaddrs, {"one", "two", "https"}, "which addresses a probe match lists"},
      {"http",
       &CQuirks::http,
       {"normal", "chunked", "until_close", "short_length", "long_length", "silence", "drop", "drop_half",
        "trickle"},
       "how answers are sent (trickle: one byte a second)"},
      {"http_keep_open", &CQuirks::httpKeepOpen, {}, "the connection stays open even when asked to close"},
      {"http_continue", &CQuirks::httpContinue, {}, "100 Continue comes first"},
      {"http_segment_ms",
       &CQuirks::httpSegmentMs,
       {},
       "body in several segments, so many ms apart (0: at once)"},
      {"xml_empty", &CQuirks::xmlEmpty, {"pair", "short", "spaced"}, "empty elements: <x></x>, <x/> or <x />"},
      {"encoder_set",
       &CQuirks::encoderSet,
       {"exact", "round", "refuse", "ignore"},
       "what becomes of set encoder values (round: bit rate to 256, quality and GOV length to 10, frame rate "
       "to 5, "
       "High to Main)"},
      {"ptz_space", &CQuirks::ptzSpace, {"continuous", "fov"}, "default relative move space"},
      {"notify",
       &CQuirks::notify,
       {"whole", "pieces", "no_length"},
       "how notifications are posted (no_length: the end of the connection ends them)"},
      {"parameter_sets_in_band", &CQuirks::parameterSetsInBand, {}, "SPS and PPS repeat before each key frame"},
      {"rtcp_interval_ms", &CQuirks::rtcpIntervalMs, {}, "RTCP-Interval header in the PLAY reply (0: none)"},
      {"sip_invite",
       &CQuirks::sipInvite,
       {"answer", "no_provisional", "immediate", "no_answer", "silent", "busy", "decline", "error"},
       "how a call is answered (no_answer: it rings for ever; silent: not at all)"},
      {"sip_answer_ms", &CQuirks::sipAnswerMs, {}, "from a call's INVITE to its 200 OK"},
      {"sip_options_silent", &CQuirks::sipOptionsSilent, {}, "OPTIONS is not answered"},
      {"sip_bye_silent", &CQuirks::sipByeSilent, {}, "BYE ends the call but is not answered"},
      {"sip_lose_acks", &CQuirks::sipLoseAcks, {}, "so many ACKs of a call's 200 OK are overlooked"},
      {"sip_info_ms", &CQuirks::sipInfoMs, {}, "between INFO requests in a call (0: none)"},
      {"sip_hang_up_ms", &CQuirks::sipHangUpMs, {}, "the camera ends a call after this time (0: never)"},
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
  if (std::holds_alternative<bool CQuirks::*>(def.field)) return "on|off";
  if (std::holds_alternative<int CQuirks::*>(def.field)) return "NUMBER";
  return Join(def.choices);
}

bool Assign(CQuirks& quirks, const CQuirkDef& def, const std::string& value) {
  if (const auto* flag = std::get_if<bool CQuirks::*>(&def.field)) return ParseBool(value, &(quirks.*(*flag)));
  if (const auto* number = std::get_if<int CQuirks::*>(&def.field))
    return ParseInt(value, &(quirks.*(*number)));
  if (std::find(def.choices.begin(), def.choices.end(), value) == def.choices.end()) return false;
  quirks.*std::get<std::string CQuirks::*>(def.field) = value;
  return true;
}

}  // namespace

bool SetQuirk(CQuirks& quirks, const std::string& name, const std::string& value, std::string* error) {
  for (const CQuirkDef& def : Table()) {
    if (name != def.name) continue;
    if (Assign(quirks, def, value)) return true;
    *error = "quirk ";
    error->append(name).append(" takes ").append(Values(def)).append(", not '").append(value).append("'");
    return false;
  }
  *error = "no quirk is called '" + name + "'";
  return false;
}

nlohmann::json QuirksToJson(const CQuirks& quirks) {
  nlohmann::json json;
  for (const CQuirkDef& def : Table())
    std::visit([&](auto member) { json[def.name] = quirks.*member; }, def.field);
  return json;
}

std::string QuirkHelp() {
  std::ostringstream out;
  for (const CQuirkDef& def : Table()) out << def.name << '=' << Values(def) << "  " << def.help << '\n';
  return out.str();
}
