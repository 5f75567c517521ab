// Shows the capture vendor's screen over the host, and passes the vendor's
// dismissal through a dismissal gate (dismissal_gate.hpp): the host learns
// the outcome while the capture screen is still up. A dismissal waits at most
// `maxHold` seconds.
//
// One presenter per attempt, owned by shared_ptr (posted work holds it
// weakly). present() runs where the vendor calls it, which must be the main
// thread; dismiss() and markResultDelivered() may be called from any thread
// and move there first. All gate state lives on the main thread.
//
//   auto presenter = KivLiteIProovPresenter::make(KivLiteIProovPresenter::kStandardMaxHold, hostController);
//   options.presentationDelegate = presenter;    // the vendor presents and dismisses through it
//   ...                                          // the result reaches the host
//   presenter->markResultDelivered();            // the held dismissal runs now
#pragma once

#include <memory>

#include "flow/dismissal_gate.hpp"
#include "kiv/platform/capture/presentation_delegate.hpp"
#include "kiv/platform/ui/view_controller.hpp"

namespace kiv {

class KivLiteIProovPresenter final : public IProovPresentationDelegate,
                                     public KivLiteDismissGating,
                                     public std::enable_shared_from_this<KivLiteIProovPresenter> {
 public:
  // The hold the session flow uses.
  static constexpr double kStandardMaxHold = 3.0;

  // Keeps `presentingViewController` weakly.
  static std::shared_ptr<KivLiteIProovPresenter> make(double maxHold,
                                                      const std::shared_ptr<ViewController>& presentingViewController);

  // A dismissal still held runs soon after, from the main queue.
  ~KivLiteIProovPresenter() override = default;
  KivLiteIProovPresenter(const KivLiteIProovPresenter&) = delete;
  KivLiteIProovPresenter& operator=(const KivLiteIProovPresenter&) = delete;

  // Full screen, without animation, over the topmost controller of the
  // host; with no host controller left only the completion runs.
  void present(std::shared_ptr<ViewController> iProovViewController, Task completion) override;
  // Holds the dismissal until markResultDelivered() or `maxHold` seconds,
  // whichever comes first.
  void dismiss(std::shared_ptr<ViewController> iProovViewController, Task completion) override;
  void markResultDelivered() override { gate_->markResultDelivered(); }

  // The controller a new screen goes over: the last of the host
  // controller's presented chain that is not leaving. Main thread only.
  std::shared_ptr<ViewController> topmostPresenter() const;

  double maxHold() const { return gate_->maxHold(); }
  // Main thread only.
  bool resultWasDelivered() const { return gate_->resultWasDelivered(); }
  bool hasPendingDismissal() const { return gate_->hasPendingDismissal(); }

 private:
  KivLiteIProovPresenter(double maxHold, const std::shared_ptr<ViewController>& presentingViewController);

  std::weak_ptr<ViewController> presentingViewController_;
  // Owned here alone, so that it goes (running what it holds) with the presenter.
  const std::shared_ptr<KivLiteDismissalGate> gate_;
};

}  // namespace kiv
