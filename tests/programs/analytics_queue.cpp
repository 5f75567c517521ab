// A process that leaves analytics events in the offline queue and exits:
//
//   kivfll_analytics_queue <store directory> <backend root URL> <session id> <step>...
//
// It configures the analytics client (stage dev, client "acme", SDK
// "KivFaceLivenessLite") on the Linux store in the directory with the
// network path reported unusable, tracks one sdk_result event per <step>
// with the parameter step=<step>, and prints the queue length. Exit 0 when
// every event ended up queued, 1 otherwise, 2 on bad arguments.
#include <cstdio>
#include <memory>
#include <string>

#include "kiv/backend.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/secure_store.hpp"
#include "platform/path_monitor/fake_path_monitor.hpp"
#include "telemetry/bff_analytics.hpp"

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  auto bundle = kiv::makeLinuxPlatform();
  bundle.secureStore = kiv::makeLinuxSecureStore(std::string(argv[1]));
  bundle.pathMonitor = std::make_shared<kiv::FakePathMonitorFactory>(kiv::NetworkPathStatus::unsatisfied);
  kiv::installPlatform(std::move(bundle));
  if (!kiv::setBackendRootURL(kiv::KivEnvironment::dev, argv[2])) return 2;

  kiv::KivBFFAnalytics::configure({.sessionId = argv[3],
                                   .stage = kiv::KivAnalyticsStage::dev,
                                   .clientId = "acme",
                                   .mobileToken = "token-1",
                                   .sdk = {"KivFaceLivenessLite", "3.2.1"}});
  const auto analytics = kiv::KivBFFAnalytics::shared();
  for (int i = 4; i < argc; ++i) {
    analytics
        ->track(kiv::KivAnalyticsEvent::standard(kiv::KivAnalyticsEventName::sdkResult,
                                                 kiv::KivAnalyticsEventType::sdkStep),
                kiv::KivBFFAnalytics::TextParams{{"step", argv[i]}})
        .wait();
  }
  const std::size_t queued = analytics->queuedEvents().size();
  std::printf("queued %zu\n", queued);
  return queued == static_cast<std::size_t>(argc - 4) ? 0 : 1;
}
