// HTTP sessions that answer from a function instead of a socket, for answers
// a real server cannot give: a response that is not HTTP, a chosen transport
// error. Wire formats are tested against RecordingHttpServer instead.
//
//   auto factory = std::make_shared<ScriptedHttpSessionFactory>([](const HttpRequest& request) {
//     return DataTaskResult{.data = "", .response = NonHttpResponse{request.url}};
//   });
//   testPlatform().bundle().http = factory;
//   testPlatform().install();
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "kiv/platform/http.hpp"

namespace kiv::testing {

class ScriptedHttpSessionFactory final : public HttpSessionFactory,
                                         public std::enable_shared_from_this<ScriptedHttpSessionFactory> {
 public:
  using Responder = std::function<DataTaskResult(const HttpRequest&)>;
  explicit ScriptedHttpSessionFactory(Responder responder) : responder_(std::move(responder)) {}

  // Completions run on the installed task pool, one per resumed task.
  std::shared_ptr<HttpSession> makeSession(HttpSessionConfiguration configuration) override;

  // Every request resumed on any of the sessions, in order.
  std::vector<HttpRequest> requests() const;

 private:
  friend class ScriptedHttpSession;
  DataTaskResult answer(const HttpRequest& request);

  Responder responder_;
  mutable std::mutex mutex_;
  std::vector<HttpRequest> requests_;
};

}  // namespace kiv::testing
