#include "support/recording_http_server.hpp"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <set>

#if defined(__SANITIZE_THREAD__)
// Debian's cpp-httplib is not built for ThreadSanitizer: the ordering its own
// compiled code establishes between its workers is invisible, so copies it
// makes inside itself show up as races. Reports that involve our code still
// come through.
extern "C" const char* __tsan_default_suppressions() { return "race:libcpp-httplib.so\n"; }
#endif

namespace kiv::testing {
namespace {

// Every kept-alive connection holds a worker for as long as it stays open.
constexpr std::size_t kWorkerThreads = 32;
constexpr std::size_t kRequestsPerConnection = 1'000'000;

// Fields the server library adds to every request; a client never sent them.
bool isAddedByServer(const std::string& name) {
  return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT";
}

int portOf(const sockaddr_storage& address) {
  if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
  if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
  return -1;
}

}  // namespace

Answer Answer::http(int status, std::string body, std::string contentType) {
  return {.status = status, .body = std::move(body), .contentType = std::move(contentType)};
}

Answer Answer::dropConnection() { return {.action = Action::dropConnection}; }

Answer Answer::cutOff(int status, std::string bodyStart, std::size_t declaredLength) {
  return {.action = Action::cutOff,
          .status = status,
          .body = std::move(bodyStart),
          .contentType = "application/octet-stream",
          .declaredLength = declaredLength};
}

Answer Answer::withHeader(std::string name, std::string value) && {
  headers.push_back({std::move(name), std::move(value)});
  return std::move(*this);
}

Answer Answer::after(std::chrono::milliseconds wait) && {
  delay = wait;
  return std::move(*this);
}

namespace {

// The server library ignores SIGPIPE for the whole process when a server is
// made; that would hide from every test a client that lets a write raise it.
// Its workers block the signal instead (see the listener thread).
std::unique_ptr<httplib::Server> makeServerKeepingSigpipe() {
  struct sigaction previous {};
  sigaction(SIGPIPE, nullptr, &previous);
  auto server = std::make_unique<httplib::Server>();
  sigaction(SIGPIPE, &previous, nullptr);
  return server;
}

}  // namespace

RecordingHttpServer::RecordingHttpServer() : default_(Answer::http(200)) { listen(0); }

void RecordingHttpServer::listen(int port) {
  auto server = makeServerKeepingSigpipe();
  server->set_tcp_nodelay(true);
  server->set_keep_alive_max_count(kRequestsPerConnection);
  server->new_task_queue = [] { return new httplib::ThreadPool(kWorkerThreads); };
  const httplib::Server::Handler handler = [this](const httplib::Request& request, httplib::Response& response) {
    handle(request, response);
  };
  server->Get(".*", handler);
  server->Post(".*", handler);
  server->Put(".*", handler);
  server->Patch(".*", handler);
  server->Delete(".*", handler);
  server->Options(".*", handler);
  // Called once the answer has been written to the socket (or failed to be).
  server->set_logger([this](const httplib::Request& request, const httplib::Response&) {
    std::lock_guard lock(mutex_);
    if (const auto found = answering_.find(request.remote_port); found != answering_.end()) answering_.erase(found);
  });

  const int bound =
      port == 0 ? server->bind_to_any_port("127.0.0.1") : (server->bind_to_port("127.0.0.1", port) ? port : -1);
  if (bound <= 0) throw std::runtime_error("the recording server could not bind to 127.0.0.1");
  if (port == 0) port_ = bound;  // read by other threads from here on, never written again
  server_ = std::move(server);
  listener_ = std::thread([server = server_.get()] {
    // The workers are created by this thread and inherit its mask: writing
    // to a connection the client already closed must not kill the tests.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
    server->listen_after_bind();
  });
  // stop() is ignored until the accept loop runs, so wait for it here.
  while (!server_->is_running()) std::this_thread::yield();
}

RecordingHttpServer::~RecordingHttpServer() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  std::lock_guard lifecycle(lifecycle_);
  if (portHolder_ >= 0) close(portHolder_);
  if (!server_) return;
  server_->stop();
  // Kept-alive connections would hold their workers until the keep-alive
  // time-out; closing them lets the workers end now.
  shutDownConnections(0);
  listener_.join();
}

void RecordingHttpServer::goDown() {
  std::lock_guard lifecycle(lifecycle_);
  if (!server_) return;
  // Bound before the listener closes (both share the port), so that no other
  // server of the machine takes the port meanwhile; not listening, it
  // refuses connections.
  portHolder_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port_));
  if (portHolder_ < 0 || setsockopt(portHolder_, SOL_SOCKET, SO_REUSEPORT, &yes, sizeof yes) != 0 ||
      bind(portHolder_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    if (portHolder_ >= 0) close(portHolder_);
    portHolder_ = -1;
    throw std::runtime_error("the recording server could not keep its port while down");
  }
  std::multiset<int> answering;
  {
    std::lock_guard lock(mutex_);
    down_ = true;  // from here on nothing more is recorded
  }
  server_->stop();
  {
    std::lock_guard lock(mutex_);
    answering = answering_;
  }
  // A connection answering a recorded request is left to finish: its worker
  // writes the answer and, the listener being gone, then closes it. Every
  // other one is idle or carries a request that will not be recorded.
  shutDownConnections([&](int remotePort) { return !answering.contains(remotePort); });
  listener_.join();
  server_.reset();
  std::lock_guard lock(mutex_);
  answering_.clear();  // answers whose write failed before the logger saw them
}

