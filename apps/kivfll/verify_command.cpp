// kivfll verify SIGNED_RESPONSE --key KEY: checks a session's signedResponse
// against the sandbox's public key and prints its claims.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.hpp"
#include "sandbox/signing.hpp"

namespace kiv::cli {
namespace {

struct VerifyArguments {
  std::string signedResponse;
  std::string key;
};

ExitStatus runVerify(const VerifyArguments& arguments) {
  const auto key = sandbox::parsePublicKey(arguments.key);
  if (!key) {
    std::cerr << "kivfll verify: " << key.error() << "\n";
    return ExitStatus::error;
  }
  const auto claims = sandbox::verifyCompactJws(arguments.signedResponse, *key);
  if (!claims) {
    std::cerr << "invalid: " << claims.error() << "\n";
    return ExitStatus::failure;
  }
  const auto parsed = nlohmann::ordered_json::parse(*claims, nullptr, false);
  std::cout << (parsed.is_discarded() ? *claims : parsed.dump(2)) << "\n";
  return ExitStatus::success;
}

}  // namespace

void addVerifyCommand(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<VerifyArguments>();
  auto* command = app.add_subcommand(
      "verify", "Check a signedResponse against a public key; print its claims (exit 0 valid, 1 invalid)");
  command->add_option("SIGNED_RESPONSE", arguments->signedResponse, "The session's signedResponse (a compact JWS)")
      ->required();
  command->add_option("--key", arguments->key, "Ed25519 public key in base64url, as `kivfll sandbox` prints it")
      ->required();
  command->callback([&action, arguments] { action = [arguments] { return runVerify(*arguments); }; });
}

}  // namespace kiv::cli
