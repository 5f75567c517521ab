// How a stored value is sealed: XChaCha20-Poly1305 under the store's key,
// bound to the item's service and account, so that a value copied into
// another item (or edited in place) no longer opens.
//
// Sealed layout: format byte | random nonce (24) | ciphertext | tag (16).
// The format byte is also bound: 1 for a whole value, 2 for the head of a
// value kept in chunks, 3 for one chunk.
//
// A value longer than kItemChunkSize is kept in chunks of that size (the
// last one shorter), each sealed on its own and bound to its index and to a
// keyed digest of its bytes; the head holds the value's length and those
// digests. A chunk opens only with the digest its head lists, so chunks of
// another value, or of an older version of this one, never pass for it; and
// a writer that compares digests rewrites only the chunks that changed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

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

inline constexpr std::size_t kItemChunkSize = 64 * 1024;
inline constexpr std::size_t kChunkDigestSize = 16;
using ChunkDigest = std::array<std::uint8_t, kChunkDigestSize>;

// What the head of a chunked value says.
struct ChunkedHead {
  std::uint64_t length = 0;
  std::uint32_t chunkSize = kItemChunkSize;
  std::vector<ChunkDigest> digests;  // one per chunk, in order
};

// BLAKE2b-128 of each kItemChunkSize chunk of `value`, under a key derived
// from the store's.
std::vector<ChunkDigest> chunkDigests(const ItemKey& key, std::span<const std::uint8_t> value);

// Whether `sealed` is the head of a chunked value (by its format byte).
bool isChunkedHead(std::span<const std::uint8_t> sealed);
Bytes sealChunkedHead(const ItemKey& key, std::string_view service, std::string_view account, const ChunkedHead& head);
// Absent unless `sealed` is a head sealed for this item whose digests fit
// its length.
std::optional<ChunkedHead> openChunkedHead(const ItemKey& key, std::string_view service, std::string_view account,
                                           std::span<const std::uint8_t> sealed);

Bytes sealChunk(const ItemKey& key, std::string_view service, std::string_view account, std::uint64_t index,
                const ChunkDigest& digest, std::span<const std::uint8_t> chunk);
std::optional<Bytes> openChunk(const ItemKey& key, std::string_view service, std::string_view account,
                               std::uint64_t index, const ChunkDigest& digest, std::span<const std::uint8_t> sealed);

Bytes sealItemValue(const ItemKey& key, std::string_view service, std::string_view account,
                    std::span<const std::uint8_t> value);

// Absent when `sealed` is not a value sealed by sealItemValue under this key
// for this service and account.
std::optional<Bytes> openItemValue(const ItemKey& key, std::string_view service, std::string_view account,
                                   std::span<const std::uint8_t> sealed);

}  // namespace kiv
