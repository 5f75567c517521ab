#include "attempt_printer.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

#include "terminal_text.hpp"

namespace kiv::cli {
namespace {

constexpr std::array<std::string_view, 10> kSpinnerFrames = {"⠋", "⠙", "⠹", "⠸", "⠼", "⠴", "⠦", "⠧", "⠇", "⠏"};
constexpr double kSpinnerPeriod = 0.08;  // seconds per frame
constexpr int kBarWidth = 24;

std::string progressBar(double progress) {
  const int filled = static_cast<int>(std::lround(std::clamp(progress, 0.0, 1.0) * kBarWidth));
  std::string bar = "[";
  for (int i = 0; i < kBarWidth; ++i) bar += i < filled ? "█" : "·";
  return bar + "] " + std::to_string(static_cast<int>(std::lround(progress * 100))) + "%";
}

// The call as a person reads it: didFinishWithError(type: serverException,
// description: "Server Error"), with a long signed response shortened.
std::string humanCall(const nlohmann::ordered_json& call) {
  std::string text = call.value("call", "") + "(";
  bool first = true;
  for (const auto& [key, value] : call.items()) {
    if (key == "call") continue;
    std::string shown = value.is_string() ? value.get<std::string>() : value.dump();
    if (key == "signedResponse" && shown.size() > 24) shown = shown.substr(0, 24) + "…";
    text += (first ? "" : ", ") + key + ": " + (key == "type" ? shown : "\"" + shown + "\"");
    first = false;
  }
  return text + ")";
}

std::string jsonLine(nlohmann::ordered_json object) {
  return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

int Outcome::exitCode() const {
  switch (kind) {
    case Kind::success:
      return 0;
    case Kind::failure:
      return 1;
    case Kind::error:
      return 2;
    case Kind::cancelled:
      return 3;
  }
  return 2;
}

std::string Outcome::summary() const {
  switch (kind) {
    case Kind::success:
      return "success";
    case Kind::failure:
      return "failure " + terminalSafe(type) + ": " + terminalSafe(description);
    case Kind::error:
      return "error " + terminalSafe(type) + ": " + terminalSafe(description);
    case Kind::cancelled:
      return "cancelled";
  }
  return {};
}

AttemptPrinter::AttemptPrinter(Form form, std::FILE* out, bool interactive, std::shared_ptr<MainQueue> main,
                               std::function<void(const Outcome&)> onOutcome)
    : form_(form),
      out_(out),
      interactive_(interactive && form == Form::human),
      main_(std::move(main)),
      onOutcome_(std::move(onOutcome)) {}

void AttemptPrinter::didFinishWithSuccess(const KivFaceLivenessLiteResult& livenessResult) {
  Outcome outcome{Outcome::Kind::success, {}, {}, livenessResult.signedResponse()};
  nlohmann::ordered_json json{{"call", "didFinishWithSuccess"}};
  json["signedResponse"] = livenessResult.signedResponse() ? nlohmann::ordered_json(*livenessResult.signedResponse())
                                                           : nlohmann::ordered_json(nullptr);
  finish(std::move(outcome), std::move(json));
}

void AttemptPrinter::didFinishWithFailure(KivFailureType type, const std::optional<std::string>& description,
                                          const std::optional<std::string>& signedResponse) {
  Outcome outcome{Outcome::Kind::failure, std::string(rawValue(type)), description.value_or(""), signedResponse};
  nlohmann::ordered_json json{{"call", "didFinishWithFailure"}, {"type", outcome.type}};
  json["description"] = description ? nlohmann::ordered_json(*description) : nlohmann::ordered_json(nullptr);
  json["signedResponse"] = signedResponse ? nlohmann::ordered_json(*signedResponse) : nlohmann::ordered_json(nullptr);
  finish(std::move(outcome), std::move(json));
}

void AttemptPrinter::didFinishWithError(KivErrorType type, const std::string& description) {
  Outcome outcome{Outcome::Kind::error, std::string(rawValue(type)), description, std::nullopt};
  finish(outcome, {{"call", "didFinishWithError"}, {"type", outcome.type}, {"description", description}});
}

void AttemptPrinter::cancelled() { finish(Outcome{Outcome::Kind::cancelled, {}, {}, {}}, {{"call", "cancelled"}}); }

void AttemptPrinter::loading() {
  if (onLoading) onLoading(true);
  if (form_ == Form::json) {
    line(jsonLine({{"call", "loading"}}));
    return;
  }
  line("delegate: loading()");
  if (!interactive_) {
    line("  … fetching the liveness session");
    return;
  }
  spinning_ = true;
  spin();
}

void AttemptPrinter::loaded() {
  if (onLoading) onLoading(false);
  if (form_ == Form::json) {
    line(jsonLine({{"call", "loaded"}}));
    return;
  }
  spinning_ = false;
  nextFrame_.cancel();
  line("delegate: loaded()");
}

void AttemptPrinter::vendorLaunched() {
  if (form_ == Form::human) line("vendor: capture screen up");
}

void AttemptPrinter::vendorStatus(const Status& status) {
  if (form_ == Form::json) return;
  if (const auto* processing = status.as<Status::processing>()) {
    const auto text = "vendor: processing " + progressBar(processing->progress);
    if (interactive_) {
      redraw(text, /*keep=*/true);
    } else {
      line(text);
    }
    return;
  }
  std::string text = "vendor: " + std::string(status.name());
  if (const auto* failure = status.as<Status::failure>()) text += " " + failure->result.description();
  if (const auto* error = status.as<Status::error>()) {
    text += " " + std::string(rawValue(error->iProovError.code()));
    if (error->iProovError.errorDescription()) text += " (" + *error->iProovError.errorDescription() + ")";
  }
  line(text);
}

void AttemptPrinter::finish(Outcome outcome, const nlohmann::ordered_json& call) {
  if (form_ == Form::json) {
    line(jsonLine(call));
  } else {
    spinning_ = false;
    nextFrame_.cancel();
    line("delegate: " + humanCall(call));
  }
  if (outcome_) return;  // the SDK promises one; never report two
  outcome_ = std::move(outcome);
  if (onOutcome_) onOutcome_(*outcome_);
}

void AttemptPrinter::line(const std::string& text) {
  endRedraw();
  // The JSON form escapes by itself; a human line carries the backend's and
  // the vendor's texts as they came.
  std::fputs((form_ == Form::json ? text : terminalSafe(text)).c_str(), out_);
  std::fputc('\n', out_);
  std::fflush(out_);
}

void AttemptPrinter::redraw(const std::string& text, bool keep) {
  keepRedrawn_ = keep;
  std::fputs("\r\x1b[2K", out_);
  std::fputs(text.c_str(), out_);
  std::fflush(out_);
  redrawing_ = true;
}

void AttemptPrinter::endRedraw() {
  if (!redrawing_) return;
  redrawing_ = false;
  // The progress bar's last state stays on screen; the spinner goes.
  std::fputs(keepRedrawn_ ? "\n" : "\r\x1b[2K", out_);
}

void AttemptPrinter::spin() {
  if (!spinning_) return;
  redraw(std::string(kSpinnerFrames[frame_++ % kSpinnerFrames.size()]) + " fetching the liveness session");
  nextFrame_ = main_->postAfter(kSpinnerPeriod, [weak = weak_from_this()] {
    if (auto self = weak.lock()) self->spin();
  });
}

}  // namespace kiv::cli
