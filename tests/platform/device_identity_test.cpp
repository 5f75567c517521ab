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

TEST(LocaleName, GivesLanguageAndRegion) {
  using Codes = std::pair<std::optional<std::string>, std::optional<std::string>>;
  for (const auto& [name, expected] : std::vector<std::pair<std::string, Codes>>{{"en_GB.UTF-8", {"en", "GB"}},
                                                                                 {"de_CH.UTF-8@euro", {"de", "CH"}},
                                                                                 {"fr", {"fr", {}}},
                                                                                 {"pt_", {"pt", {}}},
                                                                                 {"C.UTF-8", {}},
                                                                                 {"POSIX", {}}}) {
    const auto codes = parseLocaleName(name);
    EXPECT_EQ(Codes(codes.language, codes.region), expected) << name;
  }
}

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
