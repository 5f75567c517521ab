#include "platform/secure_store/item_sealing.hpp"

#include <sodium.h>

#include <algorithm>
#include <stdexcept>

namespace kiv {
namespace {

constexpr std::uint8_t kFormat = 1;
constexpr std::uint8_t kHeadFormat = 2;
constexpr std::uint8_t kChunkFormat = 3;
constexpr std::size_t kNonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t kHeaderSize = 1 + kNonceSize;
// The head's plain text: length (8) | chunk size (4) | digests.
constexpr std::size_t kHeadFixedSize = 8 + 4;
constexpr char kDigestKeyContext[crypto_kdf_CONTEXTBYTES + 1] = "kivchunk";

static_assert(kItemKeySize == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);
static_assert(kItemKeySize == crypto_kdf_KEYBYTES);

void appendLittleEndian(Bytes& out, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

std::uint64_t readLittleEndian(std::span<const std::uint8_t> in, int bytes) {
  std::uint64_t value = 0;
  for (int i = 0; i < bytes; ++i) value |= static_cast<std::uint64_t>(in[static_cast<std::size_t>(i)]) << (8 * i);
  return value;
}

// format | service length (8 bytes, little-endian) | service | account |
// extra. The length keeps ("ab", "c") and ("a", "bc") apart; the account
// needs none, as what follows it has a fixed size for each format.
Bytes associatedData(std::uint8_t format, std::string_view service, std::string_view account,
                     std::span<const std::uint8_t> extra = {}) {
  Bytes data;
  data.reserve(1 + 8 + service.size() + account.size() + extra.size());
  data.push_back(format);
  appendLittleEndian(data, service.size(), 8);
  data.insert(data.end(), service.begin(), service.end());
  data.insert(data.end(), account.begin(), account.end());
  data.insert(data.end(), extra.begin(), extra.end());
  return data;
}

void ensureSodium() {
  if (sodium_init() < 0) throw std::runtime_error("libsodium cannot be initialised");
}

}  // namespace

ItemKey::ItemKey(std::span<const std::uint8_t, kItemKeySize> bytes) {
  std::copy(bytes.begin(), bytes.end(), bytes_.begin());
}

ItemKey::~ItemKey() { sodium_memzero(bytes_.data(), bytes_.size()); }

ItemKey ItemKey::random() {
  ensureSodium();
  ItemKey key;
  crypto_aead_xchacha20poly1305_ietf_keygen(key.bytes_.data());
  return key;
}

namespace {

Bytes seal(const ItemKey& key, std::uint8_t format, const Bytes& ad, std::span<const std::uint8_t> value) {
  ensureSodium();
  Bytes sealed(kHeaderSize + value.size() + kTagSize);
  sealed[0] = format;
  randombytes_buf(sealed.data() + 1, kNonceSize);
  unsigned long long written = 0;
  crypto_aead_xchacha20poly1305_ietf_encrypt(sealed.data() + kHeaderSize, &written, value.data(), value.size(),
                                             ad.data(), ad.size(), nullptr, sealed.data() + 1, key.bytes().data());
  sealed.resize(kHeaderSize + static_cast<std::size_t>(written));
  return sealed;
}

std::optional<Bytes> open(const ItemKey& key, std::uint8_t format, const Bytes& ad,
                          std::span<const std::uint8_t> sealed) {
  if (sealed.size() < kHeaderSize + kTagSize || sealed[0] != format) return std::nullopt;
  ensureSodium();
  const auto cipher = sealed.subspan(kHeaderSize);
  Bytes value(cipher.size() - kTagSize);
  unsigned long long written = 0;
  if (crypto_aead_xchacha20poly1305_ietf_decrypt(value.data(), &written, nullptr, cipher.data(), cipher.size(),
                                                 ad.data(), ad.size(), sealed.data() + 1, key.bytes().data()) != 0) {
    return std::nullopt;
  }
  value.resize(static_cast<std::size_t>(written));
  return value;
}

Bytes chunkExtra(std::uint64_t index, const ChunkDigest& digest) {
  Bytes extra;
  appendLittleEndian(extra, index, 8);
  extra.insert(extra.end(), digest.begin(), digest.end());
  return extra;
}

}  // namespace

Bytes sealItemValue(const ItemKey& key, std::string_view service, std::string_view account,
                    std::span<const std::uint8_t> value) {
  return seal(key, kFormat, associatedData(kFormat, service, account), value);
}

std::optional<Bytes> openItemValue(const ItemKey& key, std::string_view service, std::string_view account,
                                   std::span<const std::uint8_t> sealed) {
  return open(key, kFormat, associatedData(kFormat, service, account), sealed);
}

std::vector<ChunkDigest> chunkDigests(const ItemKey& key, std::span<const std::uint8_t> value) {
  ensureSodium();
  std::array<std::uint8_t, crypto_generichash_KEYBYTES> digestKey{};
  crypto_kdf_derive_from_key(digestKey.data(), digestKey.size(), 1, kDigestKeyContext, key.bytes().data());
  std::vector<ChunkDigest> digests;
  digests.reserve((value.size() + kItemChunkSize - 1) / kItemChunkSize);
  for (std::size_t at = 0; at < value.size(); at += kItemChunkSize) {
    const auto chunk = value.subspan(at, std::min(kItemChunkSize, value.size() - at));
    crypto_generichash(digests.emplace_back().data(), kChunkDigestSize, chunk.data(), chunk.size(), digestKey.data(),
                       digestKey.size());
  }
  sodium_memzero(digestKey.data(), digestKey.size());
  return digests;
}

bool isChunkedHead(std::span<const std::uint8_t> sealed) { return !sealed.empty() && sealed[0] == kHeadFormat; }

Bytes sealChunkedHead(const ItemKey& key, std::string_view service, std::string_view account, const ChunkedHead& head) {
  Bytes plain;
  plain.reserve(kHeadFixedSize + head.digests.size() * kChunkDigestSize);
  appendLittleEndian(plain, head.length, 8);
  appendLittleEndian(plain, head.chunkSize, 4);
  for (const auto& digest : head.digests) plain.insert(plain.end(), digest.begin(), digest.end());
  return seal(key, kHeadFormat, associatedData(kHeadFormat, service, account), plain);
}

std::optional<ChunkedHead> openChunkedHead(const ItemKey& key, std::string_view service, std::string_view account,
                                           std::span<const std::uint8_t> sealed) {
  const auto plain = open(key, kHeadFormat, associatedData(kHeadFormat, service, account), sealed);
  if (!plain || plain->size() < kHeadFixedSize || (plain->size() - kHeadFixedSize) % kChunkDigestSize != 0) {
    return std::nullopt;
  }
  ChunkedHead head;
  head.length = readLittleEndian(*plain, 8);
  head.chunkSize = static_cast<std::uint32_t>(readLittleEndian(std::span(*plain).subspan(8), 4));
  const std::size_t count = (plain->size() - kHeadFixedSize) / kChunkDigestSize;
  if (head.chunkSize == 0 || (head.length + head.chunkSize - 1) / head.chunkSize != count) return std::nullopt;
  head.digests.resize(count);
  for (std::size_t i = 0; i < count; ++i) {
    std::copy_n(plain->begin() + static_cast<std::ptrdiff_t>(kHeadFixedSize + i * kChunkDigestSize), kChunkDigestSize,
                head.digests[i].begin());
  }
  return head;
}

Bytes sealChunk(const ItemKey& key, std::string_view service, std::string_view account, std::uint64_t index,
                const ChunkDigest& digest, std::span<const std::uint8_t> chunk) {
  return seal(key, kChunkFormat, associatedData(kChunkFormat, service, account, chunkExtra(index, digest)), chunk);
}

std::optional<Bytes> openChunk(const ItemKey& key, std::string_view service, std::string_view account,
                               std::uint64_t index, const ChunkDigest& digest, std::span<const std::uint8_t> sealed) {
  return open(key, kChunkFormat, associatedData(kChunkFormat, service, account, chunkExtra(index, digest)), sealed);
}

}  // namespace kiv
