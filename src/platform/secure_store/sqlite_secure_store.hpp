// The Linux secure item store: sealed values in the per-user database.
#pragma once

#include <memory>

#include "kiv/platform/secure_store.hpp"
#include "platform/secure_store/store_database.hpp"

namespace kiv {

class SqliteSecureStore final : public SecureItemStore {
 public:
  explicit SqliteSecureStore(std::shared_ptr<StoreDatabase> database);

  std::int32_t add(std::string_view service, std::string_view account, std::span<const std::uint8_t> value) override;
  std::int32_t update(std::string_view service, std::string_view account, std::span<const std::uint8_t> value) override;
  SecureItemCopy copyMatching(std::string_view service, std::string_view account) override;
  std::int32_t deleteAccount(std::string_view account) override;
  bool writeTogether(const std::function<void()>& operations, CommitDurability durability) override;

 private:
  std::shared_ptr<StoreDatabase> database_;
};

}  // namespace kiv
