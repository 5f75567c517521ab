// kivfll run --backend URL --token T --person P [...]: one attempt against
// any backend root, with the simulated capture vendor playing --capture.
// The exit status tells how it ended: 0 success, 1 failure, 2 error,
// 3 cancelled; a command line the attempt cannot start from is 64.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "attempt_host.hpp"
#include "commands.hpp"
#include "kiv/backend.hpp"

namespace kiv::cli {
namespace {

struct RunArguments {
  std::string backend;
  std::string token;
  std::string person;
  std::string environment = "dev";
  bool prewarm = false;
  bool loading = false;
  std::string capture = "connected; success";
  std::string camera = "granted";
  std::optional<std::string> dataDirectory;
  bool json = false;
  std::optional<std::string> crashSignal;
  bool verbose = false;
};

// The signals the SDK's crash capture handles, by name.
constexpr std::array<std::pair<std::string_view, int>, 10> kCrashSignals{{
    {"SIGABRT", SIGABRT},
    {"SIGSEGV", SIGSEGV},
    {"SIGILL", SIGILL},
    {"SIGFPE", SIGFPE},
    {"SIGBUS", SIGBUS},
    {"SIGPIPE", SIGPIPE},
    {"SIGSYS", SIGSYS},
    {"SIGXCPU", SIGXCPU},
    {"SIGXFSZ", SIGXFSZ},
    {"SIGTRAP", SIGTRAP},
}};

std::optional<int> crashSignal(std::string_view name) {
  for (const auto& [known, number] : kCrashSignals) {
    if (name == known || name == known.substr(3) || name == std::to_string(number)) return number;
  }
  return std::nullopt;
}

// The one line a bad command line gets, on standard error.
ExitStatus usage(const std::string& message) {
  std::cerr << "kivfll run: " << message << "\n";
  return ExitStatus::usage;
}

// The directory exists afterwards and this process may read and write it.
std::optional<std::string> prepareDataDirectory(const std::filesystem::path& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) return "cannot create the data directory " + directory.string() + ": " + error.message();
  if (!std::filesystem::is_directory(directory, error)) return directory.string() + " is not a directory";
  if (::access(directory.c_str(), R_OK | W_OK | X_OK) != 0) {
    return "cannot read and write the data directory " + directory.string();
  }
  return std::nullopt;
}

ExitStatus runAttempt(const RunArguments& arguments) {
  AttemptOptions options;
  for (auto environment : allCases<KivEnvironment>()) {
    if (toString(environment) == arguments.environment) options.environment = environment;
  }
  options.mobileToken = arguments.token;
  options.personId = arguments.person;
  options.prewarm = arguments.prewarm;
  options.loading = arguments.loading;
  options.form = arguments.json ? AttemptPrinter::Form::json : AttemptPrinter::Form::human;
  options.verbose = arguments.verbose;

  if (!setBackendRootURL(options.environment, arguments.backend)) {
    return usage("--backend: " + arguments.backend + " is not an absolute http or https URL without query");
  }
  auto script = CaptureScript::parse(arguments.capture);
  if (!script) return usage("--capture: " + script.error());
  options.capture = std::move(*script);

  if (arguments.camera == "ask-grant" || arguments.camera == "ask-deny") {
    options.camera = CameraAuthorizationStatus::notDetermined;
    options.grantWhenAsked = arguments.camera == "ask-grant";
  } else {
    options.camera = arguments.camera == "granted" ? CameraAuthorizationStatus::authorized
                                                   : *fromRawValue<CameraAuthorizationStatus>(arguments.camera);
  }
  if (arguments.dataDirectory) {
    if (auto problem = prepareDataDirectory(*arguments.dataDirectory)) return usage("--data-dir: " + *problem);
    options.dataDirectory = std::filesystem::absolute(*arguments.dataDirectory);
  }
  if (arguments.crashSignal) {
    options.crashSignal = crashSignal(*arguments.crashSignal);
    if (!options.crashSignal) return usage("--simulate-crash: " + *arguments.crashSignal + " is not a handled signal");
  }

  const auto report = hostAttempt(options);
  if (!report.outcome) return ExitStatus::error;
  if (options.form == AttemptPrinter::Form::human && !report.telemetrySettled) {
    std::cerr << "kivfll run: some analytics posts were still under way at exit\n";
  }
  return static_cast<ExitStatus>(report.outcome->exitCode());
}

}  // namespace

void addRunCommand(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<RunArguments>();
  auto* command = app.add_subcommand("run", "Run one liveness attempt against a backend, with the simulated vendor");
  command->add_option("--backend", arguments->backend, "Backend root URL, e.g. http://127.0.0.1:8080/")->required();
  command->add_option("--token", arguments->token, "Mobile token the backend issued (see kivfll token)")->required();
  command->add_option("--person", arguments->person, "Person id to verify")->required();
  command->add_option("--env", arguments->environment, "Environment whose backend root --backend replaces")
      ->check(CLI::IsMember({"dev", "beta", "prod"}))
      ->capture_default_str();
  command->add_flag("--prewarm", arguments->prewarm, "Prewarm the session before the start");
  command->add_flag("--loading", arguments->loading, "Show the SDK's own loading view while the session loads");
  command->add_option("--capture", arguments->capture, "What the simulated vendor plays")->capture_default_str();
  command->add_option("--camera", arguments->camera, "Camera access: the status, or the answer at the prompt")
      ->check(CLI::IsMember({"granted", "denied", "restricted", "ask-grant", "ask-deny"}))
      ->capture_default_str();
  command->add_option("--data-dir", arguments->dataDirectory,
                      "Directory of the secure store and user defaults (default: the XDG data directory)");
  command->add_flag("--json", arguments->json, "One JSON object per delegate call on standard output, nothing else");
  command->add_option("--simulate-crash", arguments->crashSignal,
                      "Raise this signal (SIGSEGV, SEGV or its number) right after the vendor launches");
  command->add_flag("--verbose", arguments->verbose,
                    "The SDK's diagnostic lines (requests, answers) on standard error");
  command->callback([&action, arguments] { action = [arguments] { return runAttempt(*arguments); }; });
}

}  // namespace kiv::cli
