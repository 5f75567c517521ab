// A server on loopback that answers every request 204 and counts the
// connections the requests came on: the far end of the analytics benchmarks.
//
//   NoContentServer server;
//   kiv::setBackendRootURL(kiv::KivEnvironment::dev, server.url());
//   ... post ...
//   server.connectionsUsed();
#pragma once

#include <httplib.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "loopback/loopback_server.hpp"

namespace kiv::bench {

class NoContentServer {
 public:
  NoContentServer() {
    auto server = loopback::LoopbackServer::listen(
        {.handler = [this](const httplib::Request& request, httplib::Response& response) {
          response.status = 204;
          std::lock_guard lock(mutex_);
          ports_.insert(request.remote_port);
        }});
    if (!server) std::abort();
    server_ = std::move(*server);
  }

  // "http://127.0.0.1:<port>" + `path`; url() is a root ending in "/".
  std::string url(std::string_view path = "/") const {
    return "http://127.0.0.1:" + std::to_string(server_->port()) + std::string(path);
  }
  std::size_t connectionsUsed() const {
    std::lock_guard lock(mutex_);
    return ports_.size();
  }

 private:
  mutable std::mutex mutex_;
  std::set<int> ports_;
  std::unique_ptr<loopback::LoopbackServer> server_;
};

}  // namespace kiv::bench
