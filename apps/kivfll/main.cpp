// kivfll: the command-line host of KivFaceLivenessLite.
#include <CLI/CLI.hpp>
#include <array>
#include <exception>
#include <iostream>

#include "commands.hpp"

namespace {

using kiv::cli::Action;
using kiv::cli::ExitStatus;

// Every subcommand, in the order `kivfll --help` lists them.
constexpr std::array kCommands{
    &kiv::cli::addDemoCommand,    &kiv::cli::addPreviewCommand, &kiv::cli::addRunCommand,
    &kiv::cli::addSandboxCommand, &kiv::cli::addTokenCommand,   &kiv::cli::addVerifyCommand,
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"The command-line host of the KivFaceLivenessLite SDK.", "kivfll"};
  app.set_version_flag("--version", KIVFLL_VERSION);
  app.require_subcommand(1, 1);

  Action action;
  for (const auto& add : kCommands) add(app, action);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& problem) {
    // --help and --version print to standard output and succeed; anything
    // else is a usage error, explained on standard error.
    const int code = app.exit(problem);
    return code == 0 ? static_cast<int>(ExitStatus::success) : static_cast<int>(ExitStatus::usage);
  }

  try {
    return static_cast<int>(action());
  } catch (const std::exception& problem) {
    std::cerr << "kivfll: " << problem.what() << "\n";
    return static_cast<int>(ExitStatus::error);
  }
}
