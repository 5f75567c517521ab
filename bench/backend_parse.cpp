// Reading backend answers of one wide object (100,000 short members, about
// 1 MB): the answer classification of a 2xx body and the error-message
// extraction of a failed one, against nlohmann's own parse of the same text
// into its map-keyed json as the baseline of the run. Both readers must stay
// linear in the body; the ordered Json that nlohmann's parser fills is
// quadratic in an object's member count.
#include <benchmark/benchmark.h>

#include <nlohmann/json.hpp>
#include <string>

#include "service/response_classification.hpp"
#include "service/session_format.hpp"
#include "service/string_utils.hpp"

namespace {

// {"message":"m","k1":0,"k2":0,...} with `members` members in all.
std::string wideBody(std::int64_t members) {
  std::string body = R"({"message":"m")";
  for (std::int64_t i = 1; i < members; ++i) body += ",\"k" + std::to_string(i) + "\":0";
  return body + "}";
}

void report(benchmark::State& state, const std::string& body) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * body.size()));
  state.counters["bytes"] = static_cast<double>(body.size());
}

void BM_BaselineNlohmannParse(benchmark::State& state) {
  const auto body = wideBody(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(nlohmann::json::parse(body));
  report(state, body);
}

void BM_ClassifySessionAnswer(benchmark::State& state) {
  const kiv::TransportOutcome outcome{.response = kiv::TransportOutcome::Response{.statusCode = 200},
                                      .data = wideBody(state.range(0)),
                                      .error = std::nullopt};
  for (auto _ : state) benchmark::DoNotOptimize(kiv::classifyResponse<kiv::SessionResponse>(outcome));
  report(state, *outcome.data);
}

void BM_ExtractErrorMessage(benchmark::State& state) {
  const std::optional<std::string> body = wideBody(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(kiv::KivStringUtils::extractErrorMessage(body));
  report(state, *body);
}

// 100,000 members make about 1 MB; 6,000 members stay under the 64 KiB that
// extractErrorMessage reads as JSON.
BENCHMARK(BM_BaselineNlohmannParse)->Arg(6'000)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ClassifySessionAnswer)->Arg(6'000)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExtractErrorMessage)->Arg(6'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace
