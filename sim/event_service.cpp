// The WS-BaseNotification part of the ONVIF event service.
#include "sim/services.h"

#include <cstdlib>

namespace {

constexpr int kDefaultSeconds = 60, kLongestSeconds = 3600;
constexpr size_t kMostSubscriptions = 16;

// "PT60S", "PT1M", "PT1H"; anything else gives the default.
int Seconds(const std::string& duration) {
  if (!duration.starts_with("PT")) return kDefaultSeconds;
  char* unit = nullptr;
  const long number = std::strtol(duration.c_str() + 2, &unit, 10);
  const long factor = *unit == 'H' ? 3600 : *unit == 'M' ? 60 : *unit == 'S' ? 1 : 0;
  const long seconds = number * factor;
  return seconds >= 1 && seconds <= kLongestSeconds ? static_cast<int>(seconds) : kDefaultSeconds;
}

COutcome Subscribe(CCall& call) {
  const std::string consumer = Text(call.in, "ConsumerReference/Address");
  if (!consumer.starts_with("http://"))
    return CFault{400, "Sender", "wsnt:SubscribeCreationFailedFault", nullptr, "No usable consumer reference"};
  auto& subscriptions = call.model.subscriptions;
  const auto now = std::chrono::steady_clock::now();
  std::erase_if(subscriptions, [&](const CSubscription& s) { return s.until <= now; });
  if (subscriptions.size() >= kMostSubscriptions)
    return CFault{500, "Receiver", "wsnt:SubscribeCreationFailedFault", nullptr, "Too many subscriptions"};
  const auto term = std::chrono::seconds(Seconds(Text(call.in, "InitialTerminationTime")));
  const int id = call.model.nextSubscription++;
  subscriptions.push_back({id, consumer, now + term});
  Add(Add(call.out, "wsnt:SubscriptionReference"), "wsa5:Address",
      call.model.HttpBase() + "/onvif/subscription/" + std::to_string(id));
  Add(call.out, "wsnt:CurrentTime", UtcText(call.model.Clock()));
  Add(call.out, "wsnt:TerminationTime", UtcText(call.model.Clock() + term));
  return {};
}

COutcome GetServiceCapabilities(CCall& call) {
  pugi::xml_node node = Add(call.out, "tev:Capabilities");
  Attr(Attr(node, "WSSubscriptionPolicySupport", "false"), "MaxNotificationProducers", "16");
  return {};
}

constexpr COperation kOperations[] = {
    {"Subscribe", false, Subscribe},
    {"GetServiceCapabilities", true, GetServiceCapabilities},
};

}  // namespace

const CService& EventService() {
  static const CService g_service{ns::kEvents, "wsnt", kOperations};
  return g_service;
}
