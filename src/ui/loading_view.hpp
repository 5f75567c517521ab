// The dimming overlay with a centred progress indicator that the session
// flow lays over the host's screen while the liveness session is fetched.
// Two styles: the toolkit's standard activity indicator, or the SDK's
// spinner image turning endlessly.
//
// The overlay is the toolkit view returned by view(); this object owns it
// and its two subviews. Owned by shared_ptr: start and stop hold it weakly
// when they hop to the main thread.
//
//   auto loading = KivLoadingView::make();
//   loading->show(host->view());     // main thread
//   loading->stopLoading();          // any thread
#pragma once

#include <memory>
#include <string_view>

#include "kiv/platform/ui/view.hpp"

namespace kiv {

enum class LoadingType { activityIndicator, spinner };

class KivLoadingView : public std::enable_shared_from_this<KivLoadingView> {
 public:
  static constexpr std::string_view kSpinnerResourceName = "loading_spinner_1";
  static constexpr std::string_view kSpinnerResourceType = "webp";
  static constexpr double kSpinnerSide = 100;  // points
  static constexpr std::string_view kSpinAnimationKey = "spin";
  static constexpr std::string_view kRotationKeyPath = "transform.rotation.z";

  // The turn added under kSpinAnimationKey: once around per second, forever.
  static BasicAnimation spinAnimation();

  // Main thread only; the style starts as activityIndicator.
  static std::shared_ptr<KivLoadingView> make(Rect frame = {});

  const std::shared_ptr<View>& view() const { return view_; }
  const std::shared_ptr<ActivityIndicatorView>& activityIndicatorView() const { return activityIndicatorView_; }
  const std::shared_ptr<ImageView>& spinnerImageView() const { return spinnerImageView_; }

  // Main thread only. Setting the style shows its indicator and hides the
  // other; the spinner style loads the spinner image (left empty when the
  // resource is missing or does not decode).
  LoadingType loadingType() const;
  void setLoadingType(LoadingType type);

  // Main thread only: covers `hostView` (takes its bounds and becomes its
  // subview), then starts loading.
  void show(const std::shared_ptr<View>& hostView);

  // Safe from any thread: inline on the main thread, otherwise posted to it;
  // nothing happens once this object is gone.
  void startLoading();
  // Hides the overlay but leaves it in its superview.
  void stopLoading();

 private:
  KivLoadingView() = default;
  void applyLoadingType();
  void startRotation();
  void stopRotation();

  std::shared_ptr<View> view_;
  std::shared_ptr<ActivityIndicatorView> activityIndicatorView_;
  std::shared_ptr<ImageView> spinnerImageView_;
  LoadingType loadingType_ = LoadingType::activityIndicator;
};

}  // namespace kiv
