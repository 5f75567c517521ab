// A secure store that hands every call to another one (a memory store unless
// given), for tests that watch or hold back some of the calls: override
// those and call the base for the rest.
#pragma once

#include <functional>
#include <memory>

#include "kiv/platform/secure_store.hpp"
#include "platform/secure_store/memory_secure_store.hpp"

namespace kiv::testing {

class ForwardingStore : public SecureItemStore {
 public:
  explicit ForwardingStore(std::shared_ptr<SecureItemStore> inner = std::make_shared<MemorySecureStore>())
      : inner_(std::move(inner)) {}
  std::int32_t add(std::string_view service, std::string_view account, std::span<const std::uint8_t> value) override {
    return inner_->add(service, account, value);
  }
  std::int32_t update(std::string_view service, std::string_view account,
                      std::span<const std::uint8_t> value) override {
    return inner_->update(service, account, value);
  }
  SecureItemCopy copyMatching(std::string_view service, std::string_view account) override {
    return inner_->copyMatching(service, account);
  }
  std::int32_t deleteAccount(std::string_view account) override { return inner_->deleteAccount(account); }
  bool writeTogether(const std::function<void()>& operations, CommitDurability durability) override {
    return inner_->writeTogether(operations, durability);
  }

 private:
  std::shared_ptr<SecureItemStore> inner_;
};

}  // namespace kiv::testing
