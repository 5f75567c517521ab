#include "sandbox/sandbox_server.hpp"

#include <httplib.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "sandbox/mobile_token.hpp"

namespace kiv::sandbox {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kJsonType = "application/json";

constexpr std::string_view kControlPrefix = "/_sandbox/";
constexpr std::string_view kSessionsPath = "/bff/sessions";
constexpr std::string_view kTransactionsPrefix = "/bff/transactions/";
constexpr std::string_view kTransactionsSuffix = "/async";
constexpr std::string_view kTrackAnalyticsPath = "/bff/track-analytics";
constexpr std::string_view kIdentifyAnalyticsPath = "/bff/identify-analytics";
constexpr std::string_view kCrashlyticsPath = "/bff/crashlytics";

constexpr std::string_view kAuthorization = "Authorization";
constexpr std::string_view kPersonIdKey = "personId";

// How one backend request is answered.
struct Answer {
  int status = 200;
  std::string body;
  std::string outcome;
};

// A client's bytes (a path, a header, a body) need not be UTF-8; what the
// sandbox writes back of them has the invalid bytes replaced, so that one odd
// request never stops the answers or the listing.
std::string dumped(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string messageBody(std::string_view message) { return dumped(Json{{"message", message}}); }

Answer refusal(int status, std::string_view message, std::string outcome) {
  return {.status = status, .body = messageBody(message), .outcome = std::move(outcome)};
}

std::string trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1));
}

struct Route {
  SandboxEndpoint endpoint;
  std::string livenessAttemptId;  // transactions only
};

std::optional<Route> routeOf(std::string_view path) {
  if (path == kSessionsPath) return Route{SandboxEndpoint::sessions, {}};
  if (path == kTrackAnalyticsPath) return Route{SandboxEndpoint::trackAnalytics, {}};
  if (path == kIdentifyAnalyticsPath) return Route{SandboxEndpoint::identifyAnalytics, {}};
  if (path == kCrashlyticsPath) return Route{SandboxEndpoint::crashlytics, {}};
  if (path.starts_with(kTransactionsPrefix) && path.ends_with(kTransactionsSuffix) &&
      path.size() >= kTransactionsPrefix.size() + kTransactionsSuffix.size()) {
    path.remove_prefix(kTransactionsPrefix.size());
    path.remove_suffix(kTransactionsSuffix.size());
    return Route{SandboxEndpoint::transactions, std::string(path)};
  }
  return std::nullopt;
}

std::optional<std::string> textAt(const nlohmann::json& object, std::string_view key) {
  if (!object.is_object()) return std::nullopt;
  const auto found = object.find(std::string(key));
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

Json requestJson(const SandboxRequest& request) {
  Json headers = Json::object();
  for (const auto& [name, value] : request.headers) {
    if (headers.contains(name)) {
      headers[name] = headers[name].get<std::string>() + ", " + value;
    } else {
      headers[name] = value;
    }
  }
  return Json{{"id", request.id},          {"receivedAt", request.receivedAt},
              {"method", request.method},  {"path", request.path},
              {"query", request.query},    {"headers", std::move(headers)},
              {"body", request.body},      {"status", request.status ? Json(*request.status) : Json(nullptr)},
              {"outcome", request.outcome}};
}

}  // namespace

std::expected<std::unique_ptr<SandboxServer>, std::string> SandboxServer::start(SandboxOptions options) {
  auto log = RequestLog::open(options.database);
  if (!log) return std::unexpected(log.error());
  std::unique_ptr<SandboxServer> sandbox(new SandboxServer(std::move(options), std::move(*log)));
  auto server = loopback::LoopbackServer::listen({
      .port = sandbox->options_.port,
      .handler =
          [raw = sandbox.get()](const httplib::Request& request, httplib::Response& response) {
            if (std::string_view(request.path).starts_with(kControlPrefix)) {
              raw->serveControl(request, response);
            } else {
              raw->serveBackend(request, response);
            }
          },
  });
  if (!server) return std::unexpected(server.error());
  sandbox->port_ = (*server)->port();
  sandbox->server_ = std::move(*server);
  return sandbox;
}

