// kivfll sandbox [--port N] [--db FILE]: the sandbox backend alone, until
// SIGINT or SIGTERM. The first line names the root URL, the second the
// public key that signs every signedResponse; then one line per request.
#include <pthread.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "commands.hpp"
#include "terminal_text.hpp"
#include "sandbox/sandbox_server.hpp"

namespace kiv::cli {
namespace {

struct SandboxArguments {
  int port = 8080;
  std::optional<std::string> database;
};

// Lines come from the server's threads; each is written whole and flushed,
// so a reader on a pipe sees it at once.
class LineWriter {
 public:
  void write(const std::string& line) {
    std::lock_guard lock(mutex_);
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
  }

 private:
  std::mutex mutex_;
};

// Method, path and query are the client's own bytes.
std::string describe(const sandbox::SandboxRequest& request) {
  std::string line = "[" + std::to_string(request.id) + "] " + request.method + " " + request.path;
  if (!request.query.empty()) line += "?" + request.query;
  line += " -> " + (request.status ? std::to_string(*request.status) : std::string("no answer"));
  if (!request.outcome.empty()) line += " (" + request.outcome + ")";
  return terminalSafe(line);
}

ExitStatus runSandbox(const SandboxArguments& arguments) {
  // Blocked before the server starts its threads, so they inherit the mask
  // and the signals wait for sigwait() below.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  LineWriter writer;
  sandbox::SandboxOptions options{
      .port = arguments.port,
      .onRequest = [&writer](const sandbox::SandboxRequest& request) { writer.write(describe(request)); }};
  if (arguments.database) {
    if (arguments.database->empty()) {
      std::cerr << "kivfll sandbox: --db: the file name is empty\n";
      return ExitStatus::usage;
    }
    options.database = *arguments.database;
  }
  auto sandbox = sandbox::SandboxServer::start(std::move(options));
  if (!sandbox) {
    std::cerr << "kivfll sandbox: " << sandbox.error() << "\n";
    return ExitStatus::error;
  }
  writer.write("sandbox listening on " + (*sandbox)->rootURL());
  writer.write("public key: " + (*sandbox)->publicKey());

  int received = 0;
  sigwait(&stopSignals, &received);
  writer.write(std::string("stopping on ") + (received == SIGINT ? "SIGINT" : "SIGTERM"));
  (*sandbox)->stop();
  return ExitStatus::success;
}

}  // namespace

void addSandboxCommand(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<SandboxArguments>();
  auto* command = app.add_subcommand("sandbox", "Run the sandbox backend on 127.0.0.1 until Ctrl-C");
  command->add_option("--port", arguments->port, "Port to listen on; 0 picks a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  command->add_option("--db", arguments->database, "SQLite file to record the requests in (default: in memory)");
  command->callback([&action, arguments] { action = [arguments] { return runSandbox(*arguments); }; });
}

}  // namespace kiv::cli
