// The subcommands of kivfll. Each lives in its own <name>_command.cpp and
// registers itself on the application with add<Name>Command; when the
// command line chooses it, its parse callback sets the action that main()
// then runs. A new subcommand (demo, run) adds one file and one line in
// main.cpp.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace kiv::cli {

// The exit status convention of the whole tool.
enum class ExitStatus : int {
  success = 0,
  failure = 1,    // the command ran and its answer is no (an invalid signature, a failed attempt)
  error = 2,      // the command could not do its work (a port taken, a file unreadable)
  cancelled = 3,  // the person or the host cancelled
  usage = 64,     // the command line is wrong (sysexits' EX_USAGE)
};

using Action = std::function<ExitStatus()>;

void addDemoCommand(CLI::App& app, Action& action);
void addPreviewCommand(CLI::App& app, Action& action);
void addRunCommand(CLI::App& app, Action& action);
void addSandboxCommand(CLI::App& app, Action& action);
void addTokenCommand(CLI::App& app, Action& action);
void addVerifyCommand(CLI::App& app, Action& action);

}  // namespace kiv::cli
