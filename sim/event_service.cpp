// The WS-BaseNotification part of the ONVIF event service.
#include "sim/services.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int DEFAULT_SECONDS = 60, LONGEST_SECONDS = 3600;
constexpr size_t MOST_SUBSCRIPTIONS = 16;
constexpr char SUBSCRIPTION_PATH[] = "/onvif/subscription/";

// "PT60S", "PT1M", "PT1H"; anything else gives the default.
int Seconds(const std::string& duration) {
  if (!duration.starts_with("PT")) return DEFAULT_SECONDS;
  char* unit = nullptr;
  const long number = std::strtol(duration.c_str() + 2, &unit, 10);
  const long factor = *unit == 'H' ? 3600 : *unit == 'M' ? 60 : *unit == 'S' ? 1 : 0;
  const long seconds = number * factor;
  return seconds >= 1 && seconds <= LONGEST_SECONDS ? static_cast<int>(seconds) : DEFAULT_SECONDS;
}

void Extend(CSubscription& subscription, const std::string& duration) {
  subscription.Until = std::chrono::steady_clock::now() + std::chrono::seconds(Seconds(duration));
}

void AddTerms(CSOAPCall& call, const CSubscription& subscription) {
  const auto left = subscription.Until - std::chrono::steady_clock::now();
  const auto at = call.Model.Clock();
  Add(call.Out, "wsnt:CurrentTime", UTCText(at));
  Add(call.Out, "wsnt:TerminationTime", UTCText(at + std::chrono::ceil<std::chrono::seconds>(left)));
}

// A subscriber that asks again renews what it has, so it is told each thing once.
COutcome Subscribe(CSOAPCall& call) {
  const std::string consumer = Text(call.In, "ConsumerReference/Address");
  if (!consumer.starts_with("http://"))
    return CFault{400, "Sender", "wsnt:SubscribeCreationFailedFault", nullptr, "No usable consumer reference"};
  auto& subscriptions = call.Model.Subscriptions;
  call.Model.DropLapsed();
  auto found = std::find_if(subscriptions.begin(), subscriptions.end(),
                            [&](const CSubscription& s) { return s.Consumer == consumer; });
  if (found == subscriptions.end()) {
    if (subscriptions.size() >= MOST_SUBSCRIPTIONS)
      return CFault{500, "Receiver", "wsnt:SubscribeCreationFailedFault", nullptr, "Too many subscriptions"};
    found = subscriptions.insert(found, {call.Model.NextSubscription++, consumer, {}});
  }
  Extend(*found, Text(call.In, "InitialTerminationTime"));
  Add(Add(call.Out, "wsnt:SubscriptionReference"), "wsa5:Address",
      call.Model.HTTPBase() + SUBSCRIPTION_PATH + std::to_string(found->Id));
  AddTerms(call, *found);
  return {};
}

// The subscription that the request was posted to; the end when it has lapsed.
std::vector<CSubscription>::iterator Addressed(CSOAPCall& call) {
  auto& subscriptions = call.Model.Subscriptions;
  call.Model.DropLapsed();
  return std::find_if(subscriptions.begin(), subscriptions.end(), [&](const CSubscription& s) {
    return call.Path == SUBSCRIPTION_PATH + std::to_string(s.Id);
  });
}

CFault NoSubscription() {
  return {400, "Sender", "wsnt:ResourceUnknownFault", nullptr, "No such subscription"};
}

COutcome Renew(CSOAPCall& call) {
  const auto found = Addressed(call);
  if (found == call.Model.Subscriptions.end()) return NoSubscription();
  Extend(*found, Text(call.In, "TerminationTime"));
  AddTerms(call, *found);
  return {};
}

COutcome Unsubscribe(CSOAPCall& call) {
  const auto found = Addressed(call);
  if (found == call.Model.Subscriptions.end()) return NoSubscription();
  call.Model.Subscriptions.erase(found);
  return {};
}

COutcome GetServiceCapabilities(CSOAPCall& call) {
  pugi::xml_node node = Add(call.Out, "tev:Capabilities");
  Attr(Attr(node, "WSSubscriptionPolicySupport", "false"), "MaxNotificationProducers", "16");
  return {};
}

constexpr CSOAPOperation OPERATIONS[] = {
    {"Subscribe", false, Subscribe},
    {"Renew", false, Renew},
    {"Unsubscribe", false, Unsubscribe},
    {"GetServiceCapabilities", true, GetServiceCapabilities},
};

}  // namespace

const CService& EventService() {
  static const CService g_service{ns::EVENTS, "wsnt", OPERATIONS};
  return g_service;
}
