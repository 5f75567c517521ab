#include "platform/http/scripted_http_session.hpp"

#include <atomic>

#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

class ScriptedTask final : public HttpDataTask, public std::enable_shared_from_this<ScriptedTask> {
 public:
  ScriptedTask(HttpRequest request, DataTaskCompletion completion, std::shared_ptr<ScriptedHttpSessionFactory> answerer)
      : request_(std::move(request)), completion_(std::move(completion)), answerer_(std::move(answerer)) {}

  void resume() override {
    if (resumed_.exchange(true)) return;
    platform()->taskPool->post([self = shared_from_this()] {
      if (!self->cancelled_) self->complete(self->answerer_->answer(self->request_));
    });
  }

  void cancel() override {
    cancelled_ = true;
    platform()->taskPool->post(
        [self = shared_from_this()] { self->complete({.error = HttpError(HttpErrorCode::cancelled)}); });
  }

 private:
  void complete(DataTaskResult result) {
    if (!completed_.exchange(true)) completion_(std::move(result));
  }

  const HttpRequest request_;
  const DataTaskCompletion completion_;
  const std::shared_ptr<ScriptedHttpSessionFactory> answerer_;
  std::atomic<bool> resumed_{false};
  std::atomic<bool> cancelled_{false};
  std::atomic<bool> completed_{false};
};

}  // namespace

std::shared_ptr<HttpDataTask> ScriptedHttpSessionFactory::dataTask(HttpRequest request, DataTaskCompletion completion) {
  return std::make_shared<ScriptedTask>(std::move(request), std::move(completion), shared_from_this());
}

std::vector<HttpRequest> ScriptedHttpSessionFactory::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

DataTaskResult ScriptedHttpSessionFactory::answer(const HttpRequest& request) {
  {
    std::lock_guard lock(mutex_);
    requests_.push_back(request);
  }
  return responder_(request);
}

}  // namespace kiv
