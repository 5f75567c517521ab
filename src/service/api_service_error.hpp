// How a backend request can fail. Every request completes exactly once, with
// its decoded answer or with one of these cases; callers switch on the case:
//
//   std::visit(overloaded{
//       [](const APIServiceError::httpError& e) { ... e.statusCode ... },
//       [](const auto& other) { ... }}, error.value);
//   if (auto* http = error.as<APIServiceError::httpError>()) ...
#pragma once

#include <concepts>
#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <variant>

namespace kiv {

struct APIServiceError {
  // Not produced by KivService; there for callers that wrap other transports.
  struct networkError {
    std::string message;
    bool operator==(const networkError&) const = default;
  };
  // A 2xx answer whose body is not the expected record.
  struct decodingError {
    std::string message;
    bool operator==(const decodingError&) const = default;
  };
  // A transport error on an HTTP answer, a 500, or any status outside 2xx.
  struct httpError {
    std::int64_t statusCode = 0;
    std::string message;
    bool operator==(const httpError&) const = default;
  };
  // An HTTP answer with no body at all (an empty body is not this).
  struct noData {
    bool operator==(const noData&) const = default;
  };
  // No answer, or one that is not HTTP.
  struct invalidResponse {
    bool operator==(const invalidResponse&) const = default;
  };

  using Case = std::variant<networkError, decodingError, httpError, noData, invalidResponse>;

  template <typename C>
  requires std::constructible_from<Case, C&&> APIServiceError(C&& c)
      : value(std::forward<C>(c)) {}  // NOLINT(google-explicit-constructor): a case is an error

  template <typename C>
  bool is() const {
    return std::holds_alternative<C>(value);
  }
  template <typename C>
  const C* as() const {
    return std::get_if<C>(&value);
  }

  bool operator==(const APIServiceError&) const = default;

  Case value;
};

// The error as its case reads in a log: `noData`, `invalidResponse`,
// `httpError(statusCode: 404, message: "x")`, `decodingError("...")`. The
// session flow turns the two payload-free cases into their description text.
std::string description(const APIServiceError& error);

std::ostream& operator<<(std::ostream& out, const APIServiceError& error);

}  // namespace kiv
