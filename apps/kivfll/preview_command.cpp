// kivfll preview: what a customization looks like, as PNGs, without a
// phone. One attempt runs in a window against an in-process sandbox with the
// customization given to setup, as a host would give it, and each screen is
// written to the output folder: the host's page, the SDK's loading view, the
// capture vendor's screen at each status, the outcome, and with --gif the
// SDK's GIF overlay showing that GIF. Animations are
// frozen, so the same customization always gives the same pixels.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "attempt_host.hpp"
#include "commands.hpp"
#include "kiv/backend.hpp"
#include "kiv/image_helpers.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "sandbox/sandbox_server.hpp"
#include "window_stage.hpp"

namespace kiv::cli {
namespace {

// Every status the capture screen draws differently on the way to success.
// Each screen is written after the next frame; the pauses leave that frame
// ample time on a busy machine, the first one the time to lay the screen out.
constexpr std::string_view kPreviewScript =
    "wait 0.5; connecting; wait 0.5; connected; wait 0.5; processing 0.5; wait 0.5; success";
constexpr std::int64_t kPreviewSessionDelayMs = 800;  // time for the loading view's frame

struct PreviewArguments {
  std::filesystem::path customization;
  std::filesystem::path out;
  std::optional<std::filesystem::path> gif;
};

std::optional<std::string> readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

ExitStatus usage(const std::string& problem) {
  std::cerr << "kivfll preview: " << problem << "\n";
  return ExitStatus::usage;
}

ExitStatus runPreview(const PreviewArguments& arguments) {
  // Everything is checked before anything is written.
  const auto text = readFile(arguments.customization);
  if (!text) return usage("--customization: cannot read " + arguments.customization.string());
  auto look = uiCustomizationFromJson(*text);
  if (!look) {
    return usage("--customization: " + arguments.customization.string() +
                 " is not a customization in the C interface's JSON form (see kiv_sdk_setup)");
  }
  if (look->fontName && !makeLinuxPlatform().ui->font(*look->fontName, 14)) {
    return usage("--customization: no installed font is named \"" + *look->fontName + "\"");
  }
  ImageRef gif;
  if (arguments.gif) {
    const auto bytes = readFile(*arguments.gif);
    if (bytes) gif = gifImage(std::span(reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size()));
    if (!gif) return usage("--gif: " + arguments.gif->string() + " is not a GIF that decodes");
  }
  auto stage = openWindowStage({.screens = arguments.out, .gif = gif, .everyStatus = true});
  if (!stage) {
    std::cerr << "kivfll preview: " << stage.error() << "\n";
    return ExitStatus::error;
  }
  // The folder must take files: made if missing, and tried with a file that
  // is removed at once (permissions alone do not tell, for root above all).
  std::error_code error;
  std::filesystem::create_directories(arguments.out, error);
  const auto probe = (arguments.out / ".kivfll-preview-XXXXXX").string();
  std::vector<char> name(probe.begin(), probe.end());
  name.push_back('\0');
  const int fd = error ? -1 : ::mkstemp(name.data());
  if (fd < 0) return usage("--out: cannot write into " + arguments.out.string());
  ::close(fd);
  ::unlink(name.data());

  auto sandbox = sandbox::SandboxServer::start({});
  if (!sandbox) {
    std::cerr << "kivfll preview: " << sandbox.error() << "\n";
    return ExitStatus::error;
  }
  sandbox::FaultRule slowSessions;
  slowSessions.endpoint = sandbox::SandboxEndpoint::sessions;
  slowSessions.delayMs = kPreviewSessionDelayMs;
  (*sandbox)->addFault(slowSessions);
  char pattern[] = "/tmp/kivfll-preview-XXXXXX";
  const char* made = ::mkdtemp(pattern);
  if (!made) {
    std::cerr << "kivfll preview: cannot create a temporary directory\n";
    return ExitStatus::error;
  }
  if (!setBackendRootURL(KivEnvironment::dev, (*sandbox)->rootURL())) return ExitStatus::error;

  // The attempt's own transcript is of no use here: the files are.
  std::FILE* quiet = std::fopen("/dev/null", "w");
  AttemptOptions options{.environment = KivEnvironment::dev,
                         .mobileToken = (*sandbox)->mintMobileToken("kivfll-preview", "eu.capture.sandbox.example"),
                         .personId = "preview-person",
                         .loading = true,
                         .capture = *CaptureScript::parse(kPreviewScript),
                         .dataDirectory = std::filesystem::path(made),
                         .form = AttemptPrinter::Form::json,
                         .transcript = quiet,
                         .uiCustomization = std::move(look),
                         .stage = *stage};
  const auto report = hostAttempt(options);
  std::fclose(quiet);
  (*sandbox)->stop();
  std::filesystem::remove_all(made, error);

  for (const auto& written : writtenScreens(**stage)) std::cout << written.string() << "\n";
  return report.outcome && report.outcome->kind == Outcome::Kind::success ? ExitStatus::success : ExitStatus::error;
}

}  // namespace

void addPreviewCommand(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<PreviewArguments>();
  auto* command = app.add_subcommand(
      "preview", "Write PNGs of the SDK's screens with a capture-screen customization (needs a display)");
  command->add_option("--customization", arguments->customization, "The look, in the C interface's JSON form")
      ->required();
  command->add_option("--out", arguments->out, "The folder for the PNGs")->required();
  command->add_option("--gif", arguments->gif, "A GIF for the SDK's GIF overlay, shown over the outcome");
  command->callback([&action, arguments] { action = [arguments] { return runPreview(*arguments); }; });
}

}  // namespace kiv::cli
