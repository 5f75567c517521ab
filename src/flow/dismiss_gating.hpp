// What the session flow holds of the presenter: the one call that releases a
// held dismissal of the capture screen once the result has reached the host.
#pragma once

namespace kiv {

class KivLiteDismissGating {
 public:
  virtual ~KivLiteDismissGating() = default;
  // Safe from any thread; only the first call counts.
  virtual void markResultDelivered() = 0;
};

}  // namespace kiv
