// The Linux platform bundle for a benchmark: the secure store in a fresh
// temporary directory, a silent console, and the network path reported
// unusable (so no queue flush runs in the middle of a measurement). The
// bundle in place before is put back, and the directory removed, at the end.
//
//   ScratchPlatform scratch;                       // or ScratchPlatform(httpFactory)
//   auto keychain = kiv::KivKeyChainManager::shared();
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "kiv/platform/console.hpp"
#include "kiv/platform/http.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/secure_store.hpp"
#include "platform/path_monitor/fake_path_monitor.hpp"

namespace kiv::bench {

class ScratchPlatform {
 public:
  explicit ScratchPlatform(std::shared_ptr<HttpSessionFactory> http = nullptr) {
    std::string pattern = (std::filesystem::temp_directory_path() / "kivfll-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    directory_ = pattern;
    auto bundle = makeLinuxPlatform();
    bundle.secureStore = makeLinuxSecureStore(directory_);
    bundle.console = std::make_shared<SilentConsole>();
    bundle.pathMonitor = std::make_shared<FakePathMonitorFactory>(NetworkPathStatus::unsatisfied);
    if (http) bundle.http = std::move(http);
    installPlatform(std::move(bundle));
  }
  ~ScratchPlatform() {
    installPlatform(makeLinuxPlatform());
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  ScratchPlatform(const ScratchPlatform&) = delete;
  ScratchPlatform& operator=(const ScratchPlatform&) = delete;

 private:
  class SilentConsole final : public Console {
   public:
    void writeLine(std::string_view) override {}
  };

  std::filesystem::path directory_;
};

}  // namespace kiv::bench
