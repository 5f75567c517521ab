#include "service/key_chain_manager.hpp"

#include "base/no_destructor.hpp"
#include "base/unicode_text.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

std::shared_ptr<SecureItemStore> store() { return platform()->secureStore; }

}  // namespace

KeychainError::KeychainError(Kind kind, std::int32_t status)
    : kind_(kind),
      status_(status),
      description_(kind == Kind::duplicateEntry ? std::string("KeychainError.duplicateEntry")
                                                : "KeychainError.unknown(" + std::to_string(status) + ")") {}

KeychainError KeychainError::unknown(std::int32_t status) { return {Kind::unknown, status}; }

KeychainError KeychainError::duplicateEntry() { return {Kind::duplicateEntry, SecureStoreStatus::duplicateItem}; }

std::shared_ptr<KivKeyChainManager> KivKeyChainManager::shared() {
  static NoDestructor<std::shared_ptr<KivKeyChainManager>> instance(std::make_shared<KivKeyChainManager>());
  return *instance;
}

void KivKeyChainManager::save(std::string_view service, std::string_view key, std::span<const std::uint8_t> data,
                              bool update) {
  const auto items = store();
  if (!items) throw KeychainError::unknown(SecureStoreStatus::notAvailable);
  const std::int32_t added = items->add(service, key, data);
  if (added == SecureStoreStatus::success) return;
  if (added != SecureStoreStatus::duplicateItem) throw KeychainError::unknown(added);
  if (!update) throw KeychainError::duplicateEntry();
  // The existing item is found by service and key; only its bytes change.
  const std::int32_t updated = items->update(service, key, data);
  if (updated != SecureStoreStatus::success) throw KeychainError::unknown(updated);
}

std::optional<Bytes> KivKeyChainManager::readData(std::string_view service, std::string_view key) {
  const auto items = store();
  if (!items) return std::nullopt;
  // The status is not examined: whatever came back with the data decides.
  // A host's own store that throws still makes a read give absent.
  try {
    return items->copyMatching(service, key).data;
  } catch (...) {
    return std::nullopt;
  }
}

std::optional<std::string> KivKeyChainManager::readString(std::string_view service, std::string_view key) {
  const auto data = readData(service, key);
  if (!data) return std::nullopt;
  return unicode::decodeUtf8Lossy(*data);
}

bool KivKeyChainManager::writeTogether(const std::function<void()>& operations, CommitDurability durability) {
  const auto items = store();
  if (!items) {
    operations();  // each save reports the missing store itself
    return true;
  }
  return items->writeTogether(operations, durability);
}

void KivKeyChainManager::deleteItem(std::string_view key) {
  const auto items = store();
  if (!items) return;
  try {
    items->deleteAccount(key);
  } catch (...) {
    // Reports nothing, whatever happens.
  }
}

}  // namespace kiv
