// Saving and reading items in the real secure store (SQLite with fsync on
// every commit, values sealed), in a temporary directory.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>

#include "kiv/platform/platform.hpp"
#include "kiv/platform/secure_store.hpp"
#include "service/key_chain_manager.hpp"

namespace {

namespace fs = std::filesystem;

class ScratchStore {
 public:
  ScratchStore() {
    std::string pattern = (fs::temp_directory_path() / "kivfll-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    directory_ = pattern;
    auto bundle = kiv::makeLinuxPlatform();
    bundle.secureStore = kiv::makeLinuxSecureStore(directory_);
    kiv::installPlatform(std::move(bundle));
  }
  ~ScratchStore() {
    kiv::installPlatform(kiv::makeLinuxPlatform());
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }

 private:
  fs::path directory_;
};

kiv::Bytes payload(std::int64_t size) {
  kiv::Bytes bytes(static_cast<std::size_t>(size));
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 131);
  return bytes;
}

void BM_SecureStoreSave(benchmark::State& state) {
  ScratchStore scratch;
  auto keychain = kiv::KivKeyChainManager::shared();
  const auto value = payload(state.range(0));
  for (auto _ : state) keychain->save("kiv.bench", "item", value, /*update=*/true);
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SecureStoreSave)->Arg(1 << 10)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);

void BM_SecureStoreRead(benchmark::State& state) {
  ScratchStore scratch;
  auto keychain = kiv::KivKeyChainManager::shared();
  keychain->save("kiv.bench", "item", payload(state.range(0)), true);
  for (auto _ : state) benchmark::DoNotOptimize(keychain->readData("kiv.bench", "item"));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SecureStoreRead)->Arg(1 << 10)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);

}  // namespace
