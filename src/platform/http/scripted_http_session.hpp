// HTTP sessions that answer from a function instead of a socket, for answers
// a real server cannot give: a response that is not HTTP, a chosen transport
// error. Wire formats are tested against a real server instead.
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

namespace kiv {

// Sessions keep no state of their own, so the factory hands out itself.
class ScriptedHttpSessionFactory final : public HttpSessionFactory,
                                         public HttpSession,
                                         public std::enable_shared_from_this<ScriptedHttpSessionFactory> {
 public:
  using Responder = std::function<DataTaskResult(const HttpRequest&)>;
  explicit ScriptedHttpSessionFactory(Responder responder) : responder_(std::move(responder)) {}

  std::shared_ptr<HttpSession> makeSession(HttpSessionConfiguration) override { return shared_from_this(); }
  // Completions run on the installed task pool, one per resumed or cancelled task.
  std::shared_ptr<HttpDataTask> dataTask(HttpRequest request, DataTaskCompletion completion) override;
  void invalidateAndCancel() override {}

  // Every request answered on any of the sessions, in order.
  std::vector<HttpRequest> requests() const;
  DataTaskResult answer(const HttpRequest& request);

 private:
  Responder responder_;
  mutable std::mutex mutex_;
  std::vector<HttpRequest> requests_;
};

}  // namespace kiv
