#include "support/scripted_http_session.hpp"

#include <atomic>

#include "kiv/platform/platform.hpp"

namespace kiv::testing {
namespace {

class ScriptedTask final : public HttpDataTask, public std::enable_shared_from_this<ScriptedTask> {
 public:
  using Answer = std::function<DataTaskResult(const HttpRequest&)>;
  ScriptedTask(HttpRequest request, DataTaskCompletion completion, Answer answer)
      : request_(std::move(request)), completion_(std::move(completion)), answer_(std::move(answer)) {}

  void resume() override {
    if (resumed_.exchange(true)) return;
    platform()->taskPool->post([self = shared_from_this()] {
      if (!self->cancelled_.load()) self->complete(self->answer_(self->request_));
    });
  }

  void cancel() override {
    cancelled_.store(true);
    platform()->taskPool->post(
        [self = shared_from_this()] { self->complete({.error = HttpError(HttpErrorCode::cancelled)}); });
  }

 private:
  void complete(DataTaskResult result) {
    if (completed_.exchange(true)) return;
    completion_(std::move(result));
  }

  const HttpRequest request_;
  const DataTaskCompletion completion_;
  const Answer answer_;
  std::atomic<bool> resumed_{false};
  std::atomic<bool> cancelled_{false};
  std::atomic<bool> completed_{false};
};

}  // namespace

class ScriptedHttpSession final : public HttpSession {
 public:
  explicit ScriptedHttpSession(std::shared_ptr<ScriptedHttpSessionFactory> factory) : factory_(std::move(factory)) {}

  std::shared_ptr<HttpDataTask> dataTask(HttpRequest request, DataTaskCompletion completion) override {
    return std::make_shared<ScriptedTask>(std::move(request), std::move(completion),
                                          [factory = factory_](const HttpRequest& r) { return factory->answer(r); });
  }
  void invalidateAndCancel() override {}

 private:
  std::shared_ptr<ScriptedHttpSessionFactory> factory_;
};

std::shared_ptr<HttpSession> ScriptedHttpSessionFactory::makeSession(HttpSessionConfiguration) {
  return std::make_shared<ScriptedHttpSession>(shared_from_this());
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

}  // namespace kiv::testing
