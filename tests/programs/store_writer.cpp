// A process that writes to the secure store until it is killed:
//
//   kivfll_store_writer <store directory> <first generation> <keys>
//
// Write i (from 0) puts writtenValue(i % keys, first generation + i) under
// the account writtenAccount(i % keys), adding the item when it is missing.
// Just before write i starts it writes a line break to standard output, so
// the one who kills it knows how many writes had begun. Exits 1 when the store
// refuses a write, 2 on bad arguments; otherwise it never ends by itself.
#include <unistd.h>

#include <cstdint>
#include <string>

#include "kiv/platform/secure_store.hpp"
#include "support/written_values.hpp"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const auto store = kiv::makeLinuxSecureStore(std::string(argv[1]));
  const std::uint64_t first = std::stoull(argv[2]);
  const int keys = std::stoi(argv[3]);
  if (keys <= 0) return 2;
  const char started = '\n';
  for (std::uint64_t i = 0;; ++i) {
    const int key = static_cast<int>(i % static_cast<std::uint64_t>(keys));
    const std::string account = kiv::testing::writtenAccount(key);
    const auto value = kiv::testing::writtenValue(key, first + i);
    if (write(STDOUT_FILENO, &started, 1) != 1) return 1;
    std::int32_t status = store->update(kiv::testing::kWrittenService, account, value);
    if (status == kiv::SecureStoreStatus::itemNotFound) {
      status = store->add(kiv::testing::kWrittenService, account, value);
    }
    if (status != kiv::SecureStoreStatus::success) return 1;
  }
}