SandboxServer::SandboxServer(SandboxOptions options, std::unique_ptr<RequestLog> log)
    : options_(std::move(options)), key_(options_.key ? *options_.key : SigningKey::generate()), log_(std::move(log)) {}

SandboxServer::~SandboxServer() { stop(); }

void SandboxServer::stop() {
  {
    std::lock_guard lock(stopMutex_);
    if (stopping_) return;
    stopping_ = true;
  }
  stopped_.notify_all();
  if (server_) server_->stop();
}

std::string SandboxServer::rootURL() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

std::string SandboxServer::mintMobileToken(std::string_view issuer,
                                           const std::optional<std::string>& serviceLocation) const {
  return sandbox::mintMobileToken(issuer, serviceLocation, key_);
}

std::vector<SandboxRequest> SandboxServer::requests(const RequestFilter& filter) const {
  return log_->requests(filter);
}

bool SandboxServer::waitForRequests(const RequestFilter& filter, std::size_t count,
                                    std::chrono::milliseconds bound) const {
  return arrivals_.waitUntil([&] { return log_->requests(filter).size() >= count; }, bound);
}

std::expected<FaultRule, std::string> SandboxServer::addFault(std::string_view ruleJson) {
  auto rule = parseFaultRule(ruleJson);
  if (rule) faults_.add(*rule);
  return rule;
}

void SandboxServer::serveBackend(const httplib::Request& request, httplib::Response& response) {
  SandboxRequest recorded{.receivedAt = isoTime(std::chrono::system_clock::now()),
                          .method = request.method,
                          .path = request.path,
                          .body = request.body};
  if (const auto mark = request.target.find('?'); mark != std::string::npos) {
    recorded.query = request.target.substr(mark + 1);
  }
  recorded.headers = loopback::LoopbackServer::sentHeaders(request);
  recorded.id = log_->record(recorded);
  arrivals_.announce();

  const auto body = nlohmann::json::parse(request.body, nullptr, false);
  const auto routed = routeOf(request.path);
  std::optional<FaultRule> fault;
  if (routed && request.method == "POST") {
    // The person a request is for: the session body says it, the analytics
    // envelope carries it, a transaction's attempt remembers it.
    std::optional<std::string> personId = textAt(body, kPersonIdKey);
    if (!personId && body.is_object() && body.contains("properties")) {
      personId = textAt(body["properties"], kPersonIdKey);
    }
    if (!personId && routed->endpoint == SandboxEndpoint::transactions) {
      if (auto session = log_->session(routed->livenessAttemptId)) personId = session->personId;
    }
    fault = faults_.take(routed->endpoint, personId);
  }

  Answer answer;
  if (fault && fault->delayMs > 0) pause(fault->delayMs);
  if (fault && fault->drop) {
    // Settled first: a client that sees the connection close may read the log at once.
    recorded.outcome = "fault: connection dropped";
    log_->settle(recorded.id, std::nullopt, recorded.outcome);
    loopback::LoopbackServer::shutDownConnectionOf(request);
    if (options_.onRequest) options_.onRequest(recorded);
    return;
  }
  if (fault && fault->malformed) {
    answer = {
        .status = fault->status.value_or(200), .body = std::string(kMalformedBody), .outcome = "fault: malformed body"};
  } else if (fault && fault->status) {
    answer = {.status = *fault->status,
              .body = fault->body.value_or(messageBody("Injected fault")),
              .outcome = "fault: status " + std::to_string(*fault->status)};
  } else if (!routed) {
    answer = refusal(404, "No such endpoint: " + request.path, "not found");
  } else if (request.method != "POST") {
    answer = refusal(405, "Use POST on " + request.path, "method not allowed");
  } else if (routed->endpoint == SandboxEndpoint::sessions) {
    const std::string token = trimmed(request.get_header_value(std::string(kAuthorization)));
    const auto personId = textAt(body, kPersonIdKey);
    if (token.empty()) {
      answer = refusal(401, "Missing Authorization header", "refused: no Authorization");
    } else if (!personId || trimmed(*personId).empty()) {
      answer = refusal(400, "The body must be a JSON object with a personId", "refused: no personId");
    } else {
      SessionRequest sessionRequest{.personId = *personId, .clientId = tokenIssuer(token).value_or(token)};
      if (body.contains("sdk")) {
        sessionRequest.sdkVersion = textAt(body["sdk"], "version");
        sessionRequest.sdkPlatform = textAt(body["sdk"], "platform");
      }
      auto minted = mintSession(sessionRequest, options_.sessions, key_, std::chrono::system_clock::now());
      log_->rememberSession(minted.record);
      answer = {.status = 200, .body = std::move(minted.json), .outcome = "session " + minted.record.sessionId};
    }
  } else if (routed->endpoint == SandboxEndpoint::transactions) {
    const auto session = log_->session(routed->livenessAttemptId);
    if (!session) {
      answer =
          refusal(404, "Unknown liveness attempt \"" + routed->livenessAttemptId + "\"", "refused: unknown attempt");
    } else if (textAt(body, "sessionId") != session->sessionId) {
      answer = refusal(422, "sessionId is not the session of liveness attempt " + routed->livenessAttemptId,
                       "refused: wrong sessionId");
    } else {
      answer = {.status = 200, .body = "{}", .outcome = "transaction for session " + session->sessionId};
    }
  } else {
    answer = {.status = 200, .body = "{}", .outcome = std::string(endpointName(routed->endpoint))};
  }

  response.status = answer.status;
  if (!answer.body.empty()) response.set_content(answer.body, kJsonType);
  recorded.status = answer.status;
  recorded.outcome = answer.outcome;
  log_->settle(recorded.id, recorded.status, recorded.outcome);
  if (options_.onRequest) options_.onRequest(recorded);
}

