#include "support/recording_http_server.hpp"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

namespace kiv::testing {

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

RecordingHttpServer::RecordingHttpServer() : default_(Answer::http(200)) { listen(0); }

void RecordingHttpServer::listen(int port) {
  auto server = loopback::LoopbackServer::listen({
      .port = port,
      .sharedPort = true,  // goDown() keeps the port with a second socket
      .handler = [this](const httplib::Request& request, httplib::Response& response) { handle(request, response); },
      .onAnswered =
          [this](const httplib::Request& request) {
            std::lock_guard lock(mutex_);
            if (const auto found = answering_.find(request.remote_port); found != answering_.end()) {
              answering_.erase(found);
            }
          },
  });
  if (!server) throw std::runtime_error("the recording server could not bind to 127.0.0.1");
  if (port == 0) port_ = (*server)->port();  // read by other threads from here on, never written again
  server_ = std::move(*server);
}

RecordingHttpServer::~RecordingHttpServer() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  std::lock_guard lifecycle(lifecycle_);
  if (portHolder_ >= 0) close(portHolder_);
  server_.reset();
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
  {
    std::lock_guard lock(mutex_);
    down_ = true;  // from here on nothing more is recorded
  }
  // A connection answering a recorded request is left to finish: its worker
  // writes the answer and, the listener being gone, then closes it. Every
  // other one is idle or carries a request that will not be recorded.
  server_->stop([this](int remotePort) {
    std::lock_guard lock(mutex_);
    return answering_.contains(remotePort);
  });
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

void RecordingHttpServer::dropConnections() {
  loopback::LoopbackServer::shutDownConnections(port_, [](int) { return true; });
}

bool RecordingHttpServer::waitForRequests(std::size_t count, std::chrono::milliseconds timeout) const {
  return arrivals_.waitUntil([&] { return requestCount() >= count; }, timeout);
}

bool RecordingHttpServer::waitForRequests(std::string_view path, std::size_t count,
                                          std::chrono::milliseconds timeout) const {
  return arrivals_.waitUntil([&] { return requests(path).size() >= count; }, timeout);
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
  for (auto& [name, value] : loopback::LoopbackServer::sentHeaders(request)) {
    recorded.headers.push_back({std::move(name), std::move(value)});
  }

  std::size_t index = 0;
  Responder responder;
  {
    std::unique_lock lock(mutex_);
    if (down_) {
      // Read while the server was going down: as if the connection had
      // broken before the request arrived.
      lock.unlock();
      return loopback::LoopbackServer::shutDownConnectionOf(request);
    }
    index = requests_.size();
    requests_.push_back(recorded);
    answering_.insert(request.remote_port);
    responder = responder_;
  }
  arrivals_.announce();

  std::optional<Answer> scripted = responder ? responder(recorded, index) : std::nullopt;
  Answer answer = scripted ? std::move(*scripted) : answerFor(recorded);
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return (!held_ && !heldPaths_.contains(recorded.path)) || stopping_; });
    changed_.wait_for(lock, answer.delay, [&] { return stopping_; });
  }

  if (answer.action == Answer::Action::dropConnection) return loopback::LoopbackServer::shutDownConnectionOf(request);
  response.status = answer.status;
  for (const auto& header : answer.headers) response.set_header(header.name, header.value);
  if (answer.action == Answer::Action::respond) {
    if (!answer.body.empty()) response.set_content(answer.body, answer.contentType);
    return;
  }
  response.set_content_provider(answer.declaredLength, answer.contentType,
                                [local = request.local_port, remote = request.remote_port, part = answer.body](
                                    std::size_t offset, std::size_t, httplib::DataSink& sink) {
                                  if (offset == 0 && !part.empty()) sink.write(part.data(), part.size());
                                  loopback::LoopbackServer::shutDownConnections(
                                      local, [remote](int port) { return port == remote; });
                                  return false;
                                });
}

Answer RecordingHttpServer::answerFor(const RecordedRequest& request) {
  std::lock_guard lock(mutex_);
  if (auto standing = standing_.find(request.path); standing != standing_.end()) return standing->second;
  return default_;
}

}  // namespace kiv::testing
