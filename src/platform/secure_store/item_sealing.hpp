// How a stored value is sealed: XChaCha20-Poly1305 under the store's key,
// bound to the item's service and account, so that a value copied into
// another item (or edited in place) no longer opens.
//
// Sealed layout: format byte (1) | random nonce (24) | ciphertext | tag (16).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "kiv/platform/secure_store.hpp"

namespace kiv {

inline constexpr std::size_t kItemKeySize = 32;

// The store's key. Wiped when destroyed.
class ItemKey {
 public:
  ItemKey() = default;
  explicit ItemKey(std::span<const std::uint8_t, kItemKeySize> bytes);
  ~ItemKey();
  ItemKey(const ItemKey& other) = default;
  ItemKey& operator=(const ItemKey& other) = default;

  static ItemKey random();
  const std::array<std::uint8_t, kItemKeySize>& bytes() const { return bytes_; }

 private:
  std::array<std::uint8_t, kItemKeySize> bytes_{};
};

Bytes sealItemValue(const ItemKey& key, std::string_view service, std::string_view account,
                    std::span<const std::uint8_t> value);

// Absent when `sealed` is not a value sealed by sealItemValue under this key
// for this service and account.
std::optional<Bytes> openItemValue(const ItemKey& key, std::string_view service, std::string_view account,
                                   std::span<const std::uint8_t> sealed);

}  // namespace kiv
