#include "loopback/loopback_server.hpp"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#if defined(__SANITIZE_THREAD__)
// Debian's cpp-httplib is not built for ThreadSanitizer: the ordering its own
// compiled code establishes between its workers is invisible, so copies it
// makes inside itself show up as races. Reports that involve our code still
// come through. Weak, so that a program that brings its own wins.
extern "C" __attribute__((weak)) const char* __tsan_default_suppressions() { return "race:libcpp-httplib.so\n"; }
#endif

namespace kiv::loopback {
namespace {

constexpr const char* kLoopback = "127.0.0.1";
// Every kept-alive connection holds a worker for as long as it stays open.
constexpr std::size_t kWorkerThreads = 32;
// Without this and TCP_NODELAY the library answers kept-alive requests on
// loopback ~26 ms late (Nagle against delayed ACKs) and closes a connection
// every 5 requests.
constexpr std::size_t kRequestsPerConnection = 1'000'000;

// Fields the library adds to every request; a client never sent them.
bool isAddedByServer(const std::string& name) {
  return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT";
}

int portOf(const sockaddr_storage& address) {
  if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
  if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
  return -1;
}

// The library ignores SIGPIPE for the whole process when a server is made;
// that would hide from a host (or a test) a client that lets a write raise
// it. The workers block the signal instead (see the listener thread).
std::unique_ptr<httplib::Server> makeServerKeepingSigpipe() {
  struct sigaction previous {};
  sigaction(SIGPIPE, nullptr, &previous);
  auto server = std::make_unique<httplib::Server>();
  sigaction(SIGPIPE, &previous, nullptr);
  return server;
}

}  // namespace

LoopbackServer::LoopbackServer() : server_(makeServerKeepingSigpipe()) {}

std::expected<std::unique_ptr<LoopbackServer>, std::string> LoopbackServer::listen(Options options) {
  std::unique_ptr<LoopbackServer> loopback(new LoopbackServer());
  auto& server = *loopback->server_;
  if (!options.sharedPort) {
    // Only SO_REUSEADDR (the library's default adds SO_REUSEPORT), so that
    // a restarted server gets its port back at once.
    server.set_socket_options([](int socket) {
      int yes = 1;
      setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
  }
  server.set_tcp_nodelay(true);
  server.set_keep_alive_max_count(kRequestsPerConnection);
  server.new_task_queue = [] { return new httplib::ThreadPool(kWorkerThreads); };
  server.Get(".*", options.handler);
  server.Post(".*", options.handler);
  server.Put(".*", options.handler);
  server.Patch(".*", options.handler);
  server.Delete(".*", options.handler);
  server.Options(".*", options.handler);
  if (options.onAnswered) {
    server.set_logger([onAnswered = std::move(options.onAnswered)](const httplib::Request& request,
                                                                   const httplib::Response&) { onAnswered(request); });
  }

  const int wanted = options.port;
  loopback->port_ =
      wanted == 0 ? server.bind_to_any_port(kLoopback) : (server.bind_to_port(kLoopback, wanted) ? wanted : -1);
  if (loopback->port_ <= 0)
    return std::unexpected("cannot listen on " + std::string(kLoopback) + ":" + std::to_string(wanted));
  loopback->listener_ = std::thread([&server] {
    // The workers are created by this thread and inherit its mask: writing
    // to a connection the client already closed must not end the process.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    server.listen_after_bind();
  });
  // stop() is ignored until the accept loop runs.
  while (!server.is_running()) std::this_thread::yield();
  return loopback;
}

LoopbackServer::~LoopbackServer() { stop(); }

void LoopbackServer::stop(const ConnectionFilter& keep) {
  {
    std::lock_guard lock(stopMutex_);
    if (stopped_) return;
    stopped_ = true;
  }
  server_->stop();
  // Kept-alive connections would hold their workers until the keep-alive
  // time-out; closing them lets the workers end now.
  shutDownConnections(port_, [&](int remotePort) { return !keep || !keep(remotePort); });
  if (listener_.joinable()) listener_.join();
}

void LoopbackServer::shutDownConnections(int localPort, const ConnectionFilter& which) {
  // The library keeps its accepted sockets to itself; they are found among
  // the process's descriptors by their local port. shutdown() rather than
  // close() leaves the descriptor to the library, which closes it.
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const int fd = std::atoi(entry.path().filename().c_str());
    sockaddr_storage local{};
    sockaddr_storage peer{};
    socklen_t localLength = sizeof local;
    socklen_t peerLength = sizeof peer;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0) continue;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0) continue;
    if (portOf(local) != localPort || !which(portOf(peer))) continue;
    shutdown(fd, SHUT_RDWR);
  }
}

void LoopbackServer::shutDownConnectionOf(const httplib::Request& request) {
  shutDownConnections(request.local_port, [remote = request.remote_port](int port) { return port == remote; });
}

std::vector<std::pair<std::string, std::string>> LoopbackServer::sentHeaders(const httplib::Request& request) {
  std::vector<std::pair<std::string, std::string>> sent;
  for (const auto& [name, value] : request.headers) {
    if (!isAddedByServer(name)) sent.emplace_back(name, value);
  }
  return sent;
}

void Arrivals::announce() {
  {
    // Taken so that a waiter between its check and its wait still hears this.
    std::lock_guard lock(mutex_);
  }
  announced_.notify_all();
}

bool Arrivals::waitUntil(const std::function<bool()>& arrived, std::chrono::milliseconds bound) const {
  std::unique_lock lock(mutex_);
  return announced_.wait_for(lock, bound, arrived);
}

}  // namespace kiv::loopback
