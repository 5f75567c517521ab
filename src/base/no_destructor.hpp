// Storage for a process-wide instance that is never destroyed.
//
// A host may leave its process at any moment (exit() inside a delegate call,
// a return from main with a capture on screen) while threads of the SDK
// still work: an HTTP transfer finishing, a pool task posting analytics. An
// instance those threads use must not be torn down under them by static
// destruction, so process-wide instances live in one of these:
//
//   KivSDKTimer& KivSDKTimer::shared() {
//     static NoDestructor<KivSDKTimer> instance;
//     return *instance;
//   }
//
// What the instance owns stays reachable from static storage, so leak
// checkers do not count it.
#pragma once

#include <new>
#include <utility>

namespace kiv {

template <typename T>
class NoDestructor {
 public:
  template <typename... Args>
  explicit NoDestructor(Args&&... args) {
    new (storage_) T(std::forward<Args>(args)...);
  }
  ~NoDestructor() = default;
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;

  T& operator*() { return *get(); }
  T* operator->() { return get(); }
  T* get() { return std::launder(reinterpret_cast<T*>(storage_)); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace kiv
