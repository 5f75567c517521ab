// What a running capture reports, under the vendor's own names.
//
// A capture reports any number of progress statuses (connecting, connected,
// processing) and ends with exactly one final status: success, failure,
// canceled or error. Statuses reach the launcher's callback in the order the
// vendor produced them, on a thread of the vendor's choosing (see
// capture_vendor.hpp).
//
//   [](const Status& status) {
//     if (auto failed = status.as<Status::failure>()) show(failed->result.reasons);
//     else if (status.is<Status::connected>()) ...;
//   }
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "kiv/platform/ui/image.hpp"
#include "kiv/raw_value.hpp"

namespace kiv {

// One reason why the vendor judged a capture a failure.
struct FailureReason {
  std::string feedbackCode;          // snake_case, e.g. "eyes_closed"; may be one the SDK does not know
  std::string localizedDescription;  // for the person in front of the camera
  friend bool operator==(const FailureReason&, const FailureReason&) = default;
};

struct FailureResult {
  std::vector<FailureReason> reasons;  // most important first; may be empty

  // The vendor's own text for the whole result, for logs:
  // "FailureResult(reasons: [eyes_closed, too_dark])".
  std::string description() const;
  friend bool operator==(const FailureResult&, const FailureResult&) = default;
};

struct SuccessResult {
  ImageRef frame;  // a frame of the capture when the vendor gives one
};

// Who ended a canceled capture.
enum class Canceler { user, integration };

template <>
struct RawValueTraits<Canceler> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<Canceler, std::string_view>, 2> table{{
      {Canceler::user, "user"},
      {Canceler::integration, "integration"},
  }};
};

// Why the vendor could not complete a capture.
class IProovError {
 public:
  enum class Code {
    network,
    server,
    unexpected,
    captureAlreadyActive,
    cameraPermissionDenied,
    userTimeout,
    notSupported,
    invalidOptions,
    cameraUnavailable,
  };

  explicit IProovError(Code code, std::optional<std::string> errorDescription = std::nullopt)
      : code_(code), errorDescription_(std::move(errorDescription)) {}

  Code code() const { return code_; }
  // The vendor's text for the error; absent when it gave none.
  const std::optional<std::string>& errorDescription() const { return errorDescription_; }

  friend bool operator==(const IProovError&, const IProovError&) = default;

 private:
  Code code_;
  std::optional<std::string> errorDescription_;
};

// Raw values equal the case names.
template <>
struct RawValueTraits<IProovError::Code> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<IProovError::Code, std::string_view>, 9> table{{
      {IProovError::Code::network, "network"},
      {IProovError::Code::server, "server"},
      {IProovError::Code::unexpected, "unexpected"},
      {IProovError::Code::captureAlreadyActive, "captureAlreadyActive"},
      {IProovError::Code::cameraPermissionDenied, "cameraPermissionDenied"},
      {IProovError::Code::userTimeout, "userTimeout"},
      {IProovError::Code::notSupported, "notSupported"},
      {IProovError::Code::invalidOptions, "invalidOptions"},
      {IProovError::Code::cameraUnavailable, "cameraUnavailable"},
  }};
};

class Status {
 public:
  // The cases keep the vendor's names.
  struct connecting {};
  struct connected {};
  struct processing {
    double progress = 0;  // 0...1
    std::string message;
  };
  struct success {
    SuccessResult result;
  };
  struct failure {
    FailureResult result;
  };
  struct canceled {
    Canceler canceler = Canceler::user;
  };
  struct error {
    IProovError iProovError;
  };

  using Case = std::variant<connecting, connected, processing, success, failure, canceled, error>;

  // Status s = Status::connected{};
  template <typename C, typename = std::enable_if_t<std::is_constructible_v<Case, C&&>>>
  Status(C&& value) : value_(std::forward<C>(value)) {}

  template <typename C>
  bool is() const {
    return std::holds_alternative<C>(value_);
  }
  // The payload of case C, or null for another case.
  template <typename C>
  const C* as() const {
    return std::get_if<C>(&value_);
  }
  const Case& value() const { return value_; }

  // success, failure, canceled and error end the capture.
  bool isFinal() const;
  // The case's name: "connecting", "connected", "processing", "success",
  // "failure", "canceled" or "error".
  std::string_view name() const;

 private:
  Case value_;
};

// Called with each status of one capture, on any thread (one at a time).
using StatusCallback = std::function<void(const Status&)>;

}  // namespace kiv

#pragma GCC visibility pop
