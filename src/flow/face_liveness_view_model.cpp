#include "flow/face_liveness_view_model.hpp"
#include "base/text.hpp"

#include <exception>
#include <utility>

#include "base/current_environment.hpp"
#include "base/overloaded.hpp"
#include "base/state_manager.hpp"
#include "base/unicode_text.hpp"
#include "flow/iproov_options_builder.hpp"
#include "flow/iproov_outcome_mapping.hpp"
#include "flow/streaming_url.hpp"
#include "kiv/backend.hpp"
#include "kiv/platform/platform.hpp"
#include "platform/dispatch/bind_to_main.hpp"
#include "platform/dispatch/main_affinity.hpp"
#include "service/key_chain_manager.hpp"
#include "service/string_utils.hpp"
#include "telemetry/crash_handler.hpp"

namespace kiv {
namespace {

constexpr std::string_view kSupportedSupplier = "iproov";
constexpr std::string_view kUnknownSupplier = "unknown";
constexpr std::string_view kNotEligibleDescription = "This client is not eligible for the asynchronous liveness flow.";

bool isBlank(const std::optional<std::string>& text) {
  return !text || unicode::trimWhiteSpaceAndNewlines(*text).empty();
}

struct ErrorReport {
  KivErrorType type;
  std::string description;
};

ErrorReport sessionErrorReport(const APIServiceError& error) {
  using KivStringUtils::extractErrorMessage;
  return std::visit(Overloaded{
                        [](const APIServiceError::networkError& e) {
                          return ErrorReport{KivErrorType::serverException, extractErrorMessage(e.message)};
                        },
                        [](const APIServiceError::decodingError& e) {
                          return ErrorReport{KivErrorType::serverException, extractErrorMessage(e.message)};
                        },
                        [](const APIServiceError::httpError& e) {
                          auto message = extractErrorMessage(e.message);
                          if (e.statusCode != 422)
                            return ErrorReport{KivErrorType::serverException, std::move(message)};
                          if (message.empty()) message = kNotEligibleDescription;
                          return ErrorReport{KivErrorType::tokenException, std::move(message)};
                        },
                        [&error](const auto&) {
                          return ErrorReport{KivErrorType::serverException, extractErrorMessage(description(error))};
                        },
                    },
                    error.value);
}

}  // namespace

std::shared_ptr<KivFaceLivenessLiteViewModel> KivFaceLivenessLiteViewModel::make(Arguments arguments) {
  return std::shared_ptr<KivFaceLivenessLiteViewModel>(new KivFaceLivenessLiteViewModel(std::move(arguments)));
}

KivFaceLivenessLiteViewModel::KivFaceLivenessLiteViewModel(Arguments arguments)
    : service_(std::move(arguments.service)),
      viewController_(std::move(arguments.viewController)),
      personId_(std::move(arguments.personId)),
      customLocalization_(std::move(arguments.customLocalization)),
      customLocalizationBundle_(std::move(arguments.customLocalizationBundle)),
      uiCustomization_(std::move(arguments.uiCustomization)),
      loading_(arguments.loading),
      environment_(arguments.environment.value_or(currentEnvironment())),
      analytics_(std::move(arguments.analytics)),
      launcher_(std::move(arguments.launcher)),
      loadingView_(KivLoadingView::make()),
      delegate_(std::move(arguments.delegate)) {
  KIV_ASSERT_MAIN_THREAD();
}

KivFaceLivenessLiteViewModel::~KivFaceLivenessLiteViewModel() {
  // A model released mid-attempt still lets go of what outlives it.
  if (integrityMonitor_) integrityMonitor_->stop();
  releaseHeldTasks();
}

void KivFaceLivenessLiteViewModel::postOnceLaunched(std::vector<Task> tasks) {
  for (auto& task : tasks) {
    if (holdsTasks_) {
      heldTasks_.push_back(std::move(task));
    } else {
      platform()->taskPool->post(std::move(task));
    }
  }
}

void KivFaceLivenessLiteViewModel::releaseHeldTasks() {
  holdsTasks_ = false;
  for (auto& task : std::exchange(heldTasks_, {})) platform()->taskPool->post(std::move(task));
}

bool KivFaceLivenessLiteViewModel::storeCredentials(const std::string& mobileToken, const std::string& personId) {
  KIV_ASSERT_MAIN_THREAD();
  mobileToken_ = mobileToken;
  try {
    auto keychain = KivKeyChainManager::shared();
    // One commit instead of four, and no wait for the disk: this is on the
    // main thread on the way to the capture, and the items are deleted when
    // the run ends, so a power cut can take nothing from them that matters.
    // A failed write still fails the commit.
    const bool committed = keychain->writeTogether(
        [&] {
          clearCredentials();
          keychain->save(kKivSDKService, kMobileTokenKey, asBytes(mobileToken), /*update=*/true);
          keychain->save(kKivSDKService, kPersonIdKey, asBytes(personId), /*update=*/true);
        },
        CommitDurability::written);
    if (!committed) throw KeychainError::unknown(SecureStoreStatus::ioError);
  } catch (const std::exception&) {
    finishWithError(KivErrorType::unsupportedDevice, std::string(kKeyChainErrorDescription));
    return false;
  }
  return true;
}

void KivFaceLivenessLiteViewModel::start(PrewarmState prewarmState) {
  KIV_ASSERT_MAIN_THREAD();
  holdsTasks_ = !didDeliverResult_;
  if (auto integrity = platform()->integrity) {
    if (auto violation = integrity->check()) {
      finishWithError(KivErrorType::securityException, "Security violation: " + *violation);
      return;
    }
    integrityMonitor_ =
        integrity->startMonitor(bindToMain(weak_from_this(), &KivFaceLivenessLiteViewModel::handleViolation));
  }

  std::visit(Overloaded{
                 [this](PrewarmState::ready& ready) { launchCapture(ready.response); },
                 [this](PrewarmState::pending& pending) {
                   setLoading(true);
                   pending.registrar([weak = weak_from_this()](std::optional<SessionResponse> response) {
                     auto self = weak.lock();
                     if (!self) return;
                     if (response) {
                       self->setLoading(false);
                       self->launchCapture(*response);
                     } else {
                       self->fetchSession();  // the loading state stays on
                     }
                   });
                 },
                 [this](PrewarmState::none&) {
                   setLoading(true);
                   fetchSession();
                 },
             },
             prewarmState.value);
}

void KivFaceLivenessLiteViewModel::setLoading(bool on) {
  if (auto delegate = delegate_.lock()) {
    if (on) {
      delegate->loading();
    } else {
      delegate->loaded();
    }
  }
  if (!loading_) return;
  if (!on) {
    loadingView_->stopLoading();
  } else if (!loadingView_->view()->superview()) {
    loadingView_->show(viewController_->view());
  } else {
    loadingView_->startLoading();
  }
}

std::string KivFaceLivenessLiteViewModel::baseURL() const { return backendRootURL(environment_); }

void KivFaceLivenessLiteViewModel::fetchSession() {
  service_->fetchSession(FetchSessionRequest::forPerson(baseURL(), personId_),
                         bindToMain(weak_from_this(), &KivFaceLivenessLiteViewModel::handleSessionResult));
}

void KivFaceLivenessLiteViewModel::handleSessionResult(APIResult<SessionResponse> result) {
  KIV_ASSERT_MAIN_THREAD();
  setLoading(false);
  if (result) {
    launchCapture(*result);
    return;
  }
  auto report = sessionErrorReport(result.error());
  finishWithError(report.type, report.description);
}

void KivFaceLivenessLiteViewModel::launchCapture(const SessionResponse& response) {
  KIV_ASSERT_MAIN_THREAD();
  if (hasConcludedSession_) return;

  const auto& supplier = response.supplier;
  const std::string type = supplier && supplier->type ? *supplier->type : std::string(kUnknownSupplier);
  if (asciiLowercased(type) != kSupportedSupplier) {
    finishWithError(KivErrorType::serverException, "Unsupported supplier: " + type);
    return;
  }
  if (!supplier->token) {
    finishWithError(KivErrorType::tokenException, "Missing token from session");
    return;
  }
  if (isBlank(response.livenessAttemptId)) {
    finishWithError(KivErrorType::invalidResponseException, "the session did not return a livenessAttemptId");
    return;
  }
  if (isBlank(response.signedResponse)) {
    finishWithError(KivErrorType::tokenException, "the session did not return a signedResponse");
    return;
  }

  presenter_ = KivLiteIProovPresenter::make(KivLiteIProovPresenter::kStandardMaxHold, viewController_);
  dismissGate_ = presenter_;
  const auto filter = supplier->settings ? supplier->settings->filter : std::nullopt;
  Options options =
      buildIProovOptions(customLocalization_, customLocalizationBundle_, filter, uiCustomization_, presenter_);

  const auto url = streamingURLForMobileToken(mobileToken_.value_or(""));
  if (!isStreamingURL(url)) {
    finishWithError(KivErrorType::invalidOptionsException, "Invalid URL");
    return;
  }

  // The vendor calls back on a thread of its choosing.
  auto onStatus = bindToMain(
      weak_from_this(),
      [response](KivFaceLivenessLiteViewModel& self, const Status& status) { self.handleStatus(status, response); },
      MainHop::inlineOnMain);
  Session session = launcher_->launch(url, *supplier->token, std::move(options), std::move(onStatus));
  if (hasConcludedSession_) {
    // Concluded while the launch call ran: nothing may keep this capture.
    session.cancel();
  } else {
    session_ = std::move(session);
  }
  releaseHeldTasks();
}

void KivFaceLivenessLiteViewModel::handleStatus(const Status& status, const SessionResponse& response) {
  KIV_ASSERT_MAIN_THREAD();
  std::visit(Overloaded{
                 [this](const Status::connected&) { trackProviderResult(KivAnalyticsResult::connected); },
                 [&](const Status::success&) {
                   if (hasConcludedSession_) return;
                   hasConcludedSession_ = true;
                   trackProviderResult(KivAnalyticsResult::success);
                   conclude(response, AttemptOutcome{AttemptOutcome::success{}});
                 },
                 [&](const Status::failure& failed) {
                   if (hasConcludedSession_) return;
                   hasConcludedSession_ = true;
                   auto failure = captureFailure(failed.result);
                   trackProviderResult(KivAnalyticsResult::failure, {{"reason", std::string(rawValue(failure.type))},
                                                                     {"description", failed.result.description()}});
                   conclude(response, AttemptOutcome{AttemptOutcome::failure{failure.type, failure.description}});
                 },
                 [this](const Status::canceled&) {
                   if (hasConcludedSession_) return;
                   hasConcludedSession_ = true;
                   trackProviderResult(KivAnalyticsResult::canceled);
                   trackFinish({resultParameter(KivAnalyticsResult::cancelled)});
                   deliver([](KivFaceLivenessLiteDelegate& delegate) { delegate.cancelled(); });
                 },
                 [this](const Status::error& failed) {
                   if (hasConcludedSession_) return;
                   auto error = captureError(failed.iProovError);
                   const std::string errorType(rawValue(error.type));
                   trackProviderResult(KivAnalyticsResult::error,
                                       {{"errorType", errorType}, {"description", error.description}});
                   finishWithError(error.type, error.description, errorType);
                 },
                 [](const auto&) {},
             },
             status.value());
}

void KivFaceLivenessLiteViewModel::conclude(const SessionResponse& response, const AttemptOutcome& outcome) {
  // Fire and forget: the backend's answer never changes the outcome.
  service_->fetchTransactions(FetchTransactionsRequest::forSession(baseURL(), response), [](auto) {});

  const std::string signedResponse = response.signedResponse.value_or("");
  std::visit(
      Overloaded{
          [&](const AttemptOutcome::success&) {
            trackFinish({resultParameter(KivAnalyticsResult::finishWithSuccess), {"signedResponse", signedResponse}});
            deliver([signedResponse](KivFaceLivenessLiteDelegate& delegate) {
              delegate.didFinishWithSuccess(KivFaceLivenessLiteResult{signedResponse});
            });
          },
          [&](const AttemptOutcome::failure& failure) {
            auto description = KivStringUtils::extractErrorMessage(failure.description);
            trackFinish({resultParameter(KivAnalyticsResult::finishWithFailure),
                         {"errorType", std::string(rawValue(failure.type))},
                         {"description", description},
                         {"signedResponse", signedResponse}});
            deliver([type = failure.type, description, signedResponse](KivFaceLivenessLiteDelegate& delegate) {
              delegate.didFinishWithFailure(type, description, signedResponse);
            });
          },
      },
      outcome.value);
}

void KivFaceLivenessLiteViewModel::finishWithError(KivErrorType errorType, const std::string& description,
                                                   const std::optional<std::string>& analyticsErrorType) {
  if (hasConcludedSession_) return;
  hasConcludedSession_ = true;
  trackFinish({resultParameter(KivAnalyticsResult::finishWithError),
               {"errorType", analyticsErrorType.value_or(std::string(rawValue(errorType)))},
               {"description", description}});
  deliver([errorType, description](KivFaceLivenessLiteDelegate& delegate) {
    delegate.didFinishWithError(errorType, description);
  });
}

void KivFaceLivenessLiteViewModel::deliver(std::function<void(KivFaceLivenessLiteDelegate&)> call) {
  if (!platform()->mainQueue->isCurrent()) {
    bindToMain(weak_from_this(), &KivFaceLivenessLiteViewModel::deliver)(std::move(call));
    return;
  }
  if (didDeliverResult_) return;
  didDeliverResult_ = true;
  if (auto delegate = delegate_.lock()) call(*delegate);
  cleanUp();
}

void KivFaceLivenessLiteViewModel::cleanUp() {
  KIV_ASSERT_MAIN_THREAD();
  setLoading(false);
  if (session_) session_->cancel();
  platform()->mainQueue->cancelAll(this);
  session_.reset();
  if (integrityMonitor_) {
    integrityMonitor_->stop();
    integrityMonitor_.reset();
  }
  clearCredentials();
  if (auto crashHandler = KivCrashHandler::shared()) crashHandler->uninstall();
  KivSDKStateManager::shared().endRun();
  if (dismissGate_) dismissGate_->markResultDelivered();
  releaseHeldTasks();
}

void KivFaceLivenessLiteViewModel::clearCredentials() {
  auto keychain = KivKeyChainManager::shared();
  keychain->deleteItem(kMobileTokenKey);
  keychain->deleteItem(kPersonIdKey);
}

void KivFaceLivenessLiteViewModel::handleViolation(const std::string& description) {
  finishWithError(KivErrorType::securityException, "Mid-session security violation: " + description);
}

void KivFaceLivenessLiteViewModel::trackProviderResult(KivAnalyticsResult result,
                                                       const KivBFFAnalytics::TextParams& extraProperties) {
  if (!analytics_) return;
  KivBFFAnalytics::TextParams params{{std::string(envelope::kProviderKey), providerName_}, resultParameter(result)};
  for (const auto& [key, value] : extraProperties) params.insert_or_assign(key, value);
  analytics_->track(KivAnalyticsEvent::standard(KivAnalyticsEventName::providerEvent, KivAnalyticsEventType::sdkStep),
                    std::move(params));
}

void KivFaceLivenessLiteViewModel::trackFinish(KivBFFAnalytics::TextParams params) {
  releaseHeldTasks();  // what the start held comes before how the attempt ended
  if (!analytics_) return;
  params.insert_or_assign(std::string(envelope::kProviderKey), providerName_);
  analytics_->track(KivAnalyticsEvent::standard(KivAnalyticsEventName::sdkResult, KivAnalyticsEventType::sdkStep),
                    std::move(params));
}

}  // namespace kiv
