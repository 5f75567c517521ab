// How a run receives a session fetched ahead of time: ready to use, still
// being fetched (the run subscribes once and is answered once), or none.
//
//   PrewarmState state = PrewarmState::ready{session};
//   PrewarmState state = PrewarmState::pending{[weak](auto callback) { ... callback(session or nullopt) ... }};
//   PrewarmState state = PrewarmState::none{};
#pragma once

#include <functional>
#include <optional>
#include <variant>

#include "service/session_format.hpp"

namespace kiv {

struct PrewarmState {
  using Completion = std::function<void(std::optional<SessionResponse>)>;

  struct ready {
    SessionResponse response;
  };
  // `registrar` arranges for the completion to be called exactly once, on
  // the main thread, with the fetched session or with none.
  struct pending {
    std::function<void(Completion)> registrar;
  };
  struct none {};

  using Case = std::variant<ready, pending, none>;

  template <typename C>
  requires std::constructible_from<Case, C&&> PrewarmState(C&& state)  // NOLINT(google-explicit-constructor)
      : value(std::forward<C>(state)) {}

  template <typename C>
  const C* as() const {
    return std::get_if<C>(&value);
  }

  Case value;
};

}  // namespace kiv