void SandboxServer::serveControl(const httplib::Request& request, httplib::Response& response) {
  const std::string_view what = std::string_view(request.path).substr(kControlPrefix.size());
  const auto reply = [&](int status, const Json& body) {
    response.status = status;
    response.set_content(dumped(body), kJsonType);
  };

  if (what == "requests" && request.method == "GET") {
    RequestFilter filter;
    if (request.has_param("path")) filter.path = request.get_param_value("path");
    if (request.has_param("method")) filter.method = request.get_param_value("method");
    if (request.has_param("after")) {
      const std::string after = request.get_param_value("after");
      char* end = nullptr;
      const long long id = std::strtoll(after.c_str(), &end, 10);
      if (after.empty() || *end != '\0') return reply(400, Json{{"message", "\"after\" must be a request id"}});
      filter.afterId = id;
    }
    Json list = Json::array();
    for (const auto& recorded : log_->requests(filter)) list.push_back(requestJson(recorded));
    return reply(200, list);
  }
  if (what == "requests" && request.method == "DELETE") return reply(200, Json{{"cleared", log_->clearRequests()}});
  if (what == "faults" && request.method == "GET") {
    Json list = Json::array();
    for (const auto& rule : faults_.rules()) list.push_back(Json::parse(faultRuleJson(rule)));
    return reply(200, list);
  }
  if (what == "faults" && request.method == "POST") {
    auto rule = addFault(request.body);
    if (!rule) return reply(400, Json{{"message", rule.error()}});
    return reply(201, Json::parse(faultRuleJson(*rule)));
  }
  if (what == "faults" && request.method == "DELETE") return reply(200, Json{{"cleared", clearFaults()}});
  if (what == "key" && request.method == "GET") {
    return reply(200, Json{{"alg", "EdDSA"}, {"publicKey", publicKey()}});
  }
  reply(404, Json{{"message", "No such sandbox control: " + request.method + " " + request.path}});
}

void SandboxServer::pause(std::int64_t milliseconds) {
  std::unique_lock lock(stopMutex_);
  stopped_.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return stopping_; });
}

}  // namespace kiv::sandbox
