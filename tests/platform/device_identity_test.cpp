#include <gtest/gtest.h>
#include <sys/utsname.h>

#include "platform/device/linux_device_identity.hpp"

namespace kiv {
namespace {

TEST(OsRelease, ReadsVariablesAsAShellWould) {
  const auto variables = parseOsRelease(
      "# comment\n"
      "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"
      "NAME='Debian GNU/Linux'\n"
      "VERSION_ID=\"12\"\r\n"
      "ID=debian\n"
      "  \n"
      "QUOTED=\"say \\\"hi\\\" \\\\ \\$HOME\"\n"
      "lower=ignored\n"
      "NO_EQUALS\n");
  EXPECT_EQ(variables.at("PRETTY_NAME"), "Debian GNU/Linux 12 (bookworm)");
  EXPECT_EQ(variables.at("NAME"), "Debian GNU/Linux");
  EXPECT_EQ(variables.at("VERSION_ID"), "12");
  EXPECT_EQ(variables.at("ID"), "debian");
  EXPECT_EQ(variables.at("QUOTED"), "say \"hi\" \\ $HOME");
  EXPECT_EQ(variables.size(), 5u);
}

struct LocaleCase {
  std::string name;
  std::optional<std::string> language, region;
  friend void PrintTo(const LocaleCase& c, std::ostream* out) { *out << '"' << c.name << '"'; }
};

class LocaleNameTest : public ::testing::TestWithParam<LocaleCase> {};

TEST_P(LocaleNameTest, GivesLanguageAndRegion) {
  const auto codes = parseLocaleName(GetParam().name);
  EXPECT_EQ(codes.language, GetParam().language);
  EXPECT_EQ(codes.region, GetParam().region);
}

INSTANTIATE_TEST_SUITE_P(Names, LocaleNameTest,
                         ::testing::Values(LocaleCase{"en_GB.UTF-8", "en", "GB"},
                                           LocaleCase{"de_CH.UTF-8@euro", "de", "CH"},
                                           LocaleCase{"sr_RS@latin", "sr", "RS"}, LocaleCase{"fr", "fr", {}},
                                           LocaleCase{"pt_", "pt", {}}, LocaleCase{"C", {}, {}},
                                           LocaleCase{"C.UTF-8", {}, {}}, LocaleCase{"POSIX", {}, {}},
                                           LocaleCase{"", {}, {}}));

TEST(LinuxDeviceIdentity, ReportsTheMachineAndHostDefaults) {
  struct utsname names {};
  ASSERT_EQ(::uname(&names), 0);
  const auto device = makeLinuxDeviceIdentity();
  EXPECT_EQ(device->machineIdentifier(), names.machine);
  EXPECT_FALSE(device->systemName().empty());
  EXPECT_FALSE(device->systemVersion().empty());
  EXPECT_EQ(device->systemMajorVersion(), leadingVersionNumber(device->systemVersion()));
  EXPECT_EQ(device->advertisingIdentifier(), DeviceUuid{});
  EXPECT_EQ(device->hostBundle().name, "kivfll_platform_tests");  // the program's name
  EXPECT_EQ(leadingVersionNumber("6.1.0-18-amd64"), 6);
  EXPECT_EQ(leadingVersionNumber("rolling"), 0);
}

}  // namespace
}  // namespace kiv
