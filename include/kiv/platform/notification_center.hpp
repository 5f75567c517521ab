// Application-wide notifications by name, delivered on the main queue. The
// host posts kApplicationDidEnterBackgroundNotification when its application
// goes to the background; the SDK then drops a session fetched ahead of time.
//
//   auto token = kiv::platform()->notifications->addObserver(
//       kiv::kApplicationDidEnterBackgroundNotification, [weak] { /* on the main queue */ });
//   kiv::platform()->notifications->post(kiv::kApplicationDidEnterBackgroundNotification);   // from any thread
//   kiv::platform()->notifications->removeObserver(token);
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace kiv {

inline constexpr std::string_view kApplicationDidEnterBackgroundNotification =
    "UIApplicationDidEnterBackgroundNotification";

class NotificationCenter {
 public:
  // Names one registration; never 0.
  using Token = std::uint64_t;
  using Handler = std::function<void()>;

  virtual ~NotificationCenter() = default;

  // Registers `handler` for notifications named `name`. Safe from any thread.
  virtual Token addObserver(std::string name, Handler handler) = 0;
  // Unregisters; a delivery already queued for the token is dropped too.
  // Harmless for an unknown token. Safe from any thread.
  virtual void removeObserver(Token token) = 0;
  // Queues one call on the main queue for every observer of `name`
  // registered now; never runs a handler inline. Safe from any thread.
  virtual void post(std::string_view name) = 0;
};

// The notification centre of the Linux bundle (and of tests): pure
// bookkeeping over the installed main queue.
std::shared_ptr<NotificationCenter> makeMainQueueNotificationCenter();

}  // namespace kiv

#pragma GCC visibility pop
