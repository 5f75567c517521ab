#include "telemetry/start_event.hpp"

#include <string_view>

#include "kiv/platform/platform.hpp"
#include "kiv/platform/user_defaults.hpp"
#include "telemetry/bff_analytics.hpp"
#include "telemetry/context_collector.hpp"
#include "telemetry/device_info.hpp"

namespace kiv {
namespace {

constexpr std::string_view kInstallGuidKey = "install_guid";

}  // namespace

Json startEventProperties(const StartEventFacts& facts, bool firstOpen) {
  Json properties = Json::object();
  properties["firstOpen"] = firstOpen;
  properties["stage"] = toString(facts.environment);
  properties["loading"] = facts.loading;
  properties["usedPrewarm"] = facts.usedPrewarm;
  properties["deviceIdentified"] = KivContextCollector::hashedAdvertisingIdentifier();
  properties[envelope::kDeviceDataKey] = KivDeviceInfo::deviceData();
  properties["model"] = KivDeviceInfo::modelName(KivDeviceInfo::modelIdentifier());
  properties["osVersion"] = KivContextCollector::systemVersion();
  properties["isJailbroken"] = false;
  properties["appId"] = KivContextCollector::bundleIdentifier().value_or("");
  properties["appName"] = KivDeviceInfo::appName().value_or("");
  properties["appVersion"] = KivDeviceInfo::appVersion();
  return properties;
}

void trackStartEvent(const std::shared_ptr<KivBFFAnalytics>& client, const StartEventFacts& facts) {
  const auto defaults = platform()->defaults;
  const bool firstOpen = !defaults->string(kInstallGuidKey).has_value();
  if (firstOpen) defaults->setString(kInstallGuidKey, facts.sessionId);
  if (!client) return;
  client->track(KivAnalyticsFixedEvent::startSdk, startEventProperties(facts, firstOpen));
}

}  // namespace kiv
