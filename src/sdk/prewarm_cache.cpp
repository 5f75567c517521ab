#include "sdk/prewarm_cache.hpp"

#include <utility>

#include "base/state_manager.hpp"
#include "kiv/backend.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/dispatch/bind_to_main.hpp"
#include "platform/dispatch/main_affinity.hpp"
#include "service/api_request.hpp"
#include "service/key_chain_manager.hpp"

namespace kiv {
namespace {

bool isRunning() { return KivSDKStateManager::shared().isRunning(); }

// The fetch reads the credentials from the secure store; false when a save
// failed (a failed first save skips the second).
bool persistCredentials(const PrewarmCache::Identity& identity) {
  const auto keychain = KivKeyChainManager::shared();
  try {
    keychain->save(kKivSDKService, kMobileTokenKey, asBytes(identity.mobileToken), true);
    keychain->save(kKivSDKService, kPersonIdKey, asBytes(identity.personId), true);
  } catch (const KeychainError&) {
    return false;
  }
  return true;
}

}  // namespace

std::shared_ptr<PrewarmCache> PrewarmCache::make() { return std::shared_ptr<PrewarmCache>(new PrewarmCache()); }

PrewarmCache::~PrewarmCache() {
  // The handler holds the cache weakly; unregistering just frees it now.
  if (backgroundObserver_) platform()->notifications->removeObserver(*backgroundObserver_);
}

void PrewarmCache::setIdentity(Identity identity) {
  KIV_ASSERT_MAIN_THREAD();
  current_ = std::move(identity);
  if (kept_ && !matches(kept_->identity)) {
    removeBackgroundObserver();
    discard();
  }
}

void PrewarmCache::prewarm(const std::function<std::shared_ptr<KivServiceProtocol>()>& prepare) {
  KIV_ASSERT_MAIN_THREAD();
  if (!current_ || inFlight_) return;
  if (kept_) {
    // Age only: a session of other credentials went at setIdentity().
    if (isFresh(kept_->fetchedAt)) return;
    kept_.reset();
  }
  if (isRunning()) return;

  const Identity identity = *current_;
  inFlight_ = identity;
  abandoned_ = false;
  const auto service = prepare();
  if (!persistCredentials(identity)) {
    inFlight_.reset();
    discard();
    return;
  }
  installBackgroundObserver();
  service->fetchSession(
      FetchSessionRequest::forPerson(backendRootURL(identity.environment), identity.personId),
      bindToMain(weak_from_this(), [identity](PrewarmCache& self, const APIResult<SessionResponse>& result) {
        self.complete(result, identity);
      }));
}

void PrewarmCache::complete(const APIResult<SessionResponse>& result, const Identity& fetchedFor) {
  KIV_ASSERT_MAIN_THREAD();
  inFlight_.reset();
  PrewarmState::Completion waiter = std::exchange(waiter_, nullptr);

  std::optional<SessionResponse> response;
  if (result && !abandoned_ && matches(fetchedFor)) response = *result;

  if (!waiter) {
    if (response && !isRunning()) {
      kept_ = Kept{std::move(*response), fetchedFor, platform()->clock->now()};
    } else {
      removeBackgroundObserver();
      discard();
    }
    return;
  }
  removeBackgroundObserver();
  if (!response) discard();
  waiter(std::move(response));
}

bool PrewarmCache::isFresh(TimePoint fetchedAt) const {
  const double age = secondsBetween(fetchedAt, platform()->clock->now());
  return age >= 0 && age < kFreshnessSeconds;
}

bool PrewarmCache::isUsable(const Kept& kept) const { return matches(kept.identity) && isFresh(kept.fetchedAt); }

bool PrewarmCache::inFlightIsUsable() const { return inFlight_ && !abandoned_ && matches(*inFlight_); }

bool PrewarmCache::hasUsable() const { return (kept_ && isUsable(*kept_)) || inFlightIsUsable(); }

PrewarmState PrewarmCache::take() {
  KIV_ASSERT_MAIN_THREAD();
  // Taking leaves the stored credentials: the run writes its own anyway.
  if (kept_) {
    const Kept taken = *std::exchange(kept_, std::nullopt);
    removeBackgroundObserver();
    if (isUsable(taken)) return PrewarmState::ready{taken.response};
  }
  if (inFlightIsUsable()) {
    return PrewarmState::pending{[weak = weak_from_this()](PrewarmState::Completion waiter) {
      if (auto self = weak.lock()) {
        self->registerWaiter(std::move(waiter));
      } else {
        waiter(std::nullopt);
      }
    }};
  }
  return PrewarmState::none{};
}

void PrewarmCache::registerWaiter(PrewarmState::Completion waiter) {
  if (!inFlight_) {
    waiter(std::nullopt);
    return;
  }
  waiter_ = std::move(waiter);
}

void PrewarmCache::installBackgroundObserver() {
  if (backgroundObserver_) return;
  backgroundObserver_ = platform()->notifications->addObserver(std::string(kApplicationDidEnterBackgroundNotification),
                                                               [weak = weak_from_this()] {
                                                                 if (auto self = weak.lock()) self->onBackground();
                                                               });
}

void PrewarmCache::onBackground() {
  // The fetch under way is not cancelled: its completion finds the flag and
  // keeps nothing.
  abandoned_ = inFlight_.has_value();
  removeBackgroundObserver();
  discard();
}

void PrewarmCache::removeBackgroundObserver() {
  if (!backgroundObserver_) return;
  platform()->notifications->removeObserver(*std::exchange(backgroundObserver_, std::nullopt));
}

void PrewarmCache::discard() {
  kept_.reset();
  // A running attempt reads these entries; it deletes them itself at its end.
  if (isRunning()) return;
  const auto keychain = KivKeyChainManager::shared();
  keychain->deleteItem(kMobileTokenKey);
  keychain->deleteItem(kPersonIdKey);
}

}  // namespace kiv
