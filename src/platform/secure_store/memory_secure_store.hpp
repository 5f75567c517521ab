// An in-memory secure item store for tests, with injectable write failures
// ("secure storage write fails").
//
//   auto store = std::make_shared<MemorySecureStore>();
//   store->failNextAdd(-34018);   // the next add answers -34018 and stores nothing
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "kiv/platform/secure_store.hpp"

namespace kiv {

class MemorySecureStore final : public SecureItemStore {
 public:
  std::int32_t add(std::string_view service, std::string_view account, std::span<const std::uint8_t> value) override;
  std::int32_t update(std::string_view service, std::string_view account, std::span<const std::uint8_t> value) override;
  SecureItemCopy copyMatching(std::string_view service, std::string_view account) override;
  std::int32_t deleteAccount(std::string_view account) override;

  // The next add (or update) answers `status` without touching the items;
  // later ones behave normally again.
  void failNextAdd(std::int32_t status);
  void failNextUpdate(std::int32_t status);

  // Every item, keyed by (service, account), for tests to inspect.
  std::map<std::pair<std::string, std::string>, Bytes> items() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::pair<std::string, std::string>, Bytes, std::less<>> items_;
  std::optional<std::int32_t> nextAddFailure_;
  std::optional<std::int32_t> nextUpdateFailure_;
};

}  // namespace kiv
