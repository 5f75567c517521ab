// A flapping analytics backend: the recording server goes down and comes
// back up every 200 ms while four threads track events steadily, each body
// carrying a sequence id of its own, and the path monitor follows the server
// (unsatisfied while it is down, satisfied when it is back), so the offline
// queue fills during every outage and flushes on every recovery. Client,
// curl session and secure store (in a scratch directory) are the real ones.
// At the end the backend stays up and the client drains. Every body tracked
// must reach the backend exactly once: none lost, none twice. A body that
// went through the queue arrives as the same event with "resent": true in
// its properties, and the queued bodies arrive in the order they were
// stored in.
//
// "Down" means: the server stops accepting and refuses new connections,
// closes idle kept-alive connections and answers every request it had
// already recorded. A request recorded and then left unanswered would be
// sent again by any client that retries a failed post, so it would show up
// twice by design rather than by fault.
//
// When three flushes fail in a row the client makes no further attempt in
// this process, and a busy backend that keeps going away can bring that
// about. The queue then waits in the secure store for the next process, so
// the test drains it as that process would: a new client configured over
// the same store.
//
// How many bodies take which road varies from run to run; what is asserted
// does not. KIV_FLAP_SECONDS=s flaps for s seconds; otherwise 2 s per
// KIV_RELIABILITY_RUNS (default 5, so 10 s), at most 60 s.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "kiv/backend.hpp"
#include "kiv/platform/secure_store.hpp"
#include "support/analytics_configuration.hpp"
#include "support/child_process.hpp"
#include "support/forwarding_store.hpp"
#include "support/recording_http_server.hpp"
#include "support/test_platform.hpp"
#include "telemetry/bff_analytics.hpp"

namespace kiv {
namespace {

using namespace std::chrono_literals;

constexpr int kTrackingThreads = 4;
constexpr auto kPhase = 200ms;  // up for this long, then down for this long
constexpr const char* kTrackPath = "/bff/track-analytics";
constexpr const char* kSeqKey = "seq";

int flapSeconds() {
  if (const char* seconds = std::getenv("KIV_FLAP_SECONDS")) return std::max(1, std::atoi(seconds));
  const char* runs = std::getenv("KIV_RELIABILITY_RUNS");
  return std::min(60, 2 * (runs ? std::max(1, std::atoi(runs)) : 5));
}

std::optional<std::string> seqOf(const Json& body) {
  const Json::json_pointer at(std::string("/properties/requestParams/") + kSeqKey);
  if (!body.contains(at) || !body.at(at).is_string()) return std::nullopt;
  return body.at(at).get<std::string>();
}

// The real store, noting the order in which bodies enter the stored offline
// queue: every write of the stored array has the newly queued entries last.
class QueueOrderStore final : public testing::ForwardingStore {
 public:
  using ForwardingStore::ForwardingStore;

  std::int32_t add(std::string_view service, std::string_view account, std::span<const std::uint8_t> value) override {
    note(account, value);
    return ForwardingStore::add(service, account, value);
  }
  std::int32_t update(std::string_view service, std::string_view account,
                      std::span<const std::uint8_t> value) override {
    note(account, value);
    return ForwardingStore::update(service, account, value);
  }

  std::vector<std::string> queuedOrder() const {
    std::lock_guard lock(mutex_);
    return order_;
  }

 private:
  void note(std::string_view account, std::span<const std::uint8_t> value) {
    if (account != queue_format::queueKey) return;
    const auto queue =
        queue_format::decodeQueue(std::string_view(reinterpret_cast<const char*>(value.data()), value.size()));
    ASSERT_TRUE(queue) << "the stored queue cannot be read";
    std::lock_guard lock(mutex_);
    // One write may add several entries, always at the end; a rewrite after
    // a flush holds entries seen before.
    for (const auto& event : *queue) {
      const auto seq = seqOf(event.jsonBody);
      ASSERT_TRUE(seq) << "a queued body without its sequence id";
      if (seen_.insert(*seq).second) order_.push_back(*seq);
    }
  }

  mutable std::mutex mutex_;
  std::set<std::string> seen_;
  std::vector<std::string> order_;
};

class FlappingBackendSlowTest : public testing::PlatformTest {
 protected:
  FlappingBackendSlowTest() : store(std::make_shared<QueueOrderStore>(makeLinuxSecureStore(scratch.path()))) {
    testPlatform().bundle().secureStore = store;
    testPlatform().install();
    EXPECT_TRUE(setBackendRootURL(KivEnvironment::dev, server.url()));
  }
  ~FlappingBackendSlowTest() override { resetBackendRootURL(KivEnvironment::dev); }

  // Reports a usable path and waits for the flush it starts to end.
  void reportSatisfied(const KivBFFAnalytics& client) {
    fakeNetwork().setStatus(NetworkPathStatus::satisfied);
    testPlatform().pool->waitIdle();
    client.flushFinished().wait();
  }

