// A liveness session fetched ahead of time, so that the user does not wait
// for the backend after tapping "start".
//
// The cache keeps the fetched session for 90 seconds for the credentials and
// environment it was fetched for, hands it to the next run that starts with
// them, lets a run that starts while the fetch is under way wait for it, and
// throws everything away when the application goes to the background. While
// a fetch is under way or a session is kept, the credentials sit in the
// secure store (the fetch reads them there); dropping the session deletes
// them unless a run is in progress, which uses them.
//
//   auto cache = PrewarmCache::make();
//   cache->setIdentity({token, personId, KivEnvironment::prod});   // at every setup
//   cache->prewarm([&] { return service; });                        // fetches once
//   ...
//   model->start(cache->take());          // ready, pending or none
//
// Main thread only, no lock: the fetch completion and the background
// notification reach it through the main queue, holding it weakly. Owned by
// shared_ptr; released, it keeps nothing, and a run that subscribes to a
// fetch it started hears none.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "flow/prewarm_state.hpp"
#include "kiv/environment.hpp"
#include "kiv/platform/clock.hpp"
#include "kiv/platform/notification_center.hpp"
#include "service/kiv_service.hpp"

namespace kiv {

class PrewarmCache : public std::enable_shared_from_this<PrewarmCache> {
 public:
  // The credentials and environment a session belongs to.
  struct Identity {
    std::string mobileToken;
    std::string personId;
    KivEnvironment environment;
    friend bool operator==(const Identity&, const Identity&) = default;
  };

  // A kept session is usable while 0 <= age < this, in seconds.
  static constexpr double kFreshnessSeconds = 90.0;

  static std::shared_ptr<PrewarmCache> make();
  ~PrewarmCache();
  PrewarmCache(const PrewarmCache&) = delete;
  PrewarmCache& operator=(const PrewarmCache&) = delete;

  // The identity the host is set up with from now on. A kept session of
  // another identity is dropped (and the stored credentials with it); a fetch
  // under way for another one keeps nothing when it completes.
  void setIdentity(Identity identity);

  // Fetches a session for the current identity unless there is none, a fetch
  // is under way, a fresh session is kept or a run is in progress.
  // `prepare` is called once the fetch is decided, before anything is
  // stored, and gives the service to fetch with.
  void prewarm(const std::function<std::shared_ptr<KivServiceProtocol>()>& prepare);

  // Whether the next run for the current identity gets a session without
  // fetching one itself: a fresh kept one, or the one under way.
  bool hasUsable() const;

  // Hands the prewarm to a run: a fresh kept session as ready (and forgets
  // it), the fetch under way as pending (the run's completion is answered
  // once, with the session or none), otherwise none.
  PrewarmState take();

 private:
  struct Kept {
    SessionResponse response;
    Identity identity;
    TimePoint fetchedAt;
  };

  PrewarmCache() = default;

  bool matches(const Identity& identity) const { return current_ == identity; }
  bool isFresh(TimePoint fetchedAt) const;
  bool isUsable(const Kept& kept) const;
  bool inFlightIsUsable() const;
  void complete(const APIResult<SessionResponse>& result, const Identity& fetchedFor);
  void registerWaiter(PrewarmState::Completion waiter);
  void installBackgroundObserver();
  void removeBackgroundObserver();
  void onBackground();
  // Forgets the kept session and deletes the stored credentials (outside a run).
  void discard();

  std::optional<Identity> current_;
  std::optional<Kept> kept_;
  std::optional<Identity> inFlight_;
  PrewarmState::Completion waiter_;  // empty when none
  bool abandoned_ = false;           // the application went to the background during the fetch
  std::optional<NotificationCenter::Token> backgroundObserver_;
};

}  // namespace kiv
