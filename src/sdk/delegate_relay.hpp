// The delegate a run is given: it passes every call on to the host's
// delegate (held weakly, as the facade holds it) for as long as the facade
// that started the run exists. Once the host has released the facade, the
// run it leaves behind reaches nobody.
#pragma once

#include <memory>

#include "kiv/delegate.hpp"

namespace kiv {

class DelegateRelay final : public KivFaceLivenessLiteDelegate {
 public:
  explicit DelegateRelay(std::weak_ptr<KivFaceLivenessLiteDelegate> host) : host_(std::move(host)) {}

  void didFinishWithSuccess(const KivFaceLivenessLiteResult& livenessResult) override {
    if (auto host = host_.lock()) host->didFinishWithSuccess(livenessResult);
  }
  void didFinishWithFailure(KivFailureType type, const std::optional<std::string>& description,
                            const std::optional<std::string>& signedResponse) override {
    if (auto host = host_.lock()) host->didFinishWithFailure(type, description, signedResponse);
  }
  void didFinishWithError(KivErrorType type, const std::string& description) override {
    if (auto host = host_.lock()) host->didFinishWithError(type, description);
  }
  void cancelled() override {
    if (auto host = host_.lock()) host->cancelled();
  }
  void loading() override {
    if (auto host = host_.lock()) host->loading();
  }
  void loaded() override {
    if (auto host = host_.lock()) host->loaded();
  }

 private:
  const std::weak_ptr<KivFaceLivenessLiteDelegate> host_;
};

}  // namespace kiv
