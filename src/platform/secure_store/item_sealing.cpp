#include "platform/secure_store/item_sealing.hpp"

#include <sodium.h>

#include <stdexcept>

namespace kiv {
namespace {

constexpr std::uint8_t kFormat = 1;
constexpr std::size_t kNonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kTagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t kHeaderSize = 1 + kNonceSize;

static_assert(kItemKeySize == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);

// format | service length (8 bytes, little-endian) | service | account. The
// length keeps ("ab", "c") and ("a", "bc") apart.
Bytes associatedData(std::string_view service, std::string_view account) {
  Bytes data;
  data.reserve(1 + 8 + service.size() + account.size());
  data.push_back(kFormat);
  auto length = static_cast<std::uint64_t>(service.size());
  for (int i = 0; i < 8; ++i) data.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
  data.insert(data.end(), service.begin(), service.end());
  data.insert(data.end(), account.begin(), account.end());
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

Bytes sealItemValue(const ItemKey& key, std::string_view service, std::string_view account,
                    std::span<const std::uint8_t> value) {
  ensureSodium();
  const Bytes ad = associatedData(service, account);
  Bytes sealed(kHeaderSize + value.size() + kTagSize);
  sealed[0] = kFormat;
  randombytes_buf(sealed.data() + 1, kNonceSize);
  unsigned long long written = 0;
  crypto_aead_xchacha20poly1305_ietf_encrypt(sealed.data() + kHeaderSize, &written, value.data(), value.size(),
                                             ad.data(), ad.size(), nullptr, sealed.data() + 1, key.bytes().data());
  sealed.resize(kHeaderSize + static_cast<std::size_t>(written));
  return sealed;
}

std::optional<Bytes> openItemValue(const ItemKey& key, std::string_view service, std::string_view account,
                                   std::span<const std::uint8_t> sealed) {
  if (sealed.size() < kHeaderSize + kTagSize || sealed[0] != kFormat) return std::nullopt;
  ensureSodium();
  const Bytes ad = associatedData(service, account);
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

}  // namespace kiv
