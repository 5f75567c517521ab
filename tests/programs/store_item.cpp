// A second process on the secure item store, for tests:
//   kivfll_store_item <dir> expect <service> <account> <value>  exit 0 when the item holds <value>
//   kivfll_store_item <dir> fill <service> <count>             add items "0" .. "<count - 1>" holding their account
// Exit 0 on success, 1 when the store disagrees, 2 on bad arguments.
#include <cstdlib>
#include <string>
#include <string_view>

#include "kiv/platform/secure_store.hpp"

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  const auto store = kiv::makeLinuxSecureStore(std::string(argv[1]));
  const std::string_view command = argv[2];
  if (command == "expect" && argc == 6) {
    const auto copy = store->copyMatching(argv[3], argv[4]);
    const auto expected = kiv::asBytes(argv[5]);
    return copy.data && kiv::Bytes(expected.begin(), expected.end()) == *copy.data ? 0 : 1;
  }
  if (command == "fill" && argc == 5) {
    for (int i = 0; i < std::atoi(argv[4]); ++i) {
      const std::string account = std::to_string(i);
      if (store->add(argv[3], account, kiv::asBytes(account)) != kiv::SecureStoreStatus::success) return 1;
    }
    return 0;
  }
  return 2;
}
