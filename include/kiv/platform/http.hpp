// The HTTP client: URL sessions that run data tasks.
//
// A session is made from a configuration by the installed platform's
// HttpSessionFactory. Every session is ephemeral: it keeps no response cache
// and no cookie store, so no cookie is ever stored or sent. A data task
// completes exactly once, on a thread of the session (never on the thread
// that created or resumed it), with what arrived: the HTTP response or none,
// the body bytes or none, and a transport error or none.
//
//   auto session = kiv::platform()->http->makeSession(kiv::HttpSessionConfiguration{});
//   kiv::HttpRequest request{.url = base + "bff/sessions", .method = "POST", .body = bytes, .timeoutSeconds = 20};
//   request.setValue("application/json", "content-type");
//   session->dataTask(std::move(request), [weak](kiv::DataTaskResult result) {
//     if (auto self = weak.lock()) self->handle(std::move(result));   // on the session's thread
//   })->resume();
//
// Code already running on a background task may block instead:
//   kiv::DataTaskResult result = session->send(std::move(request));
#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kiv {

// One header field. Names keep the case the caller gave them, on the wire too;
// lookups ignore case.
struct HttpHeader {
  std::string name;
  std::string value;
  friend bool operator==(const HttpHeader&, const HttpHeader&) = default;
};
using HttpHeaders = std::vector<HttpHeader>;

// The first value of the field `name` (ASCII case ignored), or absent.
std::optional<std::string> headerValue(const HttpHeaders& headers, std::string_view name);

// How a request may use cached data. The raw values are those of the phone
// platform's request cache policies. No session keeps a cache, so every policy
// loads from the network; the policy states the caller's intent.
enum class HttpCachePolicy {
  useProtocolCachePolicy = 0,
  reloadIgnoringLocalCacheData = 1,
  reloadIgnoringLocalAndRemoteCacheData = 4,
};

struct HttpRequest {
  std::string url{};
  std::string method = "GET";  // sent as given ("POST", "GET", ...)
  HttpHeaders headers{};       // sent in this order, names with their case
  // The body bytes. Sent for every method but GET and HEAD; absent sends none.
  std::optional<std::string> body{};
  // Idle limit: the request fails with `timedOut` once no byte has moved
  // for this long (connecting included); a slow but steady answer may take
  // longer as a whole. Non-positive values mean the default of 60 seconds.
  double timeoutSeconds = 60.0;
  HttpCachePolicy cachePolicy = HttpCachePolicy::useProtocolCachePolicy;

  // Sets the field `name` to `value`, replacing the first field of that name
  // (any case) in place, or appending it. The argument order is the phone
  // platform's (value first).
  void setValue(std::string value, std::string name);
  std::optional<std::string> value(std::string_view name) const { return headerValue(headers, name); }
};

// An HTTP answer: its status and header fields as received.
struct HttpResponse {
  std::string url{};  // the URL that answered (after redirects)
  int statusCode = 0;
  HttpHeaders headers{};

  std::optional<std::string> value(std::string_view name) const { return headerValue(headers, name); }
};

// An answer from something that does not speak HTTP (a host's bridge for
// another scheme, a test's fake). Callers treat it as "not an HTTP response".
struct NonHttpResponse {
  std::string url;
};

using UrlResponse = std::variant<HttpResponse, NonHttpResponse>;

enum class HttpErrorCode {
  cancelled,               // the task was cancelled or its session ended
  timedOut,                // the request's time-out passed
  badURL,                  // the URL text is not a URL
  unsupportedURL,          // a URL this client cannot load (not http or https)
  cannotFindHost,          // the host name did not resolve
  cannotConnectToHost,     // nobody accepted the connection
  networkConnectionLost,   // the connection broke during the exchange
  badServerResponse,       // the peer's answer was not valid HTTP
  secureConnectionFailed,  // TLS could not be established or verified
  httpTooManyRedirects,
  dataLengthExceedsMaximum,  // the answer's body is larger than the session takes
  unknown,
};

// A transport failure: no complete HTTP exchange took place. Thrown as is by
// callers whose operation is defined to throw transport errors.
class HttpError : public std::exception {
 public:
  explicit HttpError(HttpErrorCode code, std::string detail = {});

  HttpErrorCode code() const { return code_; }
  // A sentence for people, fixed per code: "The request timed out."
  const std::string& localizedDescription() const { return description_; }
  // What the transport said, for diagnostics; may be empty.
  const std::string& detail() const { return detail_; }
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  HttpErrorCode code_;
  std::string description_;
  std::string detail_;
};

// What a data task delivers. Typical shapes: a response with body bytes (an
// empty body is present and empty); an error alone; a response together with
// an error when the connection broke after the status line arrived.
struct DataTaskResult {
  std::optional<std::string> data{};
  std::optional<UrlResponse> response{};
  std::optional<HttpError> error{};

  // The response when it is an HTTP one, else null.
  const HttpResponse* httpResponse() const { return response ? std::get_if<HttpResponse>(&*response) : nullptr; }
};

using DataTaskCompletion = std::function<void(DataTaskResult)>;

// One request on a session. Created suspended; resume() starts it.
class HttpDataTask {
 public:
  virtual ~HttpDataTask() = default;
  // Starts the task; later calls do nothing. Safe from any thread.
  virtual void resume() = 0;
  // Ends the task: unless it already completed, the completion receives a
  // `cancelled` error (a suspended task is completed that way too). Safe from
  // any thread, idempotent.
  virtual void cancel() = 0;
};

struct HttpSessionConfiguration {
  // The policy for requests that ask for useProtocolCachePolicy.
  HttpCachePolicy requestCachePolicy = HttpCachePolicy::reloadIgnoringLocalAndRemoteCacheData;
  // Limit for a whole transfer, from connecting to the last body byte,
  // however steadily bytes arrive. Seven days, as on the phone platform.
  double timeoutIntervalForResource = 7 * 24 * 60 * 60;
  // Transfers to one host beyond this many wait for a free connection.
  int maximumConnectionsPerHost = 6;
  // The largest answer body a transfer takes. One announced or found to be
  // larger ends the transfer with `dataLengthExceedsMaximum`, so memory and
  // time stay bounded whatever a server sends; no answer of the backend
  // comes near it.
  std::size_t maximumResponseBodyBytes = 4 * 1024 * 1024;
  // Names the session's thread in debuggers (at most 15 characters are kept).
  std::string label = "kiv.http";
};

class HttpSession {
 public:
  virtual ~HttpSession() = default;

  // A suspended task for `request`. `completion` runs exactly once for a task
  // that is resumed or cancelled, on the session's thread; a task dropped
  // without either never runs it. Safe from any thread.
  virtual std::shared_ptr<HttpDataTask> dataTask(HttpRequest request, DataTaskCompletion completion) = 0;

  // Cancels every task, running each pending completion with `cancelled`, and
  // refuses new ones (they complete with `cancelled`). Blocks until the
  // completions have run unless called from one of them. Dropping the last
  // reference to a session does the same.
  virtual void invalidateAndCancel() = 0;

  // Runs `request` and blocks the calling thread until its result is in. For
  // code that already runs on a background task, never on the main queue.
  // Called from one of this session's own completions it returns a
  // `cancelled` error at once instead of waiting for itself.
  virtual DataTaskResult send(HttpRequest request);
};

// The platform slot `http`.
class HttpSessionFactory {
 public:
  virtual ~HttpSessionFactory() = default;
  // Safe from any thread.
  virtual std::shared_ptr<HttpSession> makeSession(HttpSessionConfiguration configuration) = 0;
};

}  // namespace kiv
