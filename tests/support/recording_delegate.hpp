// A host delegate that writes each call down as one line, so a test compares
// a whole run's calls at once:
//
//   "loading", "loaded", "success signed-1", "failure eyes_closed Eyes closed signed-1",
//   "error tokenException Missing token from session", "cancelled"
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "kiv/delegate.hpp"

namespace kiv::testing {

class RecordingDelegate final : public KivFaceLivenessLiteDelegate {
 public:
  void didFinishWithSuccess(const KivFaceLivenessLiteResult& result) override {
    note("success " + result.signedResponse().value_or("-"), true);
  }
  void didFinishWithFailure(KivFailureType type, const std::optional<std::string>& description,
                            const std::optional<std::string>& signedResponse) override {
    note(
        "failure " + std::string(rawValue(type)) + " " + description.value_or("-") + " " + signedResponse.value_or("-"),
        true);
  }
  void didFinishWithError(KivErrorType type, const std::string& description) override {
    note("error " + std::string(rawValue(type)) + " " + description, true);
  }
  void cancelled() override { note("cancelled", true); }
  void loading() override { note("loading", false); }
  void loaded() override { note("loaded", false); }

  const std::vector<std::string>& calls() const { return *calls_; }
  // The same lines, for a test that keeps reading them after letting go of
  // the delegate.
  std::shared_ptr<const std::vector<std::string>> log() const { return calls_; }
  int terminalCalls() const { return terminalCalls_; }
  bool ended() const { return terminalCalls_ > 0; }
  // Called with each line as it is written (after it is recorded).
  std::function<void(const std::string&)> onCall;

 private:
  void note(std::string line, bool terminal) {
    calls_->push_back(line);
    if (terminal) ++terminalCalls_;
    if (onCall) onCall(line);
  }

  std::shared_ptr<std::vector<std::string>> calls_ = std::make_shared<std::vector<std::string>>();
  int terminalCalls_ = 0;
};

}  // namespace kiv::testing
