// What the host implements to learn how a run ended.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <optional>
#include <string>

#include "kiv/error_types.hpp"
#include "kiv/results.hpp"

namespace kiv {

// Every call is made on the main thread. Exactly one of the first four ends a
// run; loading() and loaded() bracket the SDK's preparation work. The SDK
// holds its delegate weakly (std::weak_ptr), so the host keeps it alive.
class KivFaceLivenessLiteDelegate {
 public:
  virtual ~KivFaceLivenessLiteDelegate() = default;

  // The attempt passed.
  virtual void didFinishWithSuccess(const KivFaceLivenessLiteResult& livenessResult) = 0;
  // The capture completed but was judged a failure; signedResponse is given
  // when the backend produced one.
  virtual void didFinishWithFailure(KivFailureType type, const std::optional<std::string>& description,
                                    const std::optional<std::string>& signedResponse) = 0;
  // The run could not complete.
  virtual void didFinishWithError(KivErrorType type, const std::string& description) = 0;
  // The user abandoned the capture.
  virtual void cancelled() = 0;
  // The SDK started work the host may cover with its own progress indicator.
  virtual void loading() = 0;
  // That work ended.
  virtual void loaded() = 0;
};

}  // namespace kiv

#pragma GCC visibility pop