  testing::TemporaryDirectory scratch;
  std::shared_ptr<QueueOrderStore> store;
  testing::RecordingHttpServer server;
};

TEST_F(FlappingBackendSlowTest, EveryBodyArrivesExactlyOnceAndQueuedOnesInQueueOrder) {
  const int seconds = flapSeconds();
  fakeNetwork().setStatus(NetworkPathStatus::satisfied);
  KivBFFAnalytics::configure(testing::analyticsConfiguration("session-flap"));
  const auto client = KivBFFAnalytics::shared();
  ASSERT_TRUE(client);

  std::atomic<bool> flapping = true;
  // The flapping's own beat: the timing only changes how many bodies take
  // which road, never what is asserted.
  std::thread flapper([&] {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    auto next = std::chrono::steady_clock::now();
    while (next < end) {
      std::this_thread::sleep_until(next += kPhase);
      server.goDown();
      fakeNetwork().setStatus(NetworkPathStatus::unsatisfied);
      std::this_thread::sleep_until(next += kPhase);
      server.comeUp();
      fakeNetwork().setStatus(NetworkPathStatus::satisfied);
    }
    flapping = false;
  });
  std::vector<std::size_t> tracked(kTrackingThreads, 0);
  std::vector<std::thread> trackers;
  for (int t = 0; t < kTrackingThreads; ++t) {
    trackers.emplace_back([&, t] {
      // One body in flight per thread: it is delivered or queued before the
      // next is tracked.
      for (std::size_t n = 0; flapping; ++n) {
        client
            ->track(KivAnalyticsEvent::standard(KivAnalyticsEventName::sdkResult, KivAnalyticsEventType::sdkStep),
                    KivBFFAnalytics::TextParams{{kSeqKey, std::to_string(t) + "-" + std::to_string(n)}})
            .wait();
        tracked[static_cast<std::size_t>(t)] = n + 1;
      }
    });
  }
  flapper.join();
  for (auto& tracker : trackers) tracker.join();

  // The backend stays up. The last recovery may have come while a flush
  // was running, and a post that failed just before it was queued after
  // that flush took its snapshot: a device whose network settles reports
  // the path once more.
  client->waitForPendingPosts();
  testPlatform().pool->waitIdle();
  client->flushFinished().wait();
  while (!client->queuedEvents().empty() && client->retryAttempts() < KivBFFAnalytics::maxQueueRetries) {
    reportSatisfied(*client);
  }
  if (!client->queuedEvents().empty()) {
    KivBFFAnalytics::configure(testing::analyticsConfiguration("session-next-process"));
    const auto next = KivBFFAnalytics::shared();
    testPlatform().pool->waitIdle();
    next->flushFinished().wait();
    EXPECT_TRUE(next->queuedEvents().empty()) << "the next process did not drain the queue";
  }

  // Each body tracked arrives once: none lost, none twice, none unknown.
  std::map<std::string, std::size_t> once, copies;
  for (int t = 0; t < kTrackingThreads; ++t) {
    for (std::size_t n = 0; n < tracked[static_cast<std::size_t>(t)]; ++n)
      once[std::to_string(t) + "-" + std::to_string(n)] = 1;
  }
  std::vector<std::string> resentOrder;
  std::optional<Json> sameEvent;  // every body with its seq and resent mark taken out
  for (const auto& request : server.requests(kTrackPath)) {
    auto body = request.bodyJson();
    ASSERT_TRUE(body && body->is_object()) << request.body;
    if (body->value("event", "") == "no_connection") continue;
    const auto seq = seqOf(*body);
    ASSERT_TRUE(seq) << request.body;
    ++copies[*seq];
    auto& properties = (*body)["properties"];
    if (properties.contains("resent")) {
      EXPECT_EQ(properties["resent"], true) << request.body;
      resentOrder.push_back(*seq);
      properties.erase("resent");
    }
    properties["requestParams"].erase(kSeqKey);
    if (!sameEvent) sameEvent = *body;
    EXPECT_EQ(*body, *sameEvent) << "a body other than the event tracked: " << request.body;
  }

  EXPECT_TRUE(copies == once) << copies.size() << " bodies arrived of " << once.size() << " tracked";
  const auto queuedOrder = store->queuedOrder();
  // Every body seen in a stored queue is resent, in the order seen. A body
  // queued and resent between two writes of the queue is never seen there.
  std::size_t inOrder = 0;
  for (const auto& seq : resentOrder) {
    if (inOrder < queuedOrder.size() && queuedOrder[inOrder] == seq) ++inOrder;
  }
  EXPECT_EQ(inOrder, queuedOrder.size()) << "stored bodies were not resent in queue order: " << resentOrder.size()
                                         << " resent, " << queuedOrder.size() << " stored, the first out of order "
                                         << (inOrder < queuedOrder.size() ? queuedOrder[inOrder] : "none");
}

}  // namespace
}  // namespace kiv
