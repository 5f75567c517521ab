#include "telemetry/crash_handler.hpp"

#include <gtest/gtest.h>

#include "platform/crash/fake_crash_primitives.hpp"
#include "platform/secure_store/memory_secure_store.hpp"
#include "service/key_chain_manager.hpp"
#include "support/test_platform.hpp"
#include "telemetry/crash_report_sender.hpp"

namespace kiv {
namespace {

constexpr std::string_view kService = "kiv.sdk.service";
// The fake's two frames, symbolised.
constexpr std::string_view kTrace = "fake(symbol+0x1000)\nfake(symbol+0x2000)";

enum class Answer { succeed, fail, never };

struct Post {
  CrashRecord record;
  std::string stackTrace;
  CrashReportResult result;
};

// An analytics client that keeps what it was asked to post.
struct RecordingSender {
  Answer answer;
  mutable std::mutex mutex;
  std::vector<Post> posts_;
  std::vector<CrashReportCompletion> unanswered_;

  std::vector<Post> posts() const {
    std::lock_guard lock(mutex);
    return posts_;
  }
  std::vector<CrashReportCompletion> unanswered() const {
    std::lock_guard lock(mutex);
    return unanswered_;
  }
};

class CrashHandlerTest : public testing::PlatformTest {
 protected:
  FakeCrashPrimitives& crash = fakeCrash();
  std::shared_ptr<KivKeyChainManager> keychain = KivKeyChainManager::shared();
  KivCrashLogsManager logs{keychain};

