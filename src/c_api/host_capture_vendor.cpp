#include <cmath>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/unicode_text.hpp"
#include "c_api/capture_options_json.hpp"
#include "c_api/host_services.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv::c_api {
namespace {

class HostCaptureRun;

// Every capture the host's vendor may still report on, by number. Of those
// over (final status or cancel) the most recent kRetained stay, so that a
// late status or dismissal is told apart from an unknown number.
class CaptureTable {
 public:
  static constexpr std::size_t kRetained = 64;

  kiv_capture add(const std::shared_ptr<HostCaptureRun>& run);
  std::shared_ptr<HostCaptureRun> find(kiv_capture capture);
  // The run is over; called once per run.
  void settle(kiv_capture capture);

 private:
  std::mutex mutex_;
  std::map<kiv_capture, std::shared_ptr<HostCaptureRun>> runs_;
  std::deque<kiv_capture> settled_;
  kiv_capture next_ = 1;
};

// Never destroyed: a host thread may report while the process exits.
CaptureTable& captures() {
  static auto* instance = new CaptureTable;
  return *instance;
}

// One capture of the host's vendor. Statuses are queued as reported and
// handed to the callback on the main thread, one at a time, in order; the
// queue is dropped at cancel.
class HostCaptureRun final : public CaptureRun, public std::enable_shared_from_this<HostCaptureRun> {
 public:
  HostCaptureRun(const kiv_capture_vendor& functions, StatusCallback callback,
                 std::weak_ptr<IProovPresentationDelegate> presenter)
      : functions_(functions), callback_(std::move(callback)), presenter_(std::move(presenter)) {}

  void start(kiv_capture capture, const std::string& url, const std::string& token, const std::string& options) {
    capture_ = capture;
    // The screen is up before the host's vendor starts, so that the host
    // can draw into it whatever the vendor reports first.
    presentScreen();
    functions_.launch(functions_.user_data, capture, url.c_str(), token.c_str(), options.c_str());
  }

  kiv_status report(Status status) {
    {
      std::lock_guard lock(mutex_);
      if (final_ || cancelled_) return KIV_ERROR_INVALID_STATE;
      final_ = status.isFinal();
      queued_.push_back(std::move(status));
      if (final_) captures().settle(capture_);
    }
    onMain([self = shared_from_this()] { self->drain(); });
    return KIV_OK;
  }

  kiv_status requestDismissal() {
    {
      std::lock_guard lock(mutex_);
      if (dismissalAsked_) return KIV_ERROR_INVALID_STATE;
      dismissalAsked_ = true;
    }
    onMain([self = shared_from_this()] { self->takeScreenDown(); });
    return KIV_OK;
  }

  void cancel() override {
    bool tellHost = false;
    {
      std::lock_guard lock(mutex_);
      if (cancelled_) return;
      cancelled_ = true;
      queued_.clear();
      tellHost = !final_;
      if (!final_) captures().settle(capture_);
    }
    if (tellHost && functions_.cancel) functions_.cancel(functions_.user_data, capture_);
    onMain([self = shared_from_this()] { self->takeScreenDown(); });
  }

 private:
  static void onMain(Task task) {
    const auto& queue = platform()->mainQueue;
    if (queue->isCurrent()) {
      task();
    } else {
      queue->post(std::move(task));
    }
  }

  // Main thread. A status reported from inside the callback waits for the
  // loop that is already draining.
  void drain() {
    if (draining_) return;
    draining_ = true;
    for (;;) {
      std::optional<Status> next;
      {
        std::lock_guard lock(mutex_);
        if (queued_.empty()) break;
        next = std::move(queued_.front());
        queued_.pop_front();
      }
      callback_(*next);
    }
    draining_ = false;
  }

  void presentScreen() {
    auto presenter = presenter_.lock();
    if (!presenter) return;  // nowhere to show it; the capture runs unseen
    screen_ = makeHostCaptureScreen(capture_);
    presenter->present(screen_, {});
  }

  void takeScreenDown() {
    if (!screen_ || tookScreenDown_) return;
    tookScreenDown_ = true;
    if (auto presenter = presenter_.lock()) {
      presenter->dismiss(screen_, {});
    } else {
      screen_->dismiss(false, {});
    }
  }

  const kiv_capture_vendor functions_;
  const StatusCallback callback_;
  const std::weak_ptr<IProovPresentationDelegate> presenter_;
  kiv_capture capture_ = 0;

  std::mutex mutex_;
  std::deque<Status> queued_;
  bool final_ = false;
  bool cancelled_ = false;
  bool dismissalAsked_ = false;

