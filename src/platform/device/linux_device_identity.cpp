#include "platform/device/linux_device_identity.hpp"

#include <sys/utsname.h>

#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace kiv {
namespace {

std::optional<std::string> readFile(const char* path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::ostringstream text;
  text << file.rdbuf();
  return std::move(text).str();
}

std::string_view trim(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// A value as a shell would read it: quotes removed, backslash escapes
// resolved (none inside single quotes).
std::string unquote(std::string_view value) {
  std::string out;
  char quote = 0;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    if (quote == 0 && (c == '"' || c == '\'')) {
      quote = c;
    } else if (c == quote) {
      quote = 0;
    } else if (c == '\\' && quote != '\'' && i + 1 < value.size()) {
      out.push_back(value[++i]);
    } else {
      out.push_back(c);
    }
  }
  return out;
}

bool isVariableName(std::string_view name) {
  if (name.empty()) return false;
  for (char c : name) {
    if (!std::isupper(static_cast<unsigned char>(c)) && !std::isdigit(static_cast<unsigned char>(c)) && c != '_') {
      return false;
    }
  }
  return true;
}

std::string field(const char* bytes) { return std::string(bytes); }  // up to the first zero byte

}  // namespace

std::map<std::string, std::string> parseOsRelease(std::string_view text) {
  std::map<std::string, std::string> variables;
  while (!text.empty()) {
    const auto end = text.find('\n');
    const auto line = trim(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view{} : text.substr(end + 1);
    if (line.empty() || line.front() == '#') continue;
    const auto equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    const auto name = line.substr(0, equals);
    if (!isVariableName(name)) continue;
    variables[std::string(name)] = unquote(line.substr(equals + 1));
  }
  return variables;
}

LocaleCodes parseLocaleName(std::string_view name) {
  // language[_territory][.codeset][@modifier]
  name = name.substr(0, name.find_first_of(".@"));
  const auto underscore = name.find('_');
  const auto language = name.substr(0, underscore);
  if (language.empty() || language == "C" || language == "POSIX") return {};
  LocaleCodes codes{std::string(language), std::nullopt};
  if (underscore != std::string_view::npos && underscore + 1 < name.size()) {
    codes.region = std::string(name.substr(underscore + 1));
  }
  return codes;
}

int leadingVersionNumber(std::string_view version) {
  int number = 0;
  for (char c : version) {
    if (!std::isdigit(static_cast<unsigned char>(c)) || number > 100'000'000) break;
    number = number * 10 + (c - '0');
  }
  return number;
}

LinuxDeviceIdentity::LinuxDeviceIdentity(LinuxDeviceOptions options) : options_(std::move(options)) {}

const LinuxDeviceIdentity::System& LinuxDeviceIdentity::system() const {
  std::call_once(systemOnce_, [this] {
    struct utsname names {};
    const bool haveNames = ::uname(&names) == 0;
    if (haveNames) system_.machine = field(names.machine);
    auto osRelease = readFile("/etc/os-release");
    if (!osRelease) osRelease = readFile("/usr/lib/os-release");
    const auto variables = parseOsRelease(osRelease.value_or(""));
    if (const auto version = variables.find("VERSION_ID"); version != variables.end() && !version->second.empty()) {
      const auto name = variables.find("NAME");
      system_.name = name != variables.end() ? name->second : "Linux";  // os-release's own default
      system_.version = version->second;
    } else if (haveNames) {
      // Name and version come from the same source, never half from each.
      system_.name = field(names.sysname);
      system_.version = field(names.release);
    }
  });
  return system_;
}

std::string LinuxDeviceIdentity::machineIdentifier() const { return system().machine; }

std::string LinuxDeviceIdentity::systemName() const { return system().name; }

std::string LinuxDeviceIdentity::systemVersion() const { return system().version; }

int LinuxDeviceIdentity::systemMajorVersion() const { return leadingVersionNumber(system().version); }

ScreenMetrics LinuxDeviceIdentity::screen() const { return options_.screen.value_or(ScreenMetrics{}); }

// The process locale for messages. A process that never chose one runs in
// "C"; the locale the user chose in the environment is then the better
// answer, the one the process would get from setlocale(LC_ALL, "").
LocaleCodes LinuxDeviceIdentity::locale() const {
  if (const char* current = std::setlocale(LC_MESSAGES, nullptr)) {
    auto codes = parseLocaleName(current);
    if (codes.language) return codes;
  }
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (const auto value = environmentValue(variable); value && !value->empty()) return parseLocaleName(*value);
  }
  return {};
}

std::optional<std::string> LinuxDeviceIdentity::languageCode() const { return locale().language; }

std::optional<std::string> LinuxDeviceIdentity::regionCode() const { return locale().region; }

HostBundle LinuxDeviceIdentity::hostBundle() const {
  HostBundle bundle = options_.bundle;
  if (!bundle.name && program_invocation_short_name != nullptr && *program_invocation_short_name != '\0') {
    bundle.name = program_invocation_short_name;
  }
  return bundle;
}

DeviceUuid LinuxDeviceIdentity::advertisingIdentifier() const {
  return options_.advertisingIdentifier.value_or(DeviceUuid{});
}

std::optional<std::string> LinuxDeviceIdentity::environmentValue(std::string_view name) const {
  const char* value = std::getenv(std::string(name).c_str());
  if (value == nullptr) return std::nullopt;
  return std::string(value);
}

std::shared_ptr<DeviceIdentity> makeLinuxDeviceIdentity(LinuxDeviceOptions options) {
  return std::make_shared<LinuxDeviceIdentity>(std::move(options));
}

}  // namespace kiv
