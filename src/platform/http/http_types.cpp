// The value types of the HTTP interface and the blocking convenience that any
// session implementation inherits.
#include <algorithm>
#include <future>

#include "kiv/platform/http.hpp"

namespace kiv {
namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, [](char x, char y) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    return lower(x) == lower(y);
  });
}

std::string describe(HttpErrorCode code) {
  switch (code) {
    case HttpErrorCode::cancelled:
      return "The request was cancelled.";
    case HttpErrorCode::timedOut:
      return "The request timed out.";
    case HttpErrorCode::badURL:
      return "The URL is not valid.";
    case HttpErrorCode::unsupportedURL:
      return "The URL is not supported.";
    case HttpErrorCode::cannotFindHost:
      return "A server with the specified hostname could not be found.";
    case HttpErrorCode::cannotConnectToHost:
      return "Could not connect to the server.";
    case HttpErrorCode::networkConnectionLost:
      return "The network connection was lost.";
    case HttpErrorCode::badServerResponse:
      return "The server returned a response that is not valid HTTP.";
    case HttpErrorCode::secureConnectionFailed:
      return "A secure connection to the server could not be made.";
    case HttpErrorCode::httpTooManyRedirects:
      return "The server redirected too many times.";
    case HttpErrorCode::dataLengthExceedsMaximum:
      return "The response exceeds the maximum size.";
    case HttpErrorCode::unknown:
      break;
  }
  return "The request could not be completed.";
}

}  // namespace

std::optional<std::string> headerValue(const HttpHeaders& headers, std::string_view name) {
  for (const auto& header : headers) {
    if (equalsIgnoringCase(header.name, name)) return header.value;
  }
  return std::nullopt;
}

void HttpRequest::setValue(std::string value, std::string name) {
  for (auto& header : headers) {
    if (equalsIgnoringCase(header.name, name)) {
      header.value = std::move(value);
      return;
    }
  }
  headers.push_back({std::move(name), std::move(value)});
}

HttpError::HttpError(HttpErrorCode code, std::string detail)
    : code_(code), description_(describe(code)), detail_(std::move(detail)) {}

DataTaskResult HttpSession::send(HttpRequest request) {
  // Shared, because the completion may still be unwinding on the session's
  // thread after get() has returned here.
  auto promise = std::make_shared<std::promise<DataTaskResult>>();
  auto future = promise->get_future();
  dataTask(std::move(request), [promise](DataTaskResult result) { promise->set_value(std::move(result)); })->resume();
  return future.get();
}

}  // namespace kiv
