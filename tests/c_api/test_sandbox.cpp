#include "test_sandbox.h"

#include <deque>
#include <iostream>
#include <memory>
#include <string>

#include "sandbox/sandbox_server.hpp"

struct kiv_test_sandbox {
  std::unique_ptr<kiv::sandbox::SandboxServer> server;
  std::string url;
  std::deque<std::string> tokens;  // stable addresses for the C side
};

extern "C" {

kiv_test_sandbox* kiv_test_sandbox_start(void) {
  auto server = kiv::sandbox::SandboxServer::start({});
  if (!server) {
    std::cerr << "sandbox: " << server.error() << "\n";
    return nullptr;
  }
  auto* sandbox = new kiv_test_sandbox{std::move(*server), {}, {}};
  sandbox->url = sandbox->server->rootURL();
  return sandbox;
}

void kiv_test_sandbox_stop(kiv_test_sandbox* sandbox) { delete sandbox; }

const char* kiv_test_sandbox_url(const kiv_test_sandbox* sandbox) { return sandbox->url.c_str(); }

const char* kiv_test_sandbox_token(kiv_test_sandbox* sandbox, const char* issuer) {
  return sandbox->tokens.emplace_back(sandbox->server->mintMobileToken(issuer, std::string("eu.capture.example")))
      .c_str();
}

size_t kiv_test_sandbox_requests(const kiv_test_sandbox* sandbox, const char* path) {
  return sandbox->server->requests({.path = path}).size();
}

}  // extern "C"
