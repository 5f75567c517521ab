#include <map>
#include <mutex>

#include "kiv/platform/notification_center.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

class MainQueueNotificationCenter final : public NotificationCenter,
                                          public std::enable_shared_from_this<MainQueueNotificationCenter> {
 public:
  Token addObserver(std::string name, Handler handler) override {
    std::lock_guard lock(mutex_);
    const Token token = ++lastToken_;
    observers_.emplace(token, Observer{std::move(name), std::make_shared<Handler>(std::move(handler))});
    return token;
  }

  void removeObserver(Token token) override {
    std::shared_ptr<Handler> removed;  // released outside the lock: it may own anything
    std::lock_guard lock(mutex_);
    if (auto it = observers_.find(token); it != observers_.end()) {
      removed = std::move(it->second.handler);
      observers_.erase(it);
    }
  }

  void post(std::string_view name) override {
    const auto queue = platform()->mainQueue;
    std::lock_guard lock(mutex_);
    for (const auto& [token, observer] : observers_) {
      if (observer.name != name) continue;
      // The handler runs only if its registration still stands when the
      // main queue gets to it.
      queue->post([weak = weak_from_this(), token = token] {
        auto self = weak.lock();
        if (!self) return;
        if (auto handler = self->handlerOf(token)) (*handler)();
      });
    }
  }

 private:
  struct Observer {
    std::string name;
    std::shared_ptr<Handler> handler;
  };

  std::shared_ptr<Handler> handlerOf(Token token) const {
    std::lock_guard lock(mutex_);
    auto it = observers_.find(token);
    return it == observers_.end() ? nullptr : it->second.handler;
  }

  mutable std::mutex mutex_;
  Token lastToken_ = 0;
  std::map<Token, Observer> observers_;
};

}  // namespace

std::shared_ptr<NotificationCenter> makeMainQueueNotificationCenter() {
  return std::make_shared<MainQueueNotificationCenter>();
}

}  // namespace kiv
