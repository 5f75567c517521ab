// The Linux secure item store: sealed values in the per-user database. A
// value longer than one chunk (item_sealing.hpp) is kept in chunk rows
// under a head in its item's row, so that rewriting a long value that
// changed at its end (the offline analytics queue, which grows by
// appending) writes and syncs its last chunks only.
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
  // add() when `insert`, else update().
  std::int32_t writeItem(std::string_view service, std::string_view account, std::span<const std::uint8_t> value,
                         bool insert);

  std::shared_ptr<StoreDatabase> database_;
};

}  // namespace kiv
