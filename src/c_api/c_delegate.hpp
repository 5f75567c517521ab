// The facade's delegate for a C host: forwards each call to the host's
// function pointers with plain C strings valid for the call only.
#pragma once

#include "kiv/delegate.hpp"
#include "kiv/face_liveness_lite.h"

namespace kiv::c_api {

class CDelegate final : public KivFaceLivenessLiteDelegate {
 public:
  explicit CDelegate(const kiv_delegate& functions) : functions_(functions) {}

  // No call is forwarded after this; the host may free its user_data.
  // Main thread, like the calls themselves.
  void detach() { attached_ = false; }

  // Whether the calling thread is inside a forwarded call (where releasing
  // the facade must wait until the call unwound).
  static bool insideCall();

  void didFinishWithSuccess(const KivFaceLivenessLiteResult& livenessResult) override;
  void didFinishWithFailure(KivFailureType type, const std::optional<std::string>& description,
                            const std::optional<std::string>& signedResponse) override;
  void didFinishWithError(KivErrorType type, const std::string& description) override;
  void cancelled() override;
  void loading() override;
  void loaded() override;

 private:
  template <typename Call>
  void forward(Call&& call);

  const kiv_delegate functions_;
  bool attached_ = true;
};

}  // namespace kiv::c_api
