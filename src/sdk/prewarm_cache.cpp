// The prewarm cache of the facade: see face_liveness_lite_sdk_impl.hpp.

#include "kiv/backend.hpp"
#include "platform/console/debug_line.hpp"
#include "kiv/platform/console.hpp"
#include "kiv/platform/notification_center.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/dispatch/main_affinity.hpp"
#include "base/current_environment.hpp"
#include "sdk/face_liveness_lite_sdk_impl.hpp"
#include "base/state_manager.hpp"
#include "service/api_request.hpp"
#include "service/key_chain_manager.hpp"

namespace kiv {

using Impl = KivFaceLivenessLiteSDK::Impl;

void Impl::prewarm() {
  const auto queue = platform()->mainQueue;
  if (queue->isCurrent()) {
    prewarmOnMain();
    return;
  }
  queue->post([weak = weak_from_this()] {
    if (auto self = weak.lock()) self->prewarmOnMain();
  });
}

void Impl::prewarmOnMain() {
  KIV_ASSERT_MAIN_THREAD();
  if (!configuration) {
    printDebugLine(kPrewarmBeforeSetupLine);
    return;
  }
  if (inFlightPrewarm) return;
  if (prewarmed) {
    if (isFresh(prewarmed->fetchedAt)) return;
    prewarmed.reset();
  }
  if (KivSDKStateManager::shared().isRunning()) return;

  const Configuration configurationAtStart = *configuration;
  inFlightPrewarm = InFlightPrewarm{configurationAtStart.mobileToken, configurationAtStart.personId,
                                    configurationAtStart.environment};
  prewarmAbandoned = false;
  setCurrentEnvironment(configurationAtStart.environment);
  ensureAnalyticsSession();

  const std::string baseURL = backendRootURL(configurationAtStart.environment);
  if (!persistCredentials(configurationAtStart)) {
    inFlightPrewarm.reset();
    discardPrewarm();
    return;
  }
  installBackgroundObserver();

  makeService()->fetchSession(FetchSessionRequest::forPerson(baseURL, configurationAtStart.personId),
                              [weak = weak_from_this(), queue = platform()->mainQueue,
                               configurationAtStart](APIResult<SessionResponse> result) {
                                queue->post([weak, result = std::move(result), configurationAtStart] {
                                  if (auto self = weak.lock()) self->completePrewarm(result, configurationAtStart);
                                });
                              });
}

bool Impl::persistCredentials(const Configuration& configuration) {
  const auto keychain = KivKeyChainManager::shared();
  try {
    keychain->save(kKivSDKService, kMobileTokenKey, asBytes(configuration.mobileToken), true);
    keychain->save(kKivSDKService, kPersonIdKey, asBytes(configuration.personId), true);
  } catch (const KeychainError&) {
    return false;
  }
  return true;
}

void Impl::completePrewarm(const APIResult<SessionResponse>& result, const Configuration& configurationAtStart) {
  KIV_ASSERT_MAIN_THREAD();
  inFlightPrewarm.reset();
  PrewarmWaiter waiter = std::exchange(prewarmWaiter, nullptr);

  std::optional<SessionResponse> response;
  if (result && !prewarmAbandoned &&
      matchesConfiguration(configurationAtStart.mobileToken, configurationAtStart.personId,
                           configurationAtStart.environment)) {
    response = *result;
  }

  if (!waiter) {
    if (response && !KivSDKStateManager::shared().isRunning()) {
      prewarmed = PrewarmedSession{*response, configurationAtStart.mobileToken, configurationAtStart.personId,
                                   configurationAtStart.environment, platform()->clock->now()};
    } else {
      removeBackgroundObserver();
      discardPrewarm();
    }
    return;
  }
  removeBackgroundObserver();
  if (!response) discardPrewarm();
  waiter(std::move(response));
}

bool Impl::isFresh(TimePoint fetchedAt) const {
  const double age = secondsBetween(fetchedAt, platform()->clock->now());
  return age >= 0 && age < kPrewarmFreshnessSeconds;
}

bool Impl::isUsablePrewarm(const PrewarmedSession& session) const {
  return matchesConfiguration(session.mobileToken, session.personId, session.environment) && isFresh(session.fetchedAt);
}

bool Impl::hasUsablePrewarm() const {
  if (prewarmed && isUsablePrewarm(*prewarmed)) return true;
  if (inFlightPrewarm && !prewarmAbandoned) {
    return matchesConfiguration(inFlightPrewarm->mobileToken, inFlightPrewarm->personId, inFlightPrewarm->environment);
  }
  return false;
}

PrewarmState Impl::takePrewarmState() {
  KIV_ASSERT_MAIN_THREAD();
  // Consuming leaves the stored credentials: the run writes its own anyway.
  if (prewarmed) {
    const PrewarmedSession taken = *std::exchange(prewarmed, std::nullopt);
    removeBackgroundObserver();
    if (isUsablePrewarm(taken)) return PrewarmState::ready{taken.response};
  }
  if (inFlightPrewarm && !prewarmAbandoned &&
      matchesConfiguration(inFlightPrewarm->mobileToken, inFlightPrewarm->personId, inFlightPrewarm->environment)) {
    return PrewarmState::pending{[weak = weak_from_this()](PrewarmWaiter callback) {
      if (auto self = weak.lock()) {
        self->registerPrewarmWaiter(std::move(callback));
      } else {
        callback(std::nullopt);
      }
    }};
  }
  return PrewarmState::none{};
}

void Impl::registerPrewarmWaiter(PrewarmWaiter callback) {
  if (!inFlightPrewarm) {
    callback(std::nullopt);
    return;
  }
  prewarmWaiter = std::move(callback);
}

void Impl::installBackgroundObserver() {
  if (backgroundObserver) return;
  backgroundObserver = platform()->notifications->addObserver(
      std::string(kApplicationDidEnterBackgroundNotification), [weak = weak_from_this()] {
        auto self = weak.lock();
        if (!self) return;
        // The fetch under way is not cancelled: its completion finds the
        // flag and keeps nothing.
        self->prewarmAbandoned = self->inFlightPrewarm.has_value();
        self->removeBackgroundObserver();
        self->discardPrewarm();
      });
}

void Impl::removeBackgroundObserver() {
  if (!backgroundObserver) return;
  platform()->notifications->removeObserver(*std::exchange(backgroundObserver, std::nullopt));
}

void Impl::discardPrewarm() {
  prewarmed.reset();
  // A running attempt reads these entries; it deletes them itself at its end.
  if (KivSDKStateManager::shared().isRunning()) return;
  const auto keychain = KivKeyChainManager::shared();
  keychain->deleteItem(kMobileTokenKey);
  keychain->deleteItem(kPersonIdKey);
}

}  // namespace kiv
