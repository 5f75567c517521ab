#include "telemetry/crash_logs_manager.hpp"

#include <gtest/gtest.h>

#include <regex>

#include "service/key_chain_manager.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

constexpr std::string_view kService = "kiv.sdk.service";

CrashRecord signalRecord(std::string trace) {
  return CrashRecord{{"signal", 11}, {"createdAt", "2026-01-01 00:00:00 +0000"}, {"stackTrace", std::move(trace)}};
}

class CrashLogsManagerTest : public testing::PlatformTest {
 protected:
  CrashLogsManagerTest() { KivCrashLogsManager::setServiceName(std::string(kService)); }

  std::shared_ptr<KivKeyChainManager> keychain = KivKeyChainManager::shared();
  KivCrashLogsManager manager{keychain};

  std::string itemText(std::string_view service) {
    auto text = keychain->readString(service, kCrashLogsKey);
    return text.value_or("<none>");
  }
};

TEST_F(CrashLogsManagerTest, SignalRecordsWithTheSameStackTraceAreStoredOnce) {
  manager.saveCrashLog(signalRecord("frame 1\nframe 2"));
  manager.saveCrashLog(signalRecord("frame 1\nframe 2"));
  manager.saveCrashLog(signalRecord("frame 3"));

  auto logs = manager.getCrashLogs();
  ASSERT_TRUE(logs);
  ASSERT_EQ(logs->size(), 2u);
  EXPECT_EQ((*logs)[0]["stackTrace"], "frame 1\nframe 2");
  EXPECT_EQ((*logs)[1]["stackTrace"], "frame 3");
  // Keys as saved, "id" appended; the item is one compact JSON array.
  EXPECT_EQ(json::dumpCompact((*logs)[0]).rfind(R"({"signal":11,"createdAt":"2026-01-01 00:00:00 +0000",)", 0), 0u);
  const std::regex upperUuid("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  EXPECT_TRUE(std::regex_match((*logs)[0]["id"].get<std::string>(), upperUuid));
  EXPECT_EQ(itemText(kService), json::dumpCompact(Json(*logs)));

  EXPECT_EQ(manager.findCrashLogId("frame 3"), (*logs)[1]["id"].get<std::string>());
  EXPECT_EQ(manager.findCrashLogId("frame"), std::nullopt);
}

TEST_F(CrashLogsManagerTest, EqualExceptionRecordsAreBothKeptWithTheirOwnIds) {
  const CrashRecord exception{
      {"name", "std::runtime_error"}, {"reason", "boom"}, {"callStackSymbols", Json::array({"a"})}};
  manager.saveCrashLog(exception);
  manager.saveCrashLog(exception);
  auto logs = manager.getCrashLogs();
  ASSERT_TRUE(logs);
  ASSERT_EQ(logs->size(), 2u);
  EXPECT_NE((*logs)[0]["id"], (*logs)[1]["id"]);

  manager.deleteCrashLog((*logs)[0]["id"].get<std::string>());
  auto left = manager.getCrashLogs();
  ASSERT_TRUE(left);
  ASSERT_EQ(left->size(), 1u);
  EXPECT_EQ((*left)[0]["id"], (*logs)[1]["id"]);
  EXPECT_TRUE(consoleLines().empty());
}

TEST_F(CrashLogsManagerTest, AnUnreadableItemReadsAsNothingAndIsReplacedByTheNextSave) {
  keychain->save(kService, kCrashLogsKey, asBytes("[{\"signal\":"), true);
  EXPECT_EQ(manager.getCrashLogs(), std::nullopt);
  ASSERT_EQ(consoleLines().size(), 1u);
  EXPECT_EQ(consoleLines()[0].rfind("\"Failed to retrieve crash logs: ", 0), 0u);

  manager.saveCrashLog(signalRecord("new"));
  auto logs = manager.getCrashLogs();
  ASSERT_TRUE(logs);
  ASSERT_EQ(logs->size(), 1u);
  EXPECT_EQ((*logs)[0]["stackTrace"], "new");

  // Valid JSON that is not a list of objects is no list either, silently.
  keychain->save(kService, kCrashLogsKey, asBytes("[{},1]"), true);
  EXPECT_EQ(manager.getCrashLogs(), std::nullopt);
  EXPECT_EQ(consoleLines().size(), 2u);
}

}  // namespace
}  // namespace kiv
