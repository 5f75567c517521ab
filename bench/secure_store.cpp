// Saving and reading items in the real secure store (SQLite with fsync on
// every commit, values sealed), in a temporary directory.
#include <benchmark/benchmark.h>

#include "scratch_platform.hpp"
#include "service/key_chain_manager.hpp"

namespace {

kiv::Bytes payload(std::int64_t size) {
  kiv::Bytes bytes(static_cast<std::size_t>(size));
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 131);
  return bytes;
}

void BM_SecureStoreSave(benchmark::State& state) {
  kiv::bench::ScratchPlatform scratch;
  auto keychain = kiv::KivKeyChainManager::shared();
  const auto value = payload(state.range(0));
  for (auto _ : state) keychain->save("kiv.bench", "item", value, /*update=*/true);
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SecureStoreSave)->Arg(1 << 10)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);

void BM_SecureStoreRead(benchmark::State& state) {
  kiv::bench::ScratchPlatform scratch;
  auto keychain = kiv::KivKeyChainManager::shared();
  keychain->save("kiv.bench", "item", payload(state.range(0)), true);
  for (auto _ : state) benchmark::DoNotOptimize(keychain->readData("kiv.bench", "item"));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SecureStoreRead)->Arg(1 << 10)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);

// A start's credential writes (two deletes, two saves) committed together,
// synced or only written (what a start does).
void BM_SecureStoreCredentialsCommit(benchmark::State& state) {
  kiv::bench::ScratchPlatform scratch;
  auto keychain = kiv::KivKeyChainManager::shared();
  const auto durability = state.range(0) != 0 ? kiv::CommitDurability::synced : kiv::CommitDurability::written;
  for (auto _ : state) {
    keychain->writeTogether(
        [&] {
          keychain->deleteItem("fllitemobileToken");
          keychain->deleteItem("fllitepersonId");
          keychain->save("kiv.sdk.service", "fllitemobileToken", payload(400), /*update=*/true);
          keychain->save("kiv.sdk.service", "fllitepersonId", payload(14), /*update=*/true);
        },
        durability);
  }
}
BENCHMARK(BM_SecureStoreCredentialsCommit)->ArgName("synced")->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

}  // namespace
