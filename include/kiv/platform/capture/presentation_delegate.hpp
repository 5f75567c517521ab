// The capture vendor does not present its own screen: it hands its view
// controller to a presentation delegate, and asks the same delegate to take
// it down when the capture ends. The vendor may call from any thread.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <memory>

#include "kiv/platform/main_queue.hpp"
#include "kiv/platform/ui/view_controller.hpp"

namespace kiv {

class IProovPresentationDelegate {
 public:
  virtual ~IProovPresentationDelegate() = default;
  // An empty completion means none.
  virtual void present(std::shared_ptr<ViewController> iProovViewController, Task completion) = 0;
  virtual void dismiss(std::shared_ptr<ViewController> iProovViewController, Task completion) = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
