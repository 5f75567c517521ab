// The dismissal gate: holds the capture vendor's dismissal of its screen back
// until the session flow has delivered the result to the host, so the host
// learns the outcome while the capture screen is still up. A dismissal waits
// at most `maxHold` seconds.
//
//   auto gate = KivLiteDismissalGate::make(3.0);
//   gate->hold([controller] { controller->dismiss(false, {}); });   // the vendor asks to dismiss
//   ...                                                              // the result reaches the host
//   gate->markResultDelivered();                                     // the held dismissal runs now
//
// Each held dismissal runs exactly once, at the first of three triggers: the
// result delivered, its hold elapsed, the gate destroyed. All gate state
// lives on the main thread; markResultDelivered() moves there first.
#pragma once

#include <memory>

#include "kiv/platform/main_queue.hpp"

namespace kiv {

// What the session flow holds of the presenter: the one call that releases a
// held dismissal once the result has reached the host.
class KivLiteDismissGating {
 public:
  virtual ~KivLiteDismissGating() = default;
  // Safe from any thread; only the first call counts.
  virtual void markResultDelivered() = 0;
};

class KivLiteDismissalWork;

// Owned by shared_ptr: its timers and hops hold it weakly.
class KivLiteDismissalGate final : public KivLiteDismissGating,
                                   public std::enable_shared_from_this<KivLiteDismissalGate> {
 public:
  static std::shared_ptr<KivLiteDismissalGate> make(double maxHold);
  // A dismissal still held runs soon after, from the main queue.
  ~KivLiteDismissalGate() override;
  KivLiteDismissalGate(const KivLiteDismissalGate&) = delete;
  KivLiteDismissalGate& operator=(const KivLiteDismissalGate&) = delete;

  // Main thread only. Runs `dismissal` at once when the result was already
  // delivered, otherwise holds it. A dismissal held before is replaced and
  // left to its own timer.
  void hold(Task dismissal);
  void markResultDelivered() override;

  double maxHold() const { return maxHold_; }
  // Main thread only.
  bool resultWasDelivered() const;
  bool hasPendingDismissal() const;

 private:
  explicit KivLiteDismissalGate(double maxHold) : maxHold_(maxHold) {}
  void flush();

  const double maxHold_;
  bool resultWasDelivered_ = false;
  std::shared_ptr<KivLiteDismissalWork> pending_;
};

}  // namespace kiv
