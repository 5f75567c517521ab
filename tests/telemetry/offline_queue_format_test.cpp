#include "telemetry/offline_queue_format.hpp"

#include <gtest/gtest.h>

#include <chrono>

#include "base/text.hpp"

namespace kiv {
namespace {

// 1000.5 s after 2001-01-01 00:00:00 UTC.
const TimePoint kThen(std::chrono::milliseconds(978307200000 + 1000500));

TEST(OfflineQueueFormat, EntriesHoldEndpointBase64BodyAndSecondsSince2001) {
  const std::vector<QueuedEvent> queue{{KivAnalyticsEndpoint::trackAnalytics, Json{{"a", 1}}, kThen},
                                       {KivAnalyticsEndpoint::crashlytics, Json::object(), kThen}};
  EXPECT_EQ(queue_format::encodeQueue(queue),
            R"([{"endpoint":"track-analytics","jsonBody":"eyJhIjoxfQ==","timestamp":1000.5},)"
            R"({"endpoint":"crashlytics","jsonBody":"e30=","timestamp":1000.5}])");
  EXPECT_EQ(queue_format::encodeQueue({}), "[]");
}

struct DecodeCase {
  const char* name;
  Json entry;    // the one stored entry
  bool decodes;  // else the whole array is refused
};

// Endpoint, body bytes and a time the clock can hold must all decode; body
// bytes that are not a JSON object stand for an empty body. A decoded queue
// encodes again to the same entries.
TEST(QueueDecodingTest, AnEntryDecodesOnlyWhenEveryFieldDoes) {
  std::string deep;
  for (int i = 0; i < 100'000; ++i) deep += R"({"a":)";
  deep += "1" + std::string(100'000, '}');
  const auto entry = [](Json body, Json timestamp) {
    Json item = {{"endpoint", "track-analytics"}, {"timestamp", std::move(timestamp)}};
    if (!body.is_null()) item["jsonBody"] = std::move(body);
    return item;
  };
  for (const auto& c : std::vector<DecodeCase>{
           {"object", entry("eyJldmVudCI6ImUifQ==", 1.5), true},
           {"bodyNotAnObject", entry(base64Encoded("[1]"), 1.5), true},
           {"bodyNestedTooDeep", entry(base64Encoded(deep), -2.0), true},
           {"latestTime", entry("e30=", 9.0e9 - 978307200.0), true},
           {"earliestTime", entry("e30=", -9.0e9), true},
           {"bodyMissing", entry(Json(), 1.5), false},
           {"bodyNotBase64", entry("bm90IGJhc2U2NA=!", 1.5), false},
           {"bodyNotText", entry(7, 1.5), false},
           {"timeTooLate", entry("e30=", 1e300), false},
           {"timeTooEarly", entry("e30=", -1.0e10), false},
           {"timeMissing", entry("e30=", Json()), false},
           {"endpointUnknown", Json{{"endpoint", "elsewhere"}, {"jsonBody", "e30="}, {"timestamp", 1}}, false},
       }) {
    SCOPED_TRACE(c.name);
    const auto queue = queue_format::decodeQueue(json::dumpCompact(Json::array({c.entry, c.entry})));
    ASSERT_EQ(queue.has_value(), c.decodes);
    if (!c.decodes) continue;
    ASSERT_EQ(queue->size(), 2u);
    const auto again = queue_format::decodeQueue(queue_format::encodeQueue(*queue));
    ASSERT_TRUE(again);
    EXPECT_EQ((*again)[1].jsonBody, (*queue)[1].jsonBody);
    EXPECT_EQ((*again)[1].timestamp, (*queue)[1].timestamp);
  }
}

// One "_" per code point outside the safe set, however many bytes it takes.
// A client id that is the token itself (one without an issuer) is a
// credential, and service names are stored in clear: its digest names the
// queue, the same in every version so that a queue left by one is found.
TEST(OfflineQueueFormat, NamespaceKeepsSafeCharactersAndNeverTheToken) {
  const std::vector<std::pair<std::string, std::string>> cases{{"acme corp/1", "acme_corp_1"},
                                                               {"cafe\u0301", "cafe_"},
                                                               {"a\U0001F600b", "a_b"},
                                                               {"a\xff\xfe"
                                                                "b",
                                                                "a__b"},
                                                               {"opaque-token", "t7f4861e3c69a56f2c44c612ab2f11cb6"}};
  for (const auto& [clientId, expected] : cases) {
    EXPECT_EQ(queue_format::storageNamespace(KivAnalyticsStage::prod, clientId, "opaque-token", "Sdk 1"),
              "kiv_analytics_queue_prod_" + expected + "_Sdk_1");
  }
}

}  // namespace
}  // namespace kiv
