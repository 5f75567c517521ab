// kivfll token --iss ISS [--service-location LOC]: a mobile token to set the
// SDK up with against the sandbox.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "commands.hpp"
#include "sandbox/mobile_token.hpp"

namespace kiv::cli {
namespace {

struct TokenArguments {
  std::string issuer;
  std::optional<std::string> serviceLocation;
};

ExitStatus runToken(const TokenArguments& arguments) {
  std::cout << sandbox::mintMobileToken(arguments.issuer, arguments.serviceLocation) << "\n";
  return ExitStatus::success;
}

}  // namespace

void addTokenCommand(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<TokenArguments>();
  auto* command = app.add_subcommand("token", "Print a test mobile token (a JWT the SDK reads but never verifies)");
  command->add_option("--iss", arguments->issuer, "Issuer claim: the client the token was issued to")->required();
  command->add_option("--service-location", arguments->serviceLocation,
                      "Capture service host for the supplier (omitted from the token when not given)");
  command->callback([&action, arguments] { action = [arguments] { return runToken(*arguments); }; });
}

}  // namespace kiv::cli
