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
  EXPECT_EQ(variables, (decltype(variables){{"PRETTY_NAME", "Debian GNU/Linux 12 (bookworm)"},
                                            {"NAME", "Debian GNU/Linux"},
                                            {"VERSION_ID", "12"},
                                            {"ID", "debian"},
                                            {"QUOTED", "say \"hi\" \\ $HOME"}}));
}

struct LocaleCase {
  std::string name;
  std::optional<std::string> language, region;
  friend void PrintTo(const LocaleCase& c, std::ostream* out) { *out << '"' << c.name << '"'; }
};

class LocaleNameTest : public ::testing::TestWithParam<LocaleCase> {};

TEST_P(LocaleNameTest, GivesLanguageAndRegion) {
  const auto codes = parseLocaleName(GetParam().name);
  EXPECT_EQ(std::pair(codes.language, codes.region), std::pair(GetParam().language, GetParam().region));
}

INSTANTIATE_TEST_SUITE_P(Names, LocaleNameTest,
                         ::testing::Values(LocaleCase{"en_GB.UTF-8", "en", "GB"},
                                           LocaleCase{"de_CH.UTF-8@euro", "de", "CH"}, LocaleCase{"fr", "fr", {}},
                                           LocaleCase{"pt_", "pt", {}}, LocaleCase{"C.UTF-8", {}, {}},
                                           LocaleCase{"POSIX", {}, {}}));

TEST(LinuxDeviceIdentity, ReportsTheMachineAndTheKernelsMajorVersion) {
  struct utsname names {};
  ASSERT_EQ(::uname(&names), 0);
  const auto device = makeLinuxDeviceIdentity();
  EXPECT_EQ(device->machineIdentifier(), names.machine);
  EXPECT_EQ(device->hostBundle().name, "kivfll_platform_tests");  // the program's name
  EXPECT_EQ(leadingVersionNumber("6.1.0-18-amd64"), 6);
  EXPECT_EQ(leadingVersionNumber("rolling"), 0);
}

}  // namespace
}  // namespace kiv
