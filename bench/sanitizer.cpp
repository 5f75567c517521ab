// The telemetry sanitiser on the bodies it meets: API responses of typical
// and of large size, and a large plain text such as a stack trace or log.
// Each figure has a baseline measured in the same run (the Baseline*
// benchmarks): the JSON library parsing and serialising the same text, and
// memcpy of the same plain bytes. scripts/bench prints the ratios.
#include <benchmark/benchmark.h>

#include <cstring>
#include <map>
#include <string>

#include "base/json.hpp"
#include "service/log_sanitizer.hpp"

namespace {

// An API-response-like JSON text of about `bytes` bytes: an array of
// records with texts, numbers, booleans and a nested object.
std::string jsonBody(std::size_t bytes) {
  std::string body = "{\"status\":\"ok\",\"items\":[";
  for (int i = 0; body.size() < bytes; ++i) {
    if (i > 0) body += ',';
    body += "{\"id\":" + std::to_string(i) + ",\"name\":\"person " + std::to_string(i) +
            " \\u00e9\\u00e8\",\"email\":\"p" + std::to_string(i) +
            "@example.com\",\"score\":" + std::to_string(i * 0.25) +
            ",\"active\":true,\"tags\":[\"a\",\"b\",\"c\"],\"address\":{\"city\":\"Lisboa\",\"zip\":\"1000-001\"}}";
  }
  body += "]}";
  return body;
}

// One object of many short members: quadratic for a parser that finds
// keys by linear search.
std::string wideJsonBody(std::size_t bytes) {
  std::string body = "{";
  for (int i = 0; body.size() < bytes; ++i) {
    if (i > 0) body += ',';
    body += "\"key" + std::to_string(i) + "\":" + std::to_string(i);
  }
  body += "}";
  return body;
}

std::string plainText(std::size_t bytes) {
  const std::string line = "at kiv::Flow::run(std::string_view) frame \xC3\xA9\xE2\x82\xAC line 42\n";
  std::string text;
  while (text.size() < bytes) text += line;
  return text;
}

void run(benchmark::State& state, const std::string& text) {
  for (auto _ : state) benchmark::DoNotOptimize(kiv::truncateBodyText(text));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_TruncateJson70KB(benchmark::State& state) { run(state, jsonBody(70 * 1024)); }
void BM_TruncateJson1MB(benchmark::State& state) { run(state, jsonBody(1024 * 1024)); }
void BM_TruncateWideJson1MB(benchmark::State& state) { run(state, wideJsonBody(1024 * 1024)); }
void BM_TruncatePlain1MB(benchmark::State& state) { run(state, plainText(1024 * 1024)); }

// What the sanitiser is held against: the JSON library's own parse and
// compact serialisation of the same text, and copying the plain bytes.
void parseAndDump(benchmark::State& state, const std::string& text) {
  for (auto _ : state) benchmark::DoNotOptimize(kiv::Json::parse(text).dump());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_BaselineJsonParseDump70KB(benchmark::State& state) { parseAndDump(state, jsonBody(70 * 1024)); }
void BM_BaselineJsonParseDump1MB(benchmark::State& state) { parseAndDump(state, jsonBody(1024 * 1024)); }
void BM_BaselineMemcpyPlain1MB(benchmark::State& state) {
  const std::string text = plainText(1024 * 1024);
  std::string copy(text.size(), '\0');
  for (auto _ : state) {
    std::memcpy(copy.data(), text.data(), text.size());
    benchmark::DoNotOptimize(copy.data());
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

// The common case: a handful of short parameters of one event.
void BM_SanitizeSmallParameters(benchmark::State& state) {
  const std::map<std::string, std::string> params{{"sdk_name", "KivFaceLivenessLite"},
                                                  {"sdk_version", "3.2.1"},
                                                  {"apiEndpoint", "bff/sessions?asyncAttempt=true"},
                                                  {"responseCode", "200"},
                                                  {"responseTime", "0.215"}};
  for (auto _ : state) benchmark::DoNotOptimize(kiv::sanitizeDictionary(params));
}

BENCHMARK(BM_TruncateJson70KB)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_TruncateJson1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TruncateWideJson1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TruncatePlain1MB)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SanitizeSmallParameters)->Unit(benchmark::kNanosecond);
BENCHMARK(BM_BaselineJsonParseDump70KB)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BaselineJsonParseDump1MB)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BaselineMemcpyPlain1MB)->Unit(benchmark::kMicrosecond);

}  // namespace