void RecordingHttpServer::comeUp() {
  std::lock_guard lifecycle(lifecycle_);
  if (server_) return;
  {
    std::lock_guard lock(mutex_);
    down_ = false;
  }
  listen(port_);
  close(portHolder_);
  portHolder_ = -1;
}

std::string RecordingHttpServer::url(std::string_view path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

void RecordingHttpServer::setAnswer(const std::string& path, Answer answer) {
  std::lock_guard lock(mutex_);
  standing_[path] = std::move(answer);
}

void RecordingHttpServer::setDefaultAnswer(Answer answer) {
  std::lock_guard lock(mutex_);
  default_ = std::move(answer);
}

void RecordingHttpServer::setResponder(Responder responder) {
  std::lock_guard lock(mutex_);
  responder_ = std::move(responder);
}

void RecordingHttpServer::holdAnswers() {
  std::lock_guard lock(mutex_);
  held_ = true;
}

void RecordingHttpServer::holdAnswers(const std::string& path) {
  std::lock_guard lock(mutex_);
  heldPaths_.insert(path);
}

void RecordingHttpServer::releaseAnswers() {
  {
    std::lock_guard lock(mutex_);
    held_ = false;
    heldPaths_.clear();
  }
  changed_.notify_all();
}

void RecordingHttpServer::dropConnections() { shutDownConnections(0); }

bool RecordingHttpServer::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return requests_.size() >= count; });
}

std::size_t RecordingHttpServer::requestCount() const {
  std::lock_guard lock(mutex_);
  return requests_.size();
}

std::vector<RecordedRequest> RecordingHttpServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<RecordedRequest> RecordingHttpServer::requests(std::string_view path) const {
  std::lock_guard lock(mutex_);
  std::vector<RecordedRequest> matching;
  std::ranges::copy_if(requests_, std::back_inserter(matching), [&](const auto& r) { return r.path == path; });
  return matching;
}

std::size_t RecordingHttpServer::connectionsUsed() const {
  std::lock_guard lock(mutex_);
  std::set<int> ports;
  for (const auto& request : requests_) ports.insert(request.remotePort);
  return ports.size();
}

void RecordingHttpServer::handle(const httplib::Request& request, httplib::Response& response) {
  RecordedRequest recorded{.method = request.method,
                           .target = request.target,
                           .path = request.path,
                           .body = request.body,
                           .remotePort = request.remote_port};
  for (const auto& [name, value] : request.headers) {
    if (!isAddedByServer(name)) recorded.headers.push_back({name, value});
  }

  std::size_t index = 0;
  Responder responder;
  {
    std::unique_lock lock(mutex_);
    if (down_) {
      // Read while the server was going down: as if the connection had
      // broken before the request arrived.
      lock.unlock();
      return shutDownConnections(request.remote_port);
    }
    index = requests_.size();
    requests_.push_back(recorded);
    answering_.insert(request.remote_port);
    responder = responder_;
  }
  changed_.notify_all();

  std::optional<Answer> scripted = responder ? responder(recorded, index) : std::nullopt;
  Answer answer = scripted ? std::move(*scripted) : answerFor(recorded);
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return (!held_ && !heldPaths_.contains(recorded.path)) || stopping_; });
    changed_.wait_for(lock, answer.delay, [&] { return stopping_; });
  }

  if (answer.action == Answer::Action::dropConnection) return shutDownConnections(request.remote_port);
  response.status = answer.status;
  for (const auto& header : answer.headers) response.set_header(header.name, header.value);
  if (answer.action == Answer::Action::respond) {
    if (!answer.body.empty()) response.set_content(answer.body, answer.contentType);
    return;
  }
  response.set_content_provider(answer.declaredLength, answer.contentType,
                                [this, remotePort = request.remote_port, part = answer.body](
                                    std::size_t offset, std::size_t, httplib::DataSink& sink) {
                                  if (offset == 0 && !part.empty()) sink.write(part.data(), part.size());
                                  shutDownConnections(remotePort);
                                  return false;
                                });
}

Answer RecordingHttpServer::answerFor(const RecordedRequest& request) {
  std::lock_guard lock(mutex_);
  if (auto standing = standing_.find(request.path); standing != standing_.end()) return standing->second;
  return default_;
}

void RecordingHttpServer::shutDownConnections(int remotePort) const {
  shutDownConnections([remotePort](int port) { return remotePort == 0 || port == remotePort; });
}

void RecordingHttpServer::shutDownConnections(const std::function<bool(int remotePort)>& which) const {
  // The server library keeps its accepted sockets to itself; they are found
  // among the process's descriptors by their local port. shutdown() rather
  // than close() leaves the descriptor to the library, which closes it.
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const int fd = std::atoi(entry.path().filename().c_str());
    sockaddr_storage local{};
    sockaddr_storage peer{};
    socklen_t localLength = sizeof local;
    socklen_t peerLength = sizeof peer;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0) continue;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) != 0) continue;
    if (portOf(local) != port_ || !which(portOf(peer))) continue;
    shutdown(fd, SHUT_RDWR);
  }
}

}  // namespace kiv::testing
