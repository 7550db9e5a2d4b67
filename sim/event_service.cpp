// The WS-BaseNotification part of the ONVIF event service.
#include "sim/services.h"

#include <algorithm>
#include <cstdlib>

namespace {

constexpr int kDefaultSeconds = 60, kLongestSeconds = 3600;
constexpr size_t kMostSubscriptions = 16;
constexpr char kSubscriptionPath[] = "/onvif/subscription/";

// "PT60S", "PT1M", "PT1H"; anything else gives the default.
int Seconds(const std::string& duration) {
  if (!duration.starts_with("PT")) return kDefaultSeconds;
  char* unit = nullptr;
  const long number = std::strtol(duration.c_str() + 2, &unit, 10);
  const long factor = *unit == 'H' ? 3600 : *unit == 'M' ? 60 : *unit == 'S' ? 1 : 0;
  const long seconds = number * factor;
  return seconds >= 1 && seconds <= kLongestSeconds ? static_cast<int>(seconds) : kDefaultSeconds;
}

void Extend(CSubscription& subscription, const std::string& duration) {
  subscription.until = std::chrono::steady_clock::now() + std::chrono::seconds(Seconds(duration));
}

void AddTerms(CCall& call, const CSubscription& subscription) {
  const auto left = subscription.until - std::chrono::steady_clock::now();
  const auto at = call.model.Clock();
  Add(call.out, "wsnt:CurrentTime", UtcText(at));
  Add(call.out, "wsnt:TerminationTime", UtcText(at + std::chrono::ceil<std::chrono::seconds>(left)));
}

// A subscriber that asks again renews what it has, so it is told each thing once.
COutcome Subscribe(CCall& call) {
  const std::string consumer = Text(call.in, "ConsumerReference/Address");
  if (!consumer.starts_with("http://"))
    return CFault{400, "Sender", "wsnt:SubscribeCreationFailedFault", nullptr, "No usable consumer reference"};
  auto& subscriptions = call.model.subscriptions;
  call.model.DropLapsed();
  auto found = std::find_if(subscriptions.begin(), subscriptions.end(),
                            [&](const CSubscription& s) { return s.consumer == consumer; });
  if (found == subscriptions.end()) {
    if (subscriptions.size() >= kMostSubscriptions)
      return CFault{500, "Receiver", "wsnt:SubscribeCreationFailedFault", nullptr, "Too many subscriptions"};
    found = subscriptions.insert(found, {call.model.nextSubscription++, consumer, {}});
  }
  Extend(*found, Text(call.in, "InitialTerminationTime"));
  Add(Add(call.out, "wsnt:SubscriptionReference"), "wsa5:Address",
      call.model.HttpBase() + kSubscriptionPath + std::to_string(found->id));
  AddTerms(call, *found);
  return {};
}

// The subscription that the request was posted to; the end when it has lapsed.
std::vector<CSubscription>::iterator Addressed(CCall& call) {
  auto& subscriptions = call.model.subscriptions;
  call.model.DropLapsed();
  return std::find_if(subscriptions.begin(), subscriptions.end(), [&](const CSubscription& s) {
    return call.path == kSubscriptionPath + std::to_string(s.id);
  });
}

CFault NoSubscription() {
  return {400, "Sender", "wsnt:ResourceUnknownFault", nullptr, "No such subscription"};
}

COutcome Renew(CCall& call) {
  const auto found = Addressed(call);
  if (found == call.model.subscriptions.end()) return NoSubscription();
  Extend(*found, Text(call.in, "TerminationTime"));
  AddTerms(call, *found);
  return {};
}

COutcome Unsubscribe(CCall& call) {
  const auto found = Addressed(call);
  if (found == call.model.subscriptions.end()) return NoSubscription();
  call.model.subscriptions.erase(found);
  return {};
}

COutcome GetServiceCapabilities(CCall& call) {
  pugi::xml_node node = Add(call.out, "tev:Capabilities");
  Attr(Attr(node, "WSSubscriptionPolicySupport", "false"), "MaxNotificationProducers", "16");
  return {};
}

constexpr COperation kOperations[] = {
    {"Subscribe", false, Subscribe},
    {"Renew", false, Renew},
    {"Unsubscribe", false, Unsubscribe},
    {"GetServiceCapabilities", true, GetServiceCapabilities},
};

}  // namespace

const CService& EventService() {
  static const CService g_service{ns::kEvents, "wsnt", kOperations};
  return g_service;
}
