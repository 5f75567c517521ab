// Camera authorisation for tests: the status is whatever the test sets, and
// a request waits until the test answers it. The answer runs the pending
// completions on another thread, as a phone's prompt does, and moves the
// status to authorized or denied.
//
//   camera->setStatus(CameraAuthorizationStatus::notDetermined);
//   ... the code under test calls requestAccess ...
//   camera->answer(true);
#pragma once

#include <cstddef>
#include <mutex>
#include <thread>
#include <vector>

#include "kiv/platform/camera_authorization.hpp"

namespace kiv {

class FakeCameraAuthorization final : public CameraAuthorization {
 public:
  explicit FakeCameraAuthorization(CameraAuthorizationStatus status = CameraAuthorizationStatus::authorized)
      : status_(status) {}

  void setStatus(CameraAuthorizationStatus status) {
    std::lock_guard lock(mutex_);
    status_ = status;
  }
  CameraAuthorizationStatus status() override {
    std::lock_guard lock(mutex_);
    return status_;
  }
  void requestAccess(Completion completion) override {
    std::lock_guard lock(mutex_);
    ++requests_;
    pending_.push_back(std::move(completion));
  }

  // Requests made so far.
  std::size_t requestCount() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }

  // Answers every pending request from a thread of its own, and returns once
  // they have run.
  void answer(bool granted) {
    std::vector<Completion> pending;
    {
      std::lock_guard lock(mutex_);
      status_ = granted ? CameraAuthorizationStatus::authorized : CameraAuthorizationStatus::denied;
      pending.swap(pending_);
    }
    std::thread([&] {
      for (auto& completion : pending) completion(granted);
    }).join();
  }

 private:
  mutable std::mutex mutex_;
  CameraAuthorizationStatus status_;
  std::size_t requests_ = 0;
  std::vector<Completion> pending_;
};

}  // namespace kiv
