#include <gtest/gtest.h>

#include "support/test_platform.hpp"
#include "telemetry/context_collector.hpp"
#include "telemetry/device_info.hpp"

namespace kiv {
namespace {

class DeviceContextTest : public testing::PlatformTest {
 protected:
  void change(const std::function<void(FixedDeviceIdentity::Values&)>& edit) { fakeDevice().update(edit); }
};

struct ScreenCase {
  const char* name;
  ScreenMetrics screen;
  std::string resolution, density, scale;
  std::optional<std::string> language = "de", region = "CH";
  friend void PrintTo(const ScreenCase& c, std::ostream* out) { *out << c.name; }
};

class DeviceTextTest : public DeviceContextTest, public ::testing::WithParamInterface<ScreenCase> {};

TEST_P(DeviceTextTest, DescribesModelSystemScreenAndLocaleInTenLines) {
  const auto& c = GetParam();
  change([&](auto& v) {
    v.machine = "iPhone12,3";
    v.systemName = "iOS";
    v.systemVersion = "17.5.1";
    v.systemMajorVersion = 17;
    v.screen = c.screen;
    v.language = c.language;
    v.region = c.region;
  });
  EXPECT_EQ(KivDeviceInfo::deviceData(),
            "Device Model: iPhone 11 Pro\nSystem Name: iOS\nSystem Version: 17.5.1\nSDK Level: 17\n"
            "Device Manufacturer: Apple\nScreen Resolution: " +
                c.resolution + "\nScreen Density: " + c.density + "\nScreen Scale: " + c.scale +
                "\nPreferred Language: " + c.language.value_or("Unknown") +
                "\nRegion: " + c.region.value_or("Unknown"));
}

INSTANTIATE_TEST_SUITE_P(
    Screens, DeviceTextTest,
    ::testing::Values(ScreenCase{"phoneAt3", {390, 844, 3.0}, "390 x 844", "480 dpi", "3.0"},
                      ScreenCase{"phoneAt2", {375.9, 667.5, 2.0}, "375 x 667", "320 dpi", "2.0"},
                      ScreenCase{"fractional", {1024, 768, 2.61}, "1024 x 768", "418 dpi", "2.61"},
                      ScreenCase{"noScreenNoLocale", {0, 0, 1.0}, "0 x 0", "160 dpi", "1.0", {}, {}},
                      ScreenCase{"languageWithoutRegion", {320, 480, 1.0}, "320 x 480", "160 dpi", "1.0", "fr", {}}),
    [](const auto& param) { return std::string(param.param.name); });

struct ModelCase {
  const char* name;
  std::string identifier;
  std::optional<std::string> simulated;  // SIMULATOR_MODEL_IDENTIFIER
  std::string model;
  friend void PrintTo(const ModelCase& c, std::ostream* out) { *out << c.name; }
};

class ModelNameTest : public DeviceContextTest, public ::testing::WithParamInterface<ModelCase> {};

TEST_P(ModelNameTest, MapsIdentifiersToMarketingNames) {
  const auto& c = GetParam();
  change([&](auto& v) {
    if (c.simulated) v.environment[std::string(kSimulatorModelVariable)] = *c.simulated;
  });
  EXPECT_EQ(KivDeviceInfo::modelName(c.identifier), c.model);
}

INSTANTIATE_TEST_SUITE_P(
    Identifiers, ModelNameTest,
    ::testing::Values(ModelCase{"iPhone", "iPhone12,1", std::nullopt, "iPhone 11"},
                      ModelCase{"unknownKeptAsIs", "iPhone15,3", std::nullopt, "iPhone15,3"},
                      ModelCase{"exactMatchOnly", "iphone12,1", std::nullopt, "iphone12,1"},
                      ModelCase{"arm64IsNoSimulator", "arm64", "iPhone12,1", "arm64"},
                      ModelCase{"simulatorNamesItsModel", "x86_64", "iPhone12,1", "Simulator iPhone 11"},
                      ModelCase{"simulatorWithoutModel", "i386", std::nullopt, "Simulator iOS"},
                      ModelCase{"simulatorRuleNotAppliedTwice", "x86_64", "i386", "Simulator i386"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(DeviceContextTest, AbsentBundleValuesLeaveTheirPlacesEmpty) {
  EXPECT_EQ(KivDeviceInfo::appVersion(), "version: 2.4.1 buildNumber: 241");
  change([](auto& v) { v.bundle = HostBundle{}; });
  EXPECT_EQ(KivDeviceInfo::appName(), std::nullopt);
  EXPECT_EQ(KivDeviceInfo::appVersion(), "version:  buildNumber: ");
}

TEST_F(DeviceContextTest, AdvertisingIdentifierIsHashedFromItsUpperCaseText) {
  EXPECT_EQ(KivContextCollector::hashedAdvertisingIdentifier(), "9f89c84a559f573636a47ff8daed0d33");
  change([](auto& v) {
    v.advertisingIdentifier = {0xE6, 0x21, 0xE1, 0xF8, 0xC3, 0x6C, 0x49, 0x5A,
                               0x93, 0xFC, 0x0C, 0x24, 0x7A, 0x3E, 0x6E, 0x5F};
  });
  EXPECT_EQ(KivContextCollector::hashedAdvertisingIdentifier(), "c199e4f4eed5309b824eca68fd918c78");
}

}  // namespace
}  // namespace kiv
