// Sandbox: how long one request takes end to end on loopback over a
// kept-alive connection, for the two kinds of work the sandbox does: minting
// a session (identifiers, an Ed25519 signature, two SQLite writes) and
// recording an analytics post (one insert and one update).
#include <benchmark/benchmark.h>
#include <httplib.h>

#include <cstdlib>

#include "sandbox/sandbox_server.hpp"

namespace {

void post(benchmark::State& state, const char* target, const std::string& body) {
  auto sandbox = kiv::sandbox::SandboxServer::start({});
  if (!sandbox) std::abort();
  httplib::Client client("127.0.0.1", (*sandbox)->port());
  client.set_keep_alive(true);
  client.set_tcp_nodelay(true);
  const httplib::Headers headers{{"Authorization", (*sandbox)->mintMobileToken("bench")}};
  for (auto _ : state) {
    auto answer = client.Post(target, headers, body, "application/json");
    if (!answer || answer->status != 200) std::abort();
    benchmark::DoNotOptimize(answer->body.data());
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_MintSession(benchmark::State& state) {
  post(state, "/bff/sessions?asyncAttempt=true", R"({"personId":"p-1","sdk":{"version":"3.2.1","platform":"iOS"}})");
}
BENCHMARK(BM_MintSession)->UseRealTime();

void BM_RecordAnalytics(benchmark::State& state) {
  post(state, "/bff/track-analytics", R"({"userId":"p-1","event":"start_sdk","eventType":"user_interaction"})");
}
BENCHMARK(BM_RecordAnalytics)->UseRealTime();

}  // namespace
