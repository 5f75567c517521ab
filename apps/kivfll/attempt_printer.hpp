// What `kivfll run` and `kivfll demo` show of one attempt: every delegate
// call as it happens, the vendor's statuses, and a spinner while the session
// loads. Two forms:
// - human: readable lines; on a terminal the spinner and the processing bar
//   redraw in place, elsewhere each change is one plain line;
// - json: one JSON object per delegate call on standard output and nothing
//   else ({"call":"loading"}, {"call":"didFinishWithError","type":...}).
//
// Main thread only: the SDK calls the delegate there, and the vendor's
// statuses are handed over there. Owned by shared_ptr (the SDK holds its
// delegate weakly, and the spinner's timer holds the printer weakly).
#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "kiv/delegate.hpp"
#include "kiv/platform/capture/status.hpp"
#include "kiv/platform/main_queue.hpp"

namespace kiv::cli {

// How the attempt ended, as the process reports it.
struct Outcome {
  enum class Kind { success, failure, error, cancelled };
  Kind kind = Kind::error;
  std::string type;  // the failure or error type's raw value
  std::string description;
  std::optional<std::string> signedResponse;

  // 0 success, 1 failure, 2 error, 3 cancelled.
  int exitCode() const;
  // "success", "failure eyes_closed: Eyes closed", ...
  std::string summary() const;
};

class AttemptPrinter final : public KivFaceLivenessLiteDelegate, public std::enable_shared_from_this<AttemptPrinter> {
 public:
  enum class Form { human, json };

  // `interactive`: `out` is a terminal, so lines may be redrawn. `onOutcome`
  // runs once, after the outcome call was printed.
  AttemptPrinter(Form form, std::FILE* out, bool interactive, std::shared_ptr<MainQueue> main,
                 std::function<void(const Outcome&)> onOutcome);

  void didFinishWithSuccess(const KivFaceLivenessLiteResult& livenessResult) override;
  void didFinishWithFailure(KivFailureType type, const std::optional<std::string>& description,
                            const std::optional<std::string>& signedResponse) override;
  void didFinishWithError(KivErrorType type, const std::string& description) override;
  void cancelled() override;
  void loading() override;
  void loaded() override;

  // The capture vendor's side of the attempt (human form only).
  void vendorLaunched();
  void vendorStatus(const Status& status);

  const std::optional<Outcome>& outcome() const { return outcome_; }

  // Told of each loading() (true) and loaded() (false), after it was printed.
  std::function<void(bool)> onLoading;

 private:
  void finish(Outcome outcome, const nlohmann::ordered_json& call);
  void line(const std::string& text);
  void redraw(const std::string& text, bool keep = false);
  void endRedraw();
  void spin();

  const Form form_;
  std::FILE* const out_;
  const bool interactive_;
  const std::shared_ptr<MainQueue> main_;
  const std::function<void(const Outcome&)> onOutcome_;

  std::optional<Outcome> outcome_;
  bool redrawing_ = false;    // the cursor stands at the end of a line drawn in place
  bool keepRedrawn_ = false;  // that line stays when the next one comes
  bool spinning_ = false;
  std::size_t frame_ = 0;
  DelayedTaskHandle nextFrame_;
};

}  // namespace kiv::cli
