#include "platform/secure_store/memory_secure_store.hpp"

namespace kiv {
namespace {

std::pair<std::string, std::string> itemKey(std::string_view service, std::string_view account) {
  return {std::string(service), std::string(account)};
}

}  // namespace

std::int32_t MemorySecureStore::add(std::string_view service, std::string_view account,
                                    std::span<const std::uint8_t> value) {
  std::lock_guard lock(mutex_);
  if (auto failure = std::exchange(nextAddFailure_, std::nullopt)) return *failure;
  const bool inserted = items_.try_emplace(itemKey(service, account), value.begin(), value.end()).second;
  return inserted ? SecureStoreStatus::success : SecureStoreStatus::duplicateItem;
}

std::int32_t MemorySecureStore::update(std::string_view service, std::string_view account,
                                       std::span<const std::uint8_t> value) {
  std::lock_guard lock(mutex_);
  if (auto failure = std::exchange(nextUpdateFailure_, std::nullopt)) return *failure;
  auto it = items_.find(itemKey(service, account));
  if (it == items_.end()) return SecureStoreStatus::itemNotFound;
  it->second.assign(value.begin(), value.end());
  return SecureStoreStatus::success;
}

SecureItemCopy MemorySecureStore::copyMatching(std::string_view service, std::string_view account) {
  std::lock_guard lock(mutex_);
  auto it = items_.find(itemKey(service, account));
  if (it == items_.end()) return {SecureStoreStatus::itemNotFound, std::nullopt};
  return {SecureStoreStatus::success, it->second};
}

std::int32_t MemorySecureStore::deleteAccount(std::string_view account) {
  std::lock_guard lock(mutex_);
  const auto removed = std::erase_if(items_, [&](const auto& item) { return item.first.second == account; });
  return removed > 0 ? SecureStoreStatus::success : SecureStoreStatus::itemNotFound;
}

void MemorySecureStore::failNextAdd(std::int32_t status) {
  std::lock_guard lock(mutex_);
  nextAddFailure_ = status;
}

void MemorySecureStore::failNextUpdate(std::int32_t status) {
  std::lock_guard lock(mutex_);
  nextUpdateFailure_ = status;
}

std::map<std::pair<std::string, std::string>, Bytes> MemorySecureStore::items() const {
  std::lock_guard lock(mutex_);
  return {items_.begin(), items_.end()};
}

}  // namespace kiv
