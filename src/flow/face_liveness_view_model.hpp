// One liveness attempt, from the facade's hand-over to exactly one delegate
// call: it takes the prewarmed session or fetches one, checks it, launches
// the capture vendor over the host's screen, turns the vendor's final status
// into success, failure, cancellation or error, reports the attempt to the
// backend and tears everything down.
//
//   auto model = KivFaceLivenessLiteViewModel::make({.service = service, .viewController = host, ...});
//   if (model->storeCredentials(token, personId)) model->start(PrewarmState::none{});
//
// Main thread only: every operation runs there and every delegate call is
// made there. Results from other threads (the session fetch, vendor statuses
// and the integrity monitor) are moved there by callbacks that hold the model
// weakly and do nothing once it is gone. Owned by shared_ptr (the facade
// keeps the last one).
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "flow/dismissal_gate.hpp"
#include "flow/iproov_launching.hpp"
#include "flow/iproov_presenter.hpp"
#include "flow/prewarm_state.hpp"
#include "kiv/delegate.hpp"
#include "kiv/environment.hpp"
#include "kiv/error_types.hpp"
#include "kiv/platform/device_integrity.hpp"
#include "kiv/platform/ui/view_controller.hpp"
#include "kiv/resource_bundle.hpp"
#include "kiv/ui_customization.hpp"
#include "service/kiv_service.hpp"
#include "telemetry/bff_analytics.hpp"
#include "ui/loading_view.hpp"

namespace kiv {

class KivFaceLivenessLiteViewModel : public std::enable_shared_from_this<KivFaceLivenessLiteViewModel> {
 public:
  using PrewarmState = kiv::PrewarmState;

  // How an attempt whose capture completed ended.
  struct AttemptOutcome {
    struct success {};
    struct failure {
      KivFailureType type;
      std::string description;
    };
    std::variant<success, failure> value;
  };

  // What the facade hands over; the provider name and the loading view are
  // the model's own.
  struct Arguments {
    std::shared_ptr<KivServiceProtocol> service{};
    std::shared_ptr<ViewController> viewController{};
    std::string personId{};
    std::optional<std::string> customLocalization{};
    ResourceBundleRef customLocalizationBundle{};
    std::optional<DorvinUiCustomization> uiCustomization{};
    bool loading = false;
    // Whose backend every request of the attempt goes to, however the
    // current environment changes meanwhile; absent: the current one.
    std::optional<KivEnvironment> environment{};
    std::shared_ptr<KivBFFAnalytics> analytics{};  // null: no events
    std::unique_ptr<IProovLaunching> launcher{};
    std::weak_ptr<KivFaceLivenessLiteDelegate> delegate{};
  };

  static constexpr std::string_view kProviderName = "iproov";
  static constexpr std::string_view kKeyChainErrorDescription = "KeyChain error";
  static constexpr std::string_view kCameraPermissionDeniedDescription = "Camera permission denied";

  // Main thread only.
  static std::shared_ptr<KivFaceLivenessLiteViewModel> make(Arguments arguments);
  ~KivFaceLivenessLiteViewModel();
  KivFaceLivenessLiteViewModel(const KivFaceLivenessLiteViewModel&) = delete;
  KivFaceLivenessLiteViewModel& operator=(const KivFaceLivenessLiteViewModel&) = delete;

  // Keeps the mobile token and writes it and the person id to the secure
  // store (both deleted first). When a write fails the attempt ends with
  // unsupportedDevice "KeyChain error" and the answer is false.
  bool storeCredentials(const std::string& mobileToken, const std::string& personId);

  // Runs the attempt: the integrity check, then the prewarmed session, the
  // wait for the one in flight, or a fetch.
  void start(PrewarmState prewarmState);

  // Posts `tasks` to the pool, in order, once the capture has launched or
  // the attempt has ended; at once when the attempt has not started or
  // either has happened. For background work that would otherwise compete
  // with the attempt's way to the capture (the start's events).
  void postOnceLaunched(std::vector<Task> tasks);

  // Ends the attempt with an error unless its outcome is already decided.
  // `analyticsErrorType` replaces the error type's raw value in the event.
  void finishWithError(KivErrorType errorType, const std::string& description,
                       const std::optional<std::string>& analyticsErrorType = std::nullopt);

  // --- State, for the facade and tests -------------------------------------
  bool hasConcludedSession() const { return hasConcludedSession_; }
  bool didDeliverResult() const { return didDeliverResult_; }
  const std::shared_ptr<KivLoadingView>& loadingView() const { return loadingView_; }
  const std::shared_ptr<KivLiteIProovPresenter>& presenter() const { return presenter_; }
  const std::optional<std::string>& mobileToken() const { return mobileToken_; }

 private:
  explicit KivFaceLivenessLiteViewModel(Arguments arguments);

  void setLoading(bool on);
  void fetchSession();
  void handleSessionResult(APIResult<SessionResponse> result);
  void launchCapture(const SessionResponse& response);
  void handleStatus(const Status& status, const SessionResponse& response);
  void conclude(const SessionResponse& response, const AttemptOutcome& outcome);
  void deliver(std::function<void(KivFaceLivenessLiteDelegate&)> call);
  void cleanUp();
  void clearCredentials();
  void trackProviderResult(KivAnalyticsResult result, const KivBFFAnalytics::TextParams& extraProperties = {});
  void trackFinish(KivBFFAnalytics::TextParams params);
  void handleViolation(const std::string& description);
  // Posts what postOnceLaunched() holds; later calls of it post at once.
  void releaseHeldTasks();
  std::string baseURL() const;

  // Fields in the order the attempt's data model lists them.
  const std::shared_ptr<KivServiceProtocol> service_;
  const std::shared_ptr<ViewController> viewController_;
  const std::string personId_;
  const std::optional<std::string> customLocalization_;
  const ResourceBundleRef customLocalizationBundle_;
  const std::optional<DorvinUiCustomization> uiCustomization_;
  const bool loading_;
  const KivEnvironment environment_;
  std::optional<Session> session_;
  const std::shared_ptr<KivBFFAnalytics> analytics_;
  const std::string providerName_{kProviderName};
  const std::unique_ptr<IProovLaunching> launcher_;
  const std::shared_ptr<KivLoadingView> loadingView_;
  std::optional<std::string> mobileToken_;
  std::shared_ptr<KivLiteIProovPresenter> presenter_;
  std::shared_ptr<KivLiteDismissGating> dismissGate_;
  bool hasConcludedSession_ = false;
  bool didDeliverResult_ = false;
  std::weak_ptr<KivFaceLivenessLiteDelegate> delegate_;

  // Tasks held until the capture has launched, while the attempt is on its
  // way there (from start() on).
  std::vector<Task> heldTasks_;
  bool holdsTasks_ = false;

  // The running integrity monitor, stopped at teardown.
  std::shared_ptr<DeviceIntegrityMonitor> integrityMonitor_;
};

}  // namespace kiv