  std::shared_ptr<RecordingSender> sender(Answer answer) {
    auto recording = std::make_shared<RecordingSender>(answer);
    setCrashReportSender([recording](const CrashRecord& record, std::string trace, CrashReportResult result,
                                     CrashReportCompletion done) {
      {
        std::lock_guard lock(recording->mutex);
        recording->posts_.push_back({record, std::move(trace), result});
        if (recording->answer == Answer::never) recording->unanswered_.push_back(done);
      }
      if (recording->answer != Answer::never) done(recording->answer == Answer::succeed);
      return true;
    });
    return recording;
  }
  std::shared_ptr<KivCrashHandler> install() {
    auto handler = KivCrashHandler::shared();
    handler->install(std::string(kService), true);
    settle();
    return handler;
  }
  void settle() { testPlatform().pool->waitIdle(); }
  std::vector<CrashRecord> stored() { return logs.getCrashLogs().value_or(std::vector<CrashRecord>{}); }
};

TEST_F(CrashHandlerTest, InstallTakesTheTenSignalsInOrderAndUninstallGivesBackWhatWasThere) {
  crash.setHostSignalHandler(SIGSEGV, "host segv");
  crash.setHostExceptionHandler("host terminate");
  auto handler = install();

  const std::vector<int> ten(kCrashSignals.begin(), kCrashSignals.end());
  EXPECT_EQ(crash.installOrder(), ten);
  EXPECT_EQ(crash.blockedDuring(SIGSEGV), ten);
  EXPECT_EQ(crash.signalDisposition(SIGSEGV), "sdk");
  EXPECT_EQ(crash.exceptionDisposition(), "sdk");
  EXPECT_EQ(crash.prepareCount(), 1);
  EXPECT_EQ(KivCrashLogsManager::serviceName(), kService);

  handler->uninstall();
  EXPECT_EQ(crash.signalDisposition(SIGSEGV), "host segv");
  EXPECT_EQ(crash.signalDisposition(SIGABRT), "default");
  EXPECT_EQ(crash.exceptionDisposition(), "host terminate");
  EXPECT_EQ(handler->crashLogsManager(), nullptr);
  // The slot is filled once per process: empty for good now.
  EXPECT_EQ(KivCrashHandler::shared(), nullptr);
}

struct CrashCase {
  std::string label;
  int signal;  // 0: an exception
  std::string name;
  std::string reason;
};

void PrintTo(const CrashCase& c, std::ostream* out) { *out << c.label; }

class CrashDeliveryTest : public CrashHandlerTest, public ::testing::WithParamInterface<CrashCase> {
 protected:
  void deliver() {
    const auto& c = GetParam();
    ASSERT_TRUE(c.signal ? crash.deliverSignal(c.signal) : crash.deliverException(c.name, c.reason));
    settle();
  }
};

TEST_P(CrashDeliveryTest, TheCrashIsStoredPostedOnceAndTheHandlersGoBack) {
  const auto& c = GetParam();
  auto recording = sender(Answer::succeed);
  install();
  deliver();

  // The record's shape is pinned with the crash record.
  const auto posts = recording->posts();
  ASSERT_EQ(posts.size(), 1u);
  EXPECT_EQ(posts[0].stackTrace, kTrace);
  EXPECT_EQ(posts[0].record.value("signal", 0), c.signal);
  EXPECT_EQ(posts[0].result, c.signal ? CrashReportResult::signal : CrashReportResult::exception);
  // Posted, a signal's record is looked up by its stack trace and deleted;
  // an exception's has none to be found by and stays stored.
  EXPECT_EQ(stored().size(), c.signal ? 0u : 1u);
  // Written at the crash, rewritten whole, emptied once the store had it.
  EXPECT_EQ(crash.ownSlotWrites(), 2);
  EXPECT_EQ(crash.ownSlotContent(), "");
  EXPECT_EQ(crash.signalDisposition(SIGSEGV), "default");
  EXPECT_EQ(crash.exceptionDisposition(), "default");
  EXPECT_EQ(KivCrashHandler::shared(), nullptr);
  EXPECT_EQ(crash.abortCount(), 0);
  EXPECT_EQ(loop().runUntilIdle(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Crashes, CrashDeliveryTest,
                         ::testing::Values(CrashCase{"segv", SIGSEGV, "", ""},
                                           CrashCase{"exception", 0, "std::runtime_error", "boom"}),
                         [](const auto& p) { return p.param.label; });

// A post that never answers: the crashing thread is released after the
// bound, the handlers are back, and abort() is queued on the main queue
// unless this is a test run.
class UnfinishedPostTest : public CrashHandlerTest, public ::testing::WithParamInterface<bool> {};

TEST_P(UnfinishedPostTest, TheCrashIsReleasedAfterTheBound) {
  const bool testRun = GetParam();
  if (testRun) crash.setEnvironment(std::string(kTestRunEnvironmentVariable), "/tmp/x");
  auto recording = sender(Answer::never);
  install();
  ASSERT_TRUE(crash.deliverSignal(SIGFPE));

  EXPECT_EQ(stored().size(), 1u);
  EXPECT_EQ(crash.signalDisposition(SIGFPE), "default");
  EXPECT_EQ(loop().runUntilIdle(), testRun ? 0u : 1u);
  EXPECT_EQ(crash.abortCount() > 0, !testRun);

  // A late answer changes nothing.
  ASSERT_EQ(recording->unanswered().size(), 1u);
  recording->unanswered()[0](true);
  settle();
  EXPECT_EQ(crash.signalDisposition(SIGFPE), "default");
}

INSTANTIATE_TEST_SUITE_P(TestRun, UnfinishedPostTest, ::testing::Bool());

struct ResendCase {
  std::string label;
  int records;
  Answer answer;
  int storedAfter;
  bool otherServiceItemSurvives;  // false when the whole item was cleared by account
};

void PrintTo(const ResendCase& c, std::ostream* out) { *out << c.label; }

class ResendTest : public CrashHandlerTest, public ::testing::WithParamInterface<ResendCase> {};

TEST_P(ResendTest, StoredRecordsAreResentAtInstall) {
  const auto& c = GetParam();
  KivCrashLogsManager::setServiceName(std::string(kService));
  for (int i = 0; i < c.records; ++i) {
    logs.saveCrashLog(CrashRecord{{"signal", 6}, {"createdAt", "x"}, {"stackTrace", "trace " + std::to_string(i)}});
  }
  keychain->save("other.service", kCrashLogsKey, asBytes("[]"), true);
  auto recording = sender(c.answer);
  install();

  const auto posts = recording->posts();
  ASSERT_EQ(posts.size(), static_cast<std::size_t>(c.records));
  for (const auto& post : posts) {
    EXPECT_EQ(post.record["type"], "stored");
    EXPECT_TRUE(post.record.contains("id"));
    EXPECT_EQ(post.result, CrashReportResult::signal);
  }
  EXPECT_EQ(stored().size(), static_cast<std::size_t>(c.storedAfter));
  EXPECT_EQ(keychain->readData("other.service", kCrashLogsKey).has_value(), c.otherServiceItemSurvives);
  // Resending is no crash: the handlers stay.
  EXPECT_EQ(crash.signalDisposition(SIGSEGV), "sdk");
}

INSTANTIATE_TEST_SUITE_P(Records, ResendTest,
                         ::testing::Values(ResendCase{"oneSentClearsTheItem", 1, Answer::succeed, 0, false},
                                           ResendCase{"manySentAreDeletedById", 3, Answer::succeed, 0, true},
                                           ResendCase{"failedStayStored", 2, Answer::fail, 2, true}),
                         [](const auto& p) { return p.param.label; });

struct SlotCase {
  std::string label;
  std::string slot;
  bool alreadyStored;
  bool storeWriteFails;
  std::size_t posts;
  bool slotRemains;
};

void PrintTo(const SlotCase& c, std::ostream* out) { *out << c.label; }

class LeftSlotTest : public CrashHandlerTest, public ::testing::WithParamInterface<SlotCase> {};

constexpr std::string_view kSlotRecord = R"({"signal":7,"createdAt":"2025-01-31 12:34:56 +0000","stackTrace":"[0x1]"})";

TEST_P(LeftSlotTest, ARecordLeftInASlotIsImportedOnceThenResent) {
  const auto& c = GetParam();
  KivCrashLogsManager::setServiceName(std::string(kService));
  if (c.alreadyStored) logs.saveCrashLog(*json::parse(kSlotRecord));
  crash.leaveSlot(c.slot);
  if (c.storeWriteFails) fakeStore().failNextAdd(-34018);
  auto recording = sender(Answer::fail);
  install();

  const auto posts = recording->posts();
  ASSERT_EQ(posts.size(), c.posts);
  if (c.posts) {
    EXPECT_EQ(posts[0].stackTrace, "[0x1]");
    EXPECT_EQ(posts[0].record["type"], "stored");
    EXPECT_EQ(posts[0].record["createdAt"], "2025-01-31 12:34:56 +0000");
  }
  EXPECT_EQ(crash.remainingLeftSlots().size(), c.slotRemains ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Slots, LeftSlotTest,
                         ::testing::Values(SlotCase{"notYetStored", std::string(kSlotRecord), false, false, 1, false},
                                           SlotCase{"alreadyStored", std::string(kSlotRecord), true, false, 1, false},
                                           SlotCase{"halfWritten", R"({"signal":7,"creat)", false, false, 0, false},
                                           SlotCase{"storeWriteFails", std::string(kSlotRecord), false, true, 0, true}),
                         [](const auto& p) { return p.param.label; });

}  // namespace
}  // namespace kiv
