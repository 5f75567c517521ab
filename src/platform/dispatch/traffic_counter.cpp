#include "kiv/platform/traffic_counter.hpp"

#include <utility>

namespace kiv {
namespace {

class CountedTask final : public HttpDataTask {
 public:
  CountedTask(std::shared_ptr<HttpDataTask> inner, std::shared_ptr<std::shared_ptr<void>> work,
              std::shared_ptr<TrafficCounter> counter)
      : inner_(std::move(inner)), work_(std::move(work)), counter_(std::move(counter)) {}

  void resume() override {
    // Counted from the start, before the completion can possibly run.
    if (!*work_) *work_ = counter_->begin();
    inner_->resume();
  }
  void cancel() override { inner_->cancel(); }

 private:
  std::shared_ptr<HttpDataTask> inner_;
  std::shared_ptr<std::shared_ptr<void>> work_;
  std::shared_ptr<TrafficCounter> counter_;
};

class CountedSession final : public HttpSession {
 public:
  CountedSession(std::shared_ptr<HttpSession> inner, std::shared_ptr<TrafficCounter> counter)
      : inner_(std::move(inner)), counter_(std::move(counter)) {}

  std::shared_ptr<HttpDataTask> dataTask(HttpRequest request, DataTaskCompletion completion) override {
    auto work = std::make_shared<std::shared_ptr<void>>();
    auto task = inner_->dataTask(std::move(request), [work, completion = std::move(completion)](DataTaskResult result) {
      completion(std::move(result));
      work->reset();  // after the completion started whatever follows
    });
    return std::make_shared<CountedTask>(std::move(task), std::move(work), counter_);
  }
  void invalidateAndCancel() override { inner_->invalidateAndCancel(); }

 private:
  std::shared_ptr<HttpSession> inner_;
  std::shared_ptr<TrafficCounter> counter_;
};

class CountedFactory final : public HttpSessionFactory {
 public:
  CountedFactory(std::shared_ptr<HttpSessionFactory> inner, std::shared_ptr<TrafficCounter> counter)
      : inner_(std::move(inner)), counter_(std::move(counter)) {}
  std::shared_ptr<HttpSession> makeSession(HttpSessionConfiguration configuration) override {
    return std::make_shared<CountedSession>(inner_->makeSession(std::move(configuration)), counter_);
  }

 private:
  std::shared_ptr<HttpSessionFactory> inner_;
  std::shared_ptr<TrafficCounter> counter_;
};

Task counted(Task task, std::shared_ptr<void> work) {
  return [task = std::move(task), work = std::move(work)]() mutable {
    auto done = std::move(work);  // released however the task ends
    task();
  };
}

class CountedQueue final : public SerialQueue {
 public:
  CountedQueue(std::shared_ptr<SerialQueue> inner, std::shared_ptr<TrafficCounter> counter)
      : inner_(std::move(inner)), counter_(std::move(counter)) {}
  void post(Task task) override { inner_->post(counted(std::move(task), counter_->begin())); }
  const std::string& label() const override { return inner_->label(); }

 private:
  std::shared_ptr<SerialQueue> inner_;
  std::shared_ptr<TrafficCounter> counter_;
};

class CountedPool final : public TaskPool {
 public:
  CountedPool(std::shared_ptr<TaskPool> inner, std::shared_ptr<TrafficCounter> counter)
      : inner_(std::move(inner)), counter_(std::move(counter)) {}
  void post(Task task) override { inner_->post(counted(std::move(task), counter_->begin())); }
  std::shared_ptr<SerialQueue> makeSerialQueue(std::string label) override {
    return std::make_shared<CountedQueue>(inner_->makeSerialQueue(std::move(label)), counter_);
  }
  void waitIdle() override { inner_->waitIdle(); }

 private:
  std::shared_ptr<TaskPool> inner_;
  std::shared_ptr<TrafficCounter> counter_;
};

}  // namespace

std::shared_ptr<HttpSessionFactory> TrafficCounter::wrap(std::shared_ptr<HttpSessionFactory> inner) {
  return std::make_shared<CountedFactory>(std::move(inner), shared_from_this());
}

std::shared_ptr<TaskPool> TrafficCounter::wrap(std::shared_ptr<TaskPool> inner) {
  return std::make_shared<CountedPool>(std::move(inner), shared_from_this());
}

std::shared_ptr<void> TrafficCounter::begin() {
  underWay_.fetch_add(1);
  // Not null, so a holder can tell counted from not yet counted.
  return std::shared_ptr<void>(this, [self = shared_from_this()](void*) { self->underWay_.fetch_sub(1); });
}

}  // namespace kiv