  // Main thread only.
  bool draining_ = false;
  std::shared_ptr<ViewController> screen_;
  bool tookScreenDown_ = false;
};

kiv_capture CaptureTable::add(const std::shared_ptr<HostCaptureRun>& run) {
  std::lock_guard lock(mutex_);
  const auto capture = next_++;
  runs_.emplace(capture, run);
  return capture;
}

std::shared_ptr<HostCaptureRun> CaptureTable::find(kiv_capture capture) {
  std::lock_guard lock(mutex_);
  auto found = runs_.find(capture);
  return found == runs_.end() ? nullptr : found->second;
}

// Called under the run's own lock: takes only the table's.
void CaptureTable::settle(kiv_capture capture) {
  std::vector<std::shared_ptr<HostCaptureRun>> released;  // let go after the lock
  std::lock_guard lock(mutex_);
  settled_.push_back(capture);
  while (settled_.size() > kRetained) {
    if (auto old = runs_.find(settled_.front()); old != runs_.end()) {
      released.push_back(std::move(old->second));
      runs_.erase(old);
    }
    settled_.pop_front();
  }
}

class HostCaptureVendor final : public CaptureVendor {
 public:
  explicit HostCaptureVendor(const kiv_capture_vendor& functions) : functions_(functions) {}

  std::shared_ptr<CaptureRun> launch(std::string streamingURL, std::string token, Options options,
                                     StatusCallback callback) override {
    auto run = std::make_shared<HostCaptureRun>(functions_, std::move(callback), options.presentationDelegate);
    run->start(captures().add(run), streamingURL, token, captureOptionsJson(options));
    return run;
  }

 private:
  const kiv_capture_vendor functions_;
};

kiv_status checkText(const char* text) {
  if (text == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return unicode::isValidUtf8(text) ? KIV_OK : KIV_ERROR_INVALID_UTF8;
}

// Hands `status` to the capture's run, when there is one.
kiv_status report(kiv_capture capture, Status status) noexcept {
  try {
    auto run = captures().find(capture);
    return run ? run->report(std::move(status)) : KIV_ERROR_INVALID_ARGUMENT;
  } catch (...) {
    return KIV_ERROR_INTERNAL;
  }
}

}  // namespace

std::shared_ptr<CaptureVendor> makeHostCaptureVendor(const kiv_capture_vendor& functions) {
  return std::make_shared<HostCaptureVendor>(functions);
}

}  // namespace kiv::c_api

using namespace kiv;
using kiv::c_api::checkText;
using kiv::c_api::report;

extern "C" {

kiv_status kiv_capture_report_connecting(kiv_capture capture) { return report(capture, Status::connecting{}); }

kiv_status kiv_capture_report_connected(kiv_capture capture) { return report(capture, Status::connected{}); }

kiv_status kiv_capture_report_processing(kiv_capture capture, double progress, const char* message) {
  if (message != nullptr) {
    if (auto status = checkText(message); status != KIV_OK) return status;
  }
  if (!(progress >= 0.0 && progress <= 1.0)) return KIV_ERROR_INVALID_ARGUMENT;  // NaN too
  return report(capture, Status::processing{progress, message == nullptr ? "" : message});
}

kiv_status kiv_capture_report_success(kiv_capture capture) { return report(capture, Status::success{}); }

kiv_status kiv_capture_report_failure(kiv_capture capture, const kiv_failure_reason* reasons, size_t count) {
  if (reasons == nullptr && count > 0) return KIV_ERROR_NULL_ARGUMENT;
  try {
    FailureResult result;
    for (size_t i = 0; i < count; ++i) {
      for (const char* text : {reasons[i].feedback_code, reasons[i].localized_description}) {
        if (auto status = checkText(text); status != KIV_OK) return status;
      }
      result.reasons.push_back({reasons[i].feedback_code, reasons[i].localized_description});
    }
    return report(capture, Status::failure{std::move(result)});
  } catch (...) {
    return KIV_ERROR_INTERNAL;
  }
}

kiv_status kiv_capture_report_canceled(kiv_capture capture, kiv_canceler canceler) {
  switch (canceler) {
    case KIV_CANCELER_USER:
      return report(capture, Status::canceled{Canceler::user});
    case KIV_CANCELER_INTEGRATION:
      return report(capture, Status::canceled{Canceler::integration});
  }
  return KIV_ERROR_INVALID_ARGUMENT;
}

kiv_status kiv_capture_report_error(kiv_capture capture, kiv_capture_error code, const char* description) {
  if (description != nullptr) {
    if (auto status = checkText(description); status != KIV_OK) return status;
  }
  // The C values follow the vendor's error cases in declaration order.
  const auto cases = allCases<IProovError::Code>();
  const auto index = static_cast<std::size_t>(code);
  if (static_cast<int>(code) < 0 || index >= cases.size()) return KIV_ERROR_INVALID_ARGUMENT;
  try {
    std::optional<std::string> text;
    if (description != nullptr) text = description;
    return report(capture, Status::error{IProovError(cases[index], std::move(text))});
  } catch (...) {
    return KIV_ERROR_INTERNAL;
  }
}

kiv_status kiv_capture_request_dismissal(kiv_capture capture) {
  try {
    auto run = kiv::c_api::captures().find(capture);
    return run ? run->requestDismissal() : KIV_ERROR_INVALID_ARGUMENT;
  } catch (...) {
    return KIV_ERROR_INTERNAL;
  }
}

}  // extern "C"
