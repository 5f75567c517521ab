#include "telemetry/analytics_envelope.hpp"

#include <gtest/gtest.h>

#include <chrono>

namespace kiv {
namespace {

const AnalyticsIdentity kIdentity{.stage = KivAnalyticsStage::dev,
                                  .sessionId = "session-A",
                                  .clientId = "acme",
                                  .mobileToken = "token-1",
                                  .personId = "person-1",
                                  .sdk = {"KivFaceLivenessLite", "3.2.1"}};
// 2025-01-31T12:34:56.789Z
const AnalyticsMoment kMoment{.time = TimePoint(std::chrono::milliseconds(1738326896789)),
                              .deviceData = [] { return std::string("device"); }};

const KivAnalyticsEvent kSdkResult =
    KivAnalyticsEvent::standard(KivAnalyticsEventName::sdkResult, KivAnalyticsEventType::sdkStep);

TEST(AnalyticsEnvelope, TrackBodyLiftsResultAndApiFieldsAndEnrichesTheRest) {
  const Json body = envelope::trackBody(kIdentity, kMoment, kSdkResult,
                                        AnalyticsTextParams{{"result", "granted"},
                                                            {"responseCode", "201"},
                                                            {"apiEndpoint", "/bff/sessions"},
                                                            {"sdk_name", "spoofed"},
                                                            {"imgData", "base64..."},
                                                            {"zeta", "z"}},
                                        std::string("{ \"a\" : 1 }"));
  EXPECT_EQ(json::dumpCompact(body),
            R"({"userId":"person-1","event":"sdk_result","eventType":"sdk_step","properties":{)"
            R"("platform":"native_ios","clientId":"acme","personId":"person-1","sessionId":"session-A",)"
            R"("timestamp":"2025-01-31T12:34:56.789Z","result":"granted","apiEndpoint":"/bff/sessions",)"
            R"("responseCode":"201","requestParams":{"sdkName":"KivFaceLivenessLite","sdkVersion":"3.2.1",)"
            R"("sdk_name":"KivFaceLivenessLite","sdk_version":"3.2.1","zeta":"z","mobileToken":"token-1",)"
            R"("sdkInfoEnvironment":"dev","deviceData":"device"},"requestBody":"{\"a\":1}"}})");
}

TEST(AnalyticsEnvelope, ConfigurationAndProviderOverwriteCallerValuesButCallerDeviceDataStays) {
  AnalyticsIdentity identity = kIdentity;
  identity.entrypoint = "flutter";
  AnalyticsMoment moment = kMoment;
  moment.provider = "iproov";
  const Json params = {{"entrypoint", "mine"}, {"provider", "other"}, {"deviceData", "caller's"}, {"attempt", 2}};
  const Json body = envelope::trackBody(identity, moment, KivAnalyticsFixedEvent::startSdk, params, std::nullopt);
  EXPECT_EQ(body["event"], "start_sdk");
  EXPECT_EQ(body["eventType"], "user_interaction");
  const Json& sent = body["properties"]["requestParams"];
  EXPECT_EQ((Json{sent["entrypoint"], sent["provider"], sent["deviceData"], sent["attempt"]}),
            (Json{"flutter", "iproov", "caller's", 2}));
  EXPECT_FALSE(sent.contains("entrypointVersion"));  // empty: not sent
}

TEST(AnalyticsEnvelope, UserIdIsTheTrimmedPersonIdOrTheSessionId) {
  const std::vector<std::pair<std::optional<std::string>, std::string>> cases{
      {std::nullopt, "session-A"}, {" \n\t", "session-A"}, {"\u00a0", "session-A"}, {"\u2003p-7\u2003", "p-7"}};
  for (const auto& [person, expected] : cases) {
    AnalyticsIdentity identity = kIdentity;
    identity.personId = person;
    const Json body = envelope::trackBody(identity, kMoment, kSdkResult, Json(), std::nullopt);
    EXPECT_EQ(body["userId"], expected) << person.value_or("<absent>");
    EXPECT_EQ(body["properties"]["personId"], expected);
  }
}

// The bodies the client makes itself: event, type, lifted result and the
// parameters they carry.
TEST(AnalyticsEnvelope, CrashReportsAndRecoveryNoticesCarryTheirOwnParameters) {
  const auto summary = [](const Json& body) {
    const Json& properties = body["properties"];
    Json params = properties["requestParams"];
    for (const char* enrichment : {"mobileToken", "sdkInfoEnvironment", "deviceData"}) params.erase(enrichment);
    return Json{body["event"], body["eventType"], properties.value("result", "<none>"), params,
                properties.value("stackTrace", "<none>")};
  };
  const Json sdk = {{"sdk_name", "KivFaceLivenessLite"}, {"sdk_version", "3.2.1"}};
  EXPECT_EQ(summary(envelope::crashBody(kIdentity, kMoment, "f\ng", std::nullopt)),
            (Json{"crash", "crash", "<none>", sdk, "f\ng"}));
  EXPECT_EQ(summary(envelope::crashBody(kIdentity, kMoment, "f", KivAnalyticsResult::signal)),
            (Json{"crash", "crash", "signal", sdk, "f"}));
  const Json notice = {{"queued_events", "3"}, {"sdk_name", "KivFaceLivenessLite"}, {"sdk_version", "3.2.1"}};
  EXPECT_EQ(summary(envelope::recoveryNotice(kIdentity, kMoment, 3)),
            (Json{"no_connection", "sdk_error", "recovered", notice, "<none>"}));
}

TEST(AnalyticsEnvelope, ResentBodyMarksItsPropertiesOrReplacesThoseThatAreNoObject) {
  const std::vector<std::pair<Json, Json>> cases{
      {{{"userId", "u"}, {"properties", {{"a", 1}}}}, {{"userId", "u"}, {"properties", {{"a", 1}, {"resent", true}}}}},
      {{{"userId", "u"}, {"properties", "text"}}, {{"userId", "u"}, {"properties", {{"resent", true}}}}},
      {{{"userId", "u"}}, {{"userId", "u"}, {"properties", {{"resent", true}}}}},
  };
  for (const auto& [stored, resent] : cases) EXPECT_EQ(envelope::resentBody(stored), resent) << stored;
}

}  // namespace
}  // namespace kiv
