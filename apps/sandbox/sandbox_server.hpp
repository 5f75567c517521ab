// The sandbox backend: a stand-in for the maker's backend on 127.0.0.1 that
// speaks the SDK's backend API, records what it receives and injects faults
// on demand, for the command-line host's demo and for end-to-end tests.
//
//   auto sandbox = kiv::sandbox::SandboxServer::start({.port = 0});   // ephemeral port
//   if (!sandbox) die(sandbox.error());
//   kiv::setBackendRootURL(kiv::KivEnvironment::dev, (*sandbox)->rootURL());
//   std::string token = (*sandbox)->mintMobileToken("client-7");
//   (*sandbox)->addFault(R"({"endpoint":"sessions","status":422,"times":1})");
//   ... run the SDK ...
//   auto sessions = (*sandbox)->requests({.path = "bff/sessions"});
//
// Backend endpoints (under the root URL):
//   POST bff/sessions?asyncAttempt=true     a new session (401 without Authorization,
//                                           400 without a personId in the body)
//   POST bff/transactions/{attemptId}/async {} for an attempt it minted (404 otherwise,
//                                           422 when the body's sessionId is not the attempt's)
//   POST bff/track-analytics, bff/identify-analytics, bff/crashlytics   {}
// Control endpoints (not recorded):
//   GET    _sandbox/requests[?path=bff/sessions&method=POST&after=ID]   the log as JSON
//   DELETE _sandbox/requests
//   GET    _sandbox/faults, POST _sandbox/faults (a rule, see fault_rules.hpp; 400 with
//          the reason when it is refused), DELETE _sandbox/faults
//   GET    _sandbox/key                      {"alg":"EdDSA","publicKey":...}
//
// Every answer with a body is JSON; errors carry {"message": ...}. The server
// runs its own threads; every member is safe from any thread. Destruction
// stops it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "loopback/loopback_server.hpp"
#include "sandbox/fault_rules.hpp"
#include "sandbox/request_log.hpp"
#include "sandbox/session_minter.hpp"
#include "sandbox/signing.hpp"

namespace kiv::sandbox {

struct SandboxOptions {
  int port = 0;                                     // 0: an ephemeral port
  std::optional<std::filesystem::path> database{};  // absent: in memory
  SessionTemplate sessions{};
  // The signing key; absent: a fresh one.
  std::optional<SigningKey> key{};
  // Called once for every backend request, after it was answered (or
  // dropped), on one of the server's threads.
  std::function<void(const SandboxRequest&)> onRequest{};
};

class SandboxServer {
 public:
  // Listening once it returns; the reason when the port or the database
  // cannot be had.
  static std::expected<std::unique_ptr<SandboxServer>, std::string> start(SandboxOptions options);
  ~SandboxServer();
  SandboxServer(const SandboxServer&) = delete;
  SandboxServer& operator=(const SandboxServer&) = delete;

  int port() const { return port_; }
  // "http://127.0.0.1:<port>/": what a host sets as the backend root.
  std::string rootURL() const;
  // The Ed25519 key that signs every signedResponse, as text.
  std::string publicKey() const { return key_.publicKeyText(); }
  const SigningKey& key() const { return key_; }

  std::string mintMobileToken(std::string_view issuer,
                              const std::optional<std::string>& serviceLocation = std::nullopt) const;

  std::vector<SandboxRequest> requests(const RequestFilter& filter = {}) const;
  // Waits until `count` requests matching `filter` have arrived (answered or
  // not); false at the bound. For requests a host sends without waiting.
  bool waitForRequests(const RequestFilter& filter, std::size_t count,
                       std::chrono::milliseconds bound = std::chrono::seconds(10)) const;
  // Adds a rule written as JSON; the reason when it is refused.
  std::expected<FaultRule, std::string> addFault(std::string_view ruleJson);
  void addFault(FaultRule rule) { faults_.add(std::move(rule)); }
  std::size_t clearFaults() { return faults_.clear(); }

  // Stops listening, cuts injected delays short and closes every
  // connection. Idempotent.
  void stop();

 private:
  SandboxServer(SandboxOptions options, std::unique_ptr<RequestLog> log);

  void serveBackend(const httplib::Request& request, httplib::Response& response);
  void serveControl(const httplib::Request& request, httplib::Response& response);
  // Waits `milliseconds` or until the server stops.
  void pause(std::int64_t milliseconds);

  SandboxOptions options_;
  SigningKey key_;
  std::unique_ptr<RequestLog> log_;
  FaultBook faults_;
  std::unique_ptr<loopback::LoopbackServer> server_;
  int port_ = 0;
  loopback::Arrivals arrivals_;

  std::mutex stopMutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
};

}  // namespace kiv::sandbox
