#include "sandbox/sandbox_server.hpp"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "sandbox/mobile_token.hpp"

#if defined(__SANITIZE_THREAD__)
// Debian's cpp-httplib is not built for ThreadSanitizer: the ordering its own
// compiled code establishes between its workers is invisible, so copies it
// makes inside itself show up as races. Reports that involve our code still
// come through. Weak, so that a program that brings its own wins.
extern "C" __attribute__((weak)) const char* __tsan_default_suppressions() { return "race:libcpp-httplib.so\n"; }
#endif

namespace kiv::sandbox {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kLoopback = "127.0.0.1";
constexpr const char* kJsonType = "application/json";
// Every kept-alive connection holds a worker for as long as it stays open.
constexpr std::size_t kWorkerThreads = 32;
// Without these the library answers kept-alive requests on loopback ~26 ms
// late (Nagle against delayed ACKs) and closes a connection every 5 requests.
constexpr std::size_t kRequestsPerConnection = 1'000'000;

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

// Fields the server library adds to every request; a client never sent them.
bool isAddedByServer(const std::string& name) {
  return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT";
}

int portOf(const sockaddr_storage& address) {
  if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
  if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
  return -1;
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

// The server library ignores SIGPIPE for the whole process when a server is
// made; a host that embeds the sandbox keeps its own disposition. The
// workers block the signal instead (see the listener thread).
std::unique_ptr<httplib::Server> makeServerKeepingSigpipe() {
  struct sigaction previous {};
  sigaction(SIGPIPE, nullptr, &previous);
  auto server = std::make_unique<httplib::Server>();
  sigaction(SIGPIPE, &previous, nullptr);
  return server;
}

}  // namespace

std::expected<std::unique_ptr<SandboxServer>, std::string> SandboxServer::start(SandboxOptions options) {
  auto log = RequestLog::open(options.database);
  if (!log) return std::unexpected(log.error());
  std::unique_ptr<SandboxServer> sandbox(new SandboxServer(std::move(options), std::move(*log)));

  auto& server = *sandbox->server_;
  const int wanted = sandbox->options_.port;
  if (wanted == 0) {
    sandbox->port_ = server.bind_to_any_port(kLoopback);
  } else if (server.bind_to_port(kLoopback, wanted)) {
    sandbox->port_ = wanted;
  }
  if (sandbox->port_ <= 0) {
    return std::unexpected("cannot listen on " + std::string(kLoopback) + ":" + std::to_string(wanted));
  }
  sandbox->listener_ = std::thread([&server] {
    // The workers are created by this thread and inherit its mask: writing
    // to a connection the client already closed must not end the process.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    server.listen_after_bind();
  });
  // stop() is ignored until the accept loop runs.
  while (!server.is_running()) std::this_thread::yield();
  return sandbox;
}

SandboxServer::SandboxServer(SandboxOptions options, std::unique_ptr<RequestLog> log)
    : options_(std::move(options)),
      key_(options_.key ? *options_.key : SigningKey::generate()),
      log_(std::move(log)),
      server_(makeServerKeepingSigpipe()) {
  // The library's default adds SO_REUSEPORT, which lets a second sandbox
  // bind the same port and take half of the first one's connections. Only
  // SO_REUSEADDR, so a restarted sandbox gets its port back at once.
  server_->set_socket_options([](int socket) {
    int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server_->set_tcp_nodelay(true);
  server_->set_keep_alive_max_count(kRequestsPerConnection);
  server_->new_task_queue = [] { return new httplib::ThreadPool(kWorkerThreads); };
  route();
}

SandboxServer::~SandboxServer() { stop(); }

void SandboxServer::stop() {
  {
    std::lock_guard lock(stopMutex_);
    if (stopping_) return;
    stopping_ = true;
  }
  stopped_.notify_all();
  server_->stop();
  // Kept-alive connections would hold their workers until the keep-alive
  // time-out; closing them lets the workers end now.
  closeConnections(0);
  if (listener_.joinable()) listener_.join();
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
  std::unique_lock lock(arrivalMutex_);
  return arrived_.wait_for(lock, bound, [&] { return log_->requests(filter).size() >= count; });
}

std::expected<FaultRule, std::string> SandboxServer::addFault(std::string_view ruleJson) {
  auto rule = parseFaultRule(ruleJson);
  if (rule) faults_.add(*rule);
  return rule;
}

void SandboxServer::route() {
  const httplib::Server::Handler handler = [this](const httplib::Request& request, httplib::Response& response) {
    if (std::string_view(request.path).starts_with(kControlPrefix)) {
      serveControl(request, response);
    } else {
      serveBackend(request, response);
    }
  };
  server_->Get(".*", handler);
  server_->Post(".*", handler);
  server_->Put(".*", handler);
  server_->Patch(".*", handler);
  server_->Delete(".*", handler);
  server_->Options(".*", handler);
}

void SandboxServer::serveBackend(const httplib::Request& request, httplib::Response& response) {
  SandboxRequest recorded{.receivedAt = isoTime(std::chrono::system_clock::now()),
                          .method = request.method,
                          .path = request.path,
                          .body = request.body};
  if (const auto mark = request.target.find('?'); mark != std::string::npos) {
    recorded.query = request.target.substr(mark + 1);
  }
  for (const auto& [name, value] : request.headers) {
    if (!isAddedByServer(name)) recorded.headers.emplace_back(name, value);
  }
  recorded.id = log_->record(recorded);
  {
    // Taken so that a waiter between its check and its wait still hears this.
    std::lock_guard lock(arrivalMutex_);
  }
  arrived_.notify_all();

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
    closeConnections(request.remote_port);
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

void SandboxServer::closeConnections(int remotePort) const {
  // The server library keeps its accepted sockets to itself; they are found
  // among the process's descriptors by their local port. shutdown() rather
  // than close() leaves the descriptor to the library, which closes it.
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const int fd = std::atoi(entry.path().filename().c_str());
    sockaddr_storage local{};
    sockaddr_storage peer{};
    socklen_t localLength = sizeof local;
    socklen_t peerLength = sizeof peer;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0) continue;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0) continue;
    if (portOf(local) != port_) continue;
    if (remotePort != 0 && portOf(peer) != remotePort) continue;
    shutdown(fd, SHUT_RDWR);
  }
}

}  // namespace kiv::sandbox
