// kivfll demo: the whole product in one command. The sandbox backend starts
// in this process, a mobile token is minted for it, and the SDK is set up,
// prewarmed and run once with the simulated capture vendor; then a summary:
// the outcome, the signed response checked against the sandbox's key, the
// times, and what reached the backend. With --window the attempt runs in a
// GTK window: the host's page, the SDK's loading view, the capture vendor's
// screen and the outcome, with --screens DIR writing one PNG per stage.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "attempt_host.hpp"
#include "commands.hpp"
#include "kiv/backend.hpp"
#include "sandbox/sandbox_server.hpp"
#include "window_stage.hpp"

namespace kiv::cli {
namespace {

constexpr std::string_view kDemoScript =
    "connecting; wait 0.3; connected; wait 0.4; processing 0.2; wait 0.3; processing 0.5; wait 0.3; "
    "processing 0.8; wait 0.3; processing 1; wait 0.2; success";
constexpr std::string_view kDemoPerson = "demo-person-1";

// In a window the session takes this long, so a person sees the loading view.
constexpr std::int64_t kWindowSessionDelayMs = 1000;
// The look of the capture screen in a window: a bank's colours.
constexpr std::string_view kWindowLook = R"({
  "mask": {"isBlurEnabled": true, "color": "#1D3557B3"},
  "appBar": {"title": "Confirm it's you", "titleColor": "#FFFFFF", "color": "#1D3557", "closeButtonTintColor": "#FFFFFF"},
  "prompt": {"textColor": "#1D3557", "backgroundColor": "#F1FAEE", "isRounded": true}
})";

struct DemoArguments {
  std::string capture{kDemoScript};
  bool window = false;
  bool portalCamera = false;
  std::optional<std::filesystem::path> screens;
};

std::string milliseconds(const std::optional<std::chrono::duration<double>>& duration) {
  if (!duration) return "n/a";
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", duration->count() * 1000);
  return text;
}

// "start_sdk ×1, provider_event ×2, ..." of the analytics bodies received.
std::string analyticsEvents(const std::vector<sandbox::SandboxRequest>& requests) {
  std::map<std::string, int> counts;
  for (const auto& request : requests) {
    auto body = nlohmann::json::parse(request.body, nullptr, false);
    if (body.is_object() && body.contains("event") && body["event"].is_string()) ++counts[body["event"]];
  }
  std::string text;
  for (const auto& [name, count] : counts) {
    if (!text.empty()) text += ", ";
    text += name + " ×" + std::to_string(count);
  }
  return text.empty() ? "none" : text;
}

void printSummary(const AttemptReport& report, const sandbox::SandboxServer& sandbox) {
  std::cout << "\n── summary ──────────────────────────────────────────\n";
  std::cout << "outcome:          " << (report.outcome ? report.outcome->summary() : "none") << "\n";
  if (report.outcome && report.outcome->signedResponse) {
    const auto key = sandbox::parsePublicKey(sandbox.publicKey());
    const auto claims = key ? sandbox::verifyCompactJws(*report.outcome->signedResponse, *key)
                            : std::expected<std::string, std::string>(std::unexpected(key.error()));
    std::cout << "signed response:  "
              << (claims ? "verified with the sandbox key " + *claims : "NOT VERIFIED: " + claims.error()) << "\n";
  }
  std::cout << "setup to launch:  " << milliseconds(report.setupToLaunch) << "\n";
  std::cout << "session wait:     " << milliseconds(report.sessionRoundTrip) << " (loading() to loaded())\n";
  std::cout << "backend received: " << sandbox.requests({.path = "bff/sessions"}).size() << " session, "
            << sandbox.requests({.path = "bff/transactions"}).size() << " transaction\n";
  std::cout << "analytics:        " << analyticsEvents(sandbox.requests({.path = "bff/track-analytics"})) << "\n";
}

ExitStatus runDemo(const DemoArguments& arguments) {
  auto script = CaptureScript::parse(arguments.capture);
  if (!script) {
    std::cerr << "kivfll demo: --capture: " << script.error() << "\n";
    return ExitStatus::usage;
  }
  std::shared_ptr<AttemptStage> stage;
  if (arguments.window) {
    if (arguments.screens) {
      std::error_code ignored;
      std::filesystem::create_directories(*arguments.screens, ignored);
    }
    auto opened = openWindowStage({.screens = arguments.screens, .portalCamera = arguments.portalCamera});
    if (!opened) {
      std::cerr << "kivfll demo: --window: " << opened.error() << "\n";
      return ExitStatus::error;
    }
    stage = *opened;
  }
  auto sandbox = sandbox::SandboxServer::start({});
  if (!sandbox) {
    std::cerr << "kivfll demo: " << sandbox.error() << "\n";
    return ExitStatus::error;
  }
  // A store of its own, so the demo neither reads nor leaves anything in
  // the person's data directory.
  char pattern[] = "/tmp/kivfll-demo-XXXXXX";
  const char* made = ::mkdtemp(pattern);
  if (!made) {
    std::cerr << "kivfll demo: cannot create a temporary directory\n";
    return ExitStatus::error;
  }
  const std::filesystem::path dataDirectory(made);

  if (stage) {
    sandbox::FaultRule slowSessions;
    slowSessions.endpoint = sandbox::SandboxEndpoint::sessions;
    slowSessions.delayMs = kWindowSessionDelayMs;
    (*sandbox)->addFault(slowSessions);
  }
  const auto token = (*sandbox)->mintMobileToken("kivfll-demo", std::string("eu.capture.sandbox.example"));
  if (!setBackendRootURL(KivEnvironment::dev, (*sandbox)->rootURL())) return ExitStatus::error;
  std::cout << "KivFaceLivenessLite demo\n";
  std::cout << "sandbox backend:  " << (*sandbox)->rootURL() << "\n";
  std::cout << "person:           " << kDemoPerson << " (environment dev, prewarm on, SDK loading view on)\n\n";

  AttemptOptions options{.environment = KivEnvironment::dev,
                         .mobileToken = token,
                         .personId = std::string(kDemoPerson),
                         .prewarm = true,
                         .loading = true,
                         .capture = std::move(*script),
                         .dataDirectory = dataDirectory,
                         .uiCustomization = stage ? uiCustomizationFromJson(kWindowLook) : std::nullopt,
                         .stage = stage};
  const auto report = hostAttempt(options);
  printSummary(report, **sandbox);
  if (stage) {
    for (const auto& file : writtenScreens(*stage)) std::cout << "screen:           " << file.string() << "\n";
  }

  (*sandbox)->stop();
  std::error_code ignored;
  std::filesystem::remove_all(dataDirectory, ignored);
  return report.outcome ? static_cast<ExitStatus>(report.outcome->exitCode()) : ExitStatus::error;
}

}  // namespace

void addDemoCommand(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<DemoArguments>();
  auto* command = app.add_subcommand("demo", "Run one attempt end to end against an in-process sandbox backend");
  command->add_option("--capture", arguments->capture, "What the simulated vendor plays");
  command->add_flag("--window", arguments->window,
                    "Run the attempt in a window (GTK): host, loading, capture, outcome");
  command->add_option("--screens", arguments->screens, "With --window: write a PNG of each stage into this folder");
  command->add_flag("--portal-camera", arguments->portalCamera,
                    "With --window: ask the desktop's camera portal for the camera, as a sandboxed app would");
  command->callback([&action, arguments] { action = [arguments] { return runDemo(*arguments); }; });
}

}  // namespace kiv::cli
