// The one object a host creates and talks to.
//
// setup() stores the host's credentials and choices, prewarm() may fetch the
// liveness session ahead of time, and startSDK() runs one attempt over the
// host's screen. How the attempt ended reaches the delegate, on the main
// thread, as exactly one of its finishing calls; of its own failures the
// facade reports only a start before any setup.
//
//   auto sdk = kiv::KivFaceLivenessLiteSDK::make();
//   sdk->setDelegate(delegate);    // held weakly: the host keeps it alive
//   sdk->setup(token, personId, std::nullopt, nullptr, std::nullopt, kiv::KivEnvironment::prod, true);
//   sdk->prewarm();                // optional
//   sdk->startSDK(hostViewController);
//
// Threads: every operation except prewarm() is main-thread only (debug builds
// assert); prewarm() moves itself to the main queue when called elsewhere.
//
// Ownership: the host owns the facade through the shared_ptr make() returns.
// Work the facade started (a prewarm fetch, the camera prompt, a notification)
// holds it weakly and does nothing once the host has released it; releasing it
// mid-run ends that run without a delegate call.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <memory>
#include <optional>
#include <string>

#include "kiv/delegate.hpp"
#include "kiv/environment.hpp"
#include "kiv/platform/ui/view_controller.hpp"
#include "kiv/resource_bundle.hpp"
#include "kiv/ui_customization.hpp"

namespace kiv {

class KivFaceLivenessLiteSDK {
 public:
  // A facade with no configuration, no delegate and nothing cached.
  static std::shared_ptr<KivFaceLivenessLiteSDK> make();
  virtual ~KivFaceLivenessLiteSDK() = default;
  KivFaceLivenessLiteSDK(const KivFaceLivenessLiteSDK&) = delete;
  KivFaceLivenessLiteSDK& operator=(const KivFaceLivenessLiteSDK&) = delete;

  // The receiver of outcomes, while the host keeps it alive. A run hears the
  // delegate set when it started.
  virtual std::shared_ptr<KivFaceLivenessLiteDelegate> delegate() const = 0;
  virtual void setDelegate(std::weak_ptr<KivFaceLivenessLiteDelegate> delegate) = 0;

  // Stores the configuration (replacing an earlier one) and makes
  // `environment` the current one. Credentials or an environment other than
  // those of a prewarmed session drop that session. Reports nothing.
  virtual void setup(std::string mobileToken, std::string personId, std::optional<std::string> customLocalization,
                     ResourceBundleRef customLocalizationBundle, std::optional<DorvinUiCustomization> uiCustomization,
                     KivEnvironment environment, bool loading) = 0;

  // Creates the liveness session now and keeps it for 90 seconds for the
  // next start with the same credentials and environment; dropped when the
  // application enters the background. Ignored during a run, while a fetch
  // is under way, and while a fresh session is kept; before setup() it only
  // prints a line. Safe from any thread.
  virtual void prewarm() = 0;

  // Runs one attempt over `viewController` (held by the run until it ends).
  // Before setup() the delegate hears invalidOptionsException at once; while
  // another run is in progress (in any facade) the call only prints a line.
  //
  // A run is torn down after its finishing delegate call returns, so a start
  // made inside that call is refused as well. To start again from there,
  // post the start to the main queue: it runs once the teardown is done.
  //
  //   void didFinishWithError(kiv::KivErrorType, const std::string&) override {
  //     kiv::platform()->mainQueue->post([sdk = sdk_, host = host_] { sdk->startSDK(host); });
  //   }
  virtual void startSDK(std::shared_ptr<ViewController> viewController) = 0;

 protected:
  // The SDK's own facade is the one make() returns.
  KivFaceLivenessLiteSDK() = default;
};

}  // namespace kiv

#pragma GCC visibility pop
