#include "service/key_chain_manager.hpp"

#include <gtest/gtest.h>

#include "support/test_platform.hpp"

namespace kiv {
namespace {

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

class KeyChainManagerTest : public testing::PlatformTest {
 protected:
  KeyChainManagerProtocol& keychain = *KivKeyChainManager::shared();
  MemorySecureStore& store = fakeStore();

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

}  // namespace
}  // namespace kiv
