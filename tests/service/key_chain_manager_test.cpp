#include "service/key_chain_manager.hpp"

#include <gtest/gtest.h>

#include "platform/secure_store/memory_secure_store.hpp"
#include "service/lossy_utf8.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

class KeyChainManagerTest : public testing::PlatformTest {
 protected:
  KeyChainManagerProtocol& keychain = *KivKeyChainManager::shared();
  MemorySecureStore& store = dynamic_cast<MemorySecureStore&>(*platform()->secureStore);

  // What save threw, or absent.
  std::optional<KeychainError> saveError(std::string_view key, std::string_view value, bool update) {
    try {
      keychain.save(kKivSDKService, key, asBytes(value), update);
    } catch (const KeychainError& error) {
      return error;
    }
    return std::nullopt;
  }
};

TEST_F(KeyChainManagerTest, ASecondSaveIsRefusedWithoutUpdateAndReplacesWithIt) {
  EXPECT_EQ(saveError(kMobileTokenKey, "first", false), std::nullopt);
  EXPECT_EQ(saveError(kMobileTokenKey, "second", false), KeychainError::duplicateEntry());
  EXPECT_EQ(keychain.readData(kKivSDKService, kMobileTokenKey), bytesOf("first"));

  EXPECT_EQ(saveError(kMobileTokenKey, "third", true), std::nullopt);
  EXPECT_EQ(saveError(kMobileTokenKey, "fourth", true), std::nullopt);
  EXPECT_EQ(keychain.readString(kKivSDKService, kMobileTokenKey), "fourth");
  EXPECT_EQ(store.items().size(), 1u);
}

TEST_F(KeyChainManagerTest, AStoreFailureThrowsItsStatus) {
  store.failNextAdd(-34018);
  EXPECT_EQ(saveError(kPersonIdKey, "p", false), KeychainError::unknown(-34018));
  EXPECT_EQ(keychain.readData(kKivSDKService, kPersonIdKey), std::nullopt);

  ASSERT_EQ(saveError(kPersonIdKey, "p", false), std::nullopt);
  store.failNextUpdate(-25308);
  EXPECT_EQ(saveError(kPersonIdKey, "q", true), KeychainError::unknown(-25308));
  EXPECT_EQ(keychain.readString(kKivSDKService, kPersonIdKey), "p");

  EXPECT_STREQ(KeychainError::unknown(-25308).what(), "KeychainError.unknown(-25308)");
}

TEST_F(KeyChainManagerTest, DeleteRemovesTheKeyUnderEveryServiceAndIsSilent) {
  keychain.save(kKivSDKService, kMobileTokenKey, asBytes("a"), false);
  keychain.save("kiv.analytics", kMobileTokenKey, asBytes("b"), false);
  keychain.save(kKivSDKService, kPersonIdKey, asBytes("c"), false);
  keychain.deleteItem(kMobileTokenKey);
  EXPECT_EQ(keychain.readData(kKivSDKService, kMobileTokenKey), std::nullopt);
  EXPECT_EQ(keychain.readData("kiv.analytics", kMobileTokenKey), std::nullopt);
  EXPECT_EQ(keychain.readString(kKivSDKService, kPersonIdKey), "c");
  keychain.deleteItem(kMobileTokenKey);  // nothing left: still silent
  keychain.deleteItem("never stored");
}

TEST_F(KeyChainManagerTest, ReadingBadBytesGivesReplacementCharacters) {
  keychain.save(kKivSDKService, "raw", Bytes{0xFF, 0x41}, false);
  EXPECT_EQ(keychain.readString(kKivSDKService, "raw"), "\xEF\xBF\xBD\x41");
  EXPECT_EQ(keychain.readData(kKivSDKService, "raw"), (Bytes{0xFF, 0x41}));
  keychain.save(kKivSDKService, "empty", Bytes{}, false);
  EXPECT_EQ(keychain.readString(kKivSDKService, "empty"), "");  // present, not absent
}

TEST_F(KeyChainManagerTest, WithoutAStoreSavesThrowAndReadsGiveAbsent) {
  testPlatform().bundle().secureStore.reset();
  testPlatform().install();
  EXPECT_EQ(saveError("k", "v", true), KeychainError::unknown(SecureStoreStatus::notAvailable));
  EXPECT_EQ(keychain.readString(kKivSDKService, "k"), std::nullopt);
  keychain.deleteItem("k");
}

// U+FFFD once per maximal ill-formed subpart, as Unicode recommends.
struct LossyCase {
  const char* name;
  std::string bytes;
  std::string text;
  friend void PrintTo(const LossyCase& c, std::ostream* out) { *out << c.name; }
};

class LossyUtf8Test : public ::testing::TestWithParam<LossyCase> {};

TEST_P(LossyUtf8Test, DecodesWithReplacement) {
  const auto& c = GetParam();
  EXPECT_EQ(decodeUtf8Lossy(asBytes(c.bytes)), c.text);
}

constexpr const char* R = "\xEF\xBF\xBD";

INSTANTIATE_TEST_SUITE_P(Sequences, LossyUtf8Test,
                         ::testing::Values(LossyCase{"wellFormedWithNul", std::string("a\0\xC3\xA9\xF0\x9F\x98\x80", 8),
                                                     std::string("a\0\xC3\xA9\xF0\x9F\x98\x80", 8)},
                                           // Truncated sequences and stray continuation bytes.
                                           LossyCase{"unicodeExample",
                                                     "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
                                                     std::string("a") + R + R + R + "b" + R + "c" + R + R + "d"},
                                           // A lead byte whose second byte is out of its range starts no sequence.
                                           LossyCase{"surrogate", "\xED\xA0\x80", std::string(R) + R + R}),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace kiv
