// The start_sdk event (user_interaction) that every start of a run sends:
// what the host chose for the run, whether it found a session fetched ahead
// of time, and the device's context.
//
//   platform()->taskPool->post([client, facts] { trackStartEvent(client, facts); });
#pragma once

#include <memory>
#include <string>

#include "base/json.hpp"
#include "kiv/environment.hpp"

namespace kiv {

class KivBFFAnalytics;

struct StartEventFacts {
  std::string sessionId;  // the analytics session the run reports under
  KivEnvironment environment = KivEnvironment::prod;
  bool loading = false;      // the SDK shows its own loading indicator
  bool usedPrewarm = false;  // the run gets a session fetched ahead of time
};

// The event's properties, in the order the backend lists them.
Json startEventProperties(const StartEventFacts& facts, bool firstOpen);

// Marks the installation's first start (the user-defaults key "install_guid"
// takes the session id when it holds nothing; firstOpen is true exactly
// then), then tracks the event through `client` when there is one. Reads the
// device, so it belongs on a background task.
void trackStartEvent(const std::shared_ptr<KivBFFAnalytics>& client, const StartEventFacts& facts);

}  // namespace kiv
