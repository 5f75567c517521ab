#include "service/backend_urls.hpp"

#include <gtest/gtest.h>

#include "base/process_state.hpp"
#include "kiv/backend.hpp"
#include "platform/http/url.hpp"
#include "support/test_platform.hpp"

namespace kiv {
namespace {

class BackendUrlsTest : public testing::PlatformTest {};

TEST_F(BackendUrlsTest, OverridePointsOneEnvironmentElsewhereUntilReset) {
  const auto beta = backendRootURL(KivEnvironment::beta);
  const auto prod = backendRootURL(KivEnvironment::prod);
  ASSERT_TRUE(setBackendRootURL(KivEnvironment::dev, "http://127.0.0.1:8080"));
  EXPECT_EQ(backendRootURL(KivEnvironment::dev), "http://127.0.0.1:8080/");
  EXPECT_EQ(analyticsBaseURL(KivEnvironment::dev), "http://127.0.0.1:8080/bff/");
  EXPECT_EQ(backendRootURL(KivEnvironment::beta), beta);
  EXPECT_EQ(backendRootURL(KivEnvironment::prod), prod);

  ASSERT_TRUE(setBackendRootURL(KivEnvironment::prod, "https://mirror.example/api/"));
  EXPECT_EQ(backendRootURL(KivEnvironment::prod), "https://mirror.example/api/");
  resetBackendRootURL(KivEnvironment::prod);
  EXPECT_EQ(backendRootURL(KivEnvironment::prod), prod);

  process_state::resetAll();  // what every test fixture does afterwards
  EXPECT_NE(backendRootURL(KivEnvironment::dev), "http://127.0.0.1:8080/");
}

TEST_F(BackendUrlsTest, TextThatIsNotAnHttpRootChangesNothing) {
  const auto before = backendRootURL(KivEnvironment::beta);
  for (const auto* text :
       {"", "backend.example/", "ftp://backend.example/", "wss://eu/ws", "https://back end.example/",
        "https://backend.example/?stage=1", "https://backend.example/#top", "http:///x/", "http:/x/"}) {
    EXPECT_FALSE(setBackendRootURL(KivEnvironment::beta, text)) << text;
  }
  EXPECT_EQ(backendRootURL(KivEnvironment::beta), before);
}

}  // namespace
}  // namespace kiv
