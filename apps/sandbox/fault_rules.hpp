// Faults the sandbox injects into its answers, chosen per request while it
// runs, so a host's error handling can be driven from outside.
//
// A rule is written as a JSON object (POST _sandbox/faults):
//
//   {"endpoint": "sessions",   sessions, transactions, track-analytics,
//                              identify-analytics, crashlytics, or analytics
//                              (the last three at once); required
//    "personId": "p-422",      only requests for this person (the session
//                              body's personId, the analytics envelope's, or
//                              the person of the transaction's attempt)
//    "times": 1,               how many matching requests it spoils; absent:
//                              every one until the rules are cleared
//    "delayMs": 250,           wait before answering
//    "status": 422,            answer this status instead ...
//    "body": "...",            ... with this body (needs "status")
//    "malformed": true,        answer (the status, else 200) with a body that
//                              is not JSON
//    "drop": true}             close the connection without an answer
//
// A rule needs at least one of delayMs, status, malformed and drop; a delay
// alone only holds the normal answer back. Unknown keys are refused, so a
// misspelt rule never silently does nothing.
//
// FaultBook is safe from any thread.
#pragma once

#include <cstdint>
#include <expected>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::sandbox {

// The backend endpoints a fault can target.
enum class SandboxEndpoint { sessions, transactions, trackAnalytics, identifyAnalytics, crashlytics };

std::string_view endpointName(SandboxEndpoint endpoint);

struct FaultRule {
  // Absent: every analytics endpoint ("analytics").
  std::optional<SandboxEndpoint> endpoint;
  std::optional<std::string> personId;
  std::optional<std::int64_t> times;
  std::int64_t delayMs = 0;
  std::optional<int> status;
  std::optional<std::string> body;
  bool malformed = false;
  bool drop = false;

  bool targets(SandboxEndpoint candidate) const;
  bool operator==(const FaultRule&) const = default;
};

// The rule in `json`, or the reason it is refused.
std::expected<FaultRule, std::string> parseFaultRule(std::string_view json);
// The rule as JSON in the form parseFaultRule reads.
std::string faultRuleJson(const FaultRule& rule);

// The body a malformed answer carries: the start of a JSON object, cut off.
inline constexpr std::string_view kMalformedBody = R"({"id":"sandbox-malformed","supplier":{"ty)";

class FaultBook {
 public:
  void add(FaultRule rule);
  // Removes every rule; returns how many there were.
  std::size_t clear();
  std::vector<FaultRule> rules() const;

  // The first rule, in the order added, that targets `endpoint` and either
  // names no person or names `personId`. A rule with a count is used up by
  // this call and removed when it reaches zero.
  std::optional<FaultRule> take(SandboxEndpoint endpoint, const std::optional<std::string>& personId);

 private:
  mutable std::mutex mutex_;
  std::vector<FaultRule> rules_;
};

}  // namespace kiv::sandbox
