// A real HTTP server on 127.0.0.1 for wire tests: it records every request it
// receives and answers from a script.
//
//   RecordingHttpServer server;                                   // listening on an ephemeral port
//   server.setAnswer("/bff/sessions", Answer::json(200, R"({"id":"s1"})"));
//   ... the code under test posts to server.url("/bff/sessions") ...
//   ASSERT_TRUE(server.waitForRequests(1));
//   auto request = server.requests().front();
//   EXPECT_EQ(request.header("Authorization"), "token");
//   EXPECT_EQ(request.bodyJson()->at("event"), "start_sdk");
//
// How a request is answered, first match wins: the responder (setResponder)
// if it gives an answer; the standing answer for the path (setAnswer); the
// default answer (200, empty).
// Paths are matched exactly, without the query.
//
// Keep-alive is on (TCP_NODELAY, no per-connection request limit), so a
// client's connection reuse shows in RecordedRequest::remotePort. The
// destructor closes every open connection and returns promptly, also while
// answers are delayed or held.
//
// goDown() and comeUp() take the server off the network and back on the same
// port, keeping what it recorded:
//   server.goDown();   // connections are refused from now on
//   server.comeUp();
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/json.hpp"
#include "kiv/platform/http.hpp"
#include "loopback/loopback_server.hpp"

namespace kiv::testing {

struct RecordedRequest {
  std::string method;
  std::string target;  // path and query as sent: "/bff/sessions?asyncAttempt=true"
  std::string path;    // without the query
  // Names as the client sent them. The server library sorts fields by name,
  // so the order on the wire is not kept, and it drops fields whose value is
  // empty.
  HttpHeaders headers{};
  std::string body;
  int remotePort = 0;  // the client's port: equal ports, one connection

  std::optional<std::string> header(std::string_view name) const { return headerValue(headers, name); }
  // The body as JSON; absent when it is not exactly one JSON value.
  std::optional<Json> bodyJson() const { return json::parse(body); }
};

struct Answer {
  enum class Action {
    respond,
    dropConnection,  // close the connection before a byte of the answer
    cutOff,          // status and headers, then part of the body, then close
  };

  Action action = Action::respond;
  int status = 200;
  std::string body{};
  std::string contentType{};  // sent when the body is not empty
  HttpHeaders headers{};
  std::chrono::milliseconds delay{0};  // waited before answering (cut short when the server stops)
  std::size_t declaredLength = 0;      // cutOff: the Content-Length announced

  // A status with an optional body.
  static Answer http(int status, std::string body = {}, std::string contentType = "text/plain");
  static Answer json(int status, std::string body) { return http(status, std::move(body), "application/json"); }
  // The client sees no response and a transport error. libcurl retries a
  // request once when a reused connection dies before any answer, so a test
  // that wants the failure seen should drop every attempt.
  static Answer dropConnection();
  // The client gets the status and headers, then `bodyStart` of a body
  // announced as `declaredLength` bytes: a response together with an error.
  static Answer cutOff(int status, std::string bodyStart, std::size_t declaredLength);

  Answer withHeader(std::string name, std::string value) &&;
  Answer after(std::chrono::milliseconds wait) &&;
};

class RecordingHttpServer {
 public:
  RecordingHttpServer();
  ~RecordingHttpServer();
  RecordingHttpServer(const RecordingHttpServer&) = delete;
  RecordingHttpServer& operator=(const RecordingHttpServer&) = delete;

  // "http://127.0.0.1:<port>" + `path`; url() is a root ending in "/".
  std::string url(std::string_view path = "/") const;

  // The script. Safe to change while requests arrive.
  void setAnswer(const std::string& path, Answer answer);
  void setDefaultAnswer(Answer answer);
  // Asked first for every request (with its index in arrival order); absent
  // falls through to the script.
  using Responder = std::function<std::optional<Answer>(const RecordedRequest&, std::size_t index)>;
  void setResponder(Responder responder);

  // While held, requests are recorded but not answered, so a test can see
  // several requests in flight at once. Released by releaseAnswers() or the
  // destructor.
  void holdAnswers();
  // The same for requests to `path` only; the others are answered.
  void holdAnswers(const std::string& path);
  void releaseAnswers();

  // Closes every open connection from the server's side now.
  void dropConnections();

  // Stops listening: new connections are refused, idle kept-alive ones are
  // closed, a request read but not yet recorded is dropped unanswered, and
  // every request already recorded is answered before this returns. So no
  // request is ever recorded without its answer reaching the socket, which
  // is what lets a client that retries deliver each body exactly once.
  // Held and delayed answers are waited for. Nothing while down already.
  void goDown();
  // Listens again on the same port (kept reserved while down). Nothing
  // while up.
  void comeUp();

  // Waits until at least `count` requests have arrived; false on time-out.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  // The same for requests to `path`.
  bool waitForRequests(std::string_view path, std::size_t count,
                       std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  std::size_t requestCount() const;
  std::vector<RecordedRequest> requests() const;
  std::vector<RecordedRequest> requests(std::string_view path) const;
  // Connections the requests so far came on (distinct client ports).
  std::size_t connectionsUsed() const;

 private:
  // Starts a server listening on `port` (0: any free port).
  void listen(int port);
  void handle(const httplib::Request& request, httplib::Response& response);
  Answer answerFor(const RecordedRequest& request);
  // Guards server_ and portHolder_: up, down and destruction.
  std::mutex lifecycle_;
  std::unique_ptr<loopback::LoopbackServer> server_;  // null while down
  int port_ = 0;
  int portHolder_ = -1;  // a socket bound to the port, not listening, while down

  // Connections (by client port) whose request was recorded and whose answer
  // is not yet written; guarded by mutex_.
  std::multiset<int> answering_;
  bool down_ = false;

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;  // holds released, stopping
  loopback::Arrivals arrivals_;
  std::vector<RecordedRequest> requests_;
  std::map<std::string, Answer> standing_;
  Answer default_;
  Responder responder_;
  bool held_ = false;
  std::set<std::string> heldPaths_;
  bool stopping_ = false;
};

}  // namespace kiv::testing
