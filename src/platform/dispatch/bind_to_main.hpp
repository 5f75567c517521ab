// A callback that moves itself to the main thread, holding its owner weakly.
//
// Completions of network requests, the capture vendor's statuses, the camera
// prompt's answer and the integrity monitor arrive on threads of their
// choosing, while their owners (the facade, the view model) live on the main
// thread and may be gone by the time the answer comes:
//
//   service->fetchSession(request, bindToMain(weak_from_this(), &Model::handleSessionResult));
//   launcher->launch(..., bindToMain(weak_from_this(), onStatus, MainHop::inlineOnMain));
//
// The returned callable may be called on any thread, any number of times,
// with the arguments `fn` takes after the owner; each call runs
// fn(owner, args...) on the main thread, or nothing when the owner is gone by
// then. The arguments are copied into the hop. The main queue is held weakly
// too: the queue's own tasks may hold the callback, and nothing may keep the
// queue alive past the platform bundle that installed it.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "kiv/platform/main_queue.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {

enum class MainHop {
  post,          // always through the queue, after what is already posted
  inlineOnMain,  // at once when called on the main thread, else posted
};

template <typename Owner, typename Fn>
auto bindToMain(std::weak_ptr<Owner> owner, Fn fn, MainHop hop = MainHop::post) {
  return [owner = std::move(owner), fn = std::move(fn), hop,
          main = std::weak_ptr<MainQueue>(platform()->mainQueue)](auto... args) {
    const auto queue = main.lock();
    if (!queue) return;
    auto call = [owner, fn, ... args = std::move(args)]() mutable {
      if (auto self = owner.lock()) std::invoke(fn, *self, std::move(args)...);
    };
    if (hop == MainHop::inlineOnMain && queue->isCurrent()) {
      call();
    } else {
      queue->post(std::move(call));
    }
  };
}

}  // namespace kiv
