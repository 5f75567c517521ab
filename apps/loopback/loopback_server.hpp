// An HTTP server on 127.0.0.1 that the sandbox backend and the tests'
// recording server are built on: what both need of cpp-httplib, set up once.
//
//   auto server = kiv::loopback::LoopbackServer::listen({
//       .handler = [](const httplib::Request& request, httplib::Response& response) { ... },
//   });
//   if (!server) die(server.error());
//   ... clients talk to 127.0.0.1:(*server)->port() ...
//   (*server)->stop();    // or let it go
//
// Every method and path reaches the one handler, on one of the server's
// worker threads. Kept-alive connections get an answer at once (no Nagle
// delay on loopback) and are never closed for their number of requests.
// Writing to a connection the client already closed never raises SIGPIPE,
// and making the server does not change the process's SIGPIPE disposition,
// so a host that embeds it keeps its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <expected>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace kiv::loopback {

class LoopbackServer {
 public:
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;
  // Which connections, by the client's port.
  using ConnectionFilter = std::function<bool(int remotePort)>;

  struct Options {
    int port = 0;  // 0: any free port
    // Whether another socket may bind the port while this server listens
    // (SO_REUSEPORT), as the recording server's placeholder does while it is
    // down. Off, a second server on the port is refused instead of taking
    // half of this one's connections.
    bool sharedPort = false;
    Handler handler;
    // Called once an answer has been written to the socket (or failed to be).
    std::function<void(const httplib::Request&)> onAnswered{};
  };

  // Listening once it returns; the reason when the port cannot be had.
  static std::expected<std::unique_ptr<LoopbackServer>, std::string> listen(Options options);
  // Stops, closing every connection.
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  int port() const { return port_; }

  // Stops accepting, shuts down every connection but those `keep` names
  // (their workers finish the answer they are writing, then close them) and
  // waits for the accept loop. Idempotent; a stopped server does not come up
  // again.
  void stop(const ConnectionFilter& keep = {});

  // Shuts down, from the server's side, the connections to `localPort` that
  // `which` names; the library closes their descriptors. Safe from any
  // thread, a worker's included, and needs no pointer to the server (which
  // a worker may run before its owner holds).
  static void shutDownConnections(int localPort, const ConnectionFilter& which);
  // The connection `request` came on.
  static void shutDownConnectionOf(const httplib::Request& request);

  // A request's header fields as the client sent them, without those the
  // library adds (its address and port, ours).
  static std::vector<std::pair<std::string, std::string>> sentHeaders(const httplib::Request& request);

 private:
  LoopbackServer();

  std::unique_ptr<httplib::Server> server_;
  std::thread listener_;
  int port_ = 0;
  std::mutex stopMutex_;
  bool stopped_ = false;
};

// Lets any thread wait for requests that the server's workers record.
//
//   record(request); arrivals.announce();                       // a worker
//   arrivals.waitUntil([&] { return recorded() >= 3; }, 10s);   // a test
class Arrivals {
 public:
  // After a request was recorded.
  void announce();
  // Waits until `arrived()` holds, checking it again at every announcement;
  // false at the bound.
  bool waitUntil(const std::function<bool()>& arrived, std::chrono::milliseconds bound) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable announced_;
};

}  // namespace kiv::loopback
