#pragma once
// Every C call's body runs through guarded(): an exception must never cross
// into a C host's frames, where it would end the process.

#include "kiv/face_liveness_lite.h"

namespace kiv::c_api {

// Runs `body` with every exception turned into a status.
template <typename Body>
kiv_status guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    return KIV_ERROR_INTERNAL;
  }
}

}  // namespace kiv::c_api
