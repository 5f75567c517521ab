// The analytics client's configuration in tests: the dev stage, client
// "acme", person "person-1", under the given analytics session.
//
//   auto client = KivBFFAnalytics::make(analyticsConfiguration("session-A"), keychain);
#pragma once

#include <string>

#include "telemetry/bff_analytics.hpp"

namespace kiv::testing {

inline KivBFFAnalytics::Configuration analyticsConfiguration(std::string sessionId) {
  return {.sessionId = std::move(sessionId),
          .stage = KivAnalyticsStage::dev,
          .clientId = "acme",
          .mobileToken = "token-1",
          .personId = "person-1",
          .sdk = {"KivFaceLivenessLite", "3.2.1"}};
}

}  // namespace kiv::testing
