// A careless host: it runs one attempt through the C interface and leaves the
// process at a chosen point of it, the way an application may be quit at any
// moment.
//
//   kivfll_exiting_host <backend root> <mobile token> <data directory> <point>
//
// <point>, each reached with the person id <point>:
//   before-setup   exit(0) right after the facade was made
//   session-fetch  exit(0) while the session request is under way
//   mid-capture    main() returns (after kiv_wait_for_background_work) while
//                  the capture still plays
//   loading, loaded, success, failure, error, cancelled, last-loaded
//                  exit(0) inside that delegate call (last-loaded: the one
//                  the teardown makes)
//   after-outcome  exit(0) from a task queued by the finishing call
//   finish         the attempt to its end, then the background work, then
//                  main() returns: a host that plays by the rules
// Exits 90 and up when the attempt did not reach the point.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kiv/testing/face_liveness_lite_testing.h"

namespace {

struct Host {
  const char* token = nullptr;
  std::string point;
  kiv_sdk* sdk = nullptr;
  int loadedCalls = 0;
};

Host gHost;

bool at(const char* point) { return gHost.point == point; }

void exitTask(void*) { std::exit(0); }
void stopTask(void*) { kiv_stop_main_loop(); }

void onLoading(void*) {
  if (at("loading")) std::exit(0);
  // The request is sent once this call returns: the task runs after it.
  if (at("session-fetch")) kiv_post_to_main_loop(exitTask, nullptr);
}

void onLoaded(void*) {
  ++gHost.loadedCalls;
  if (gHost.loadedCalls == 1 && at("loaded")) std::exit(0);
  if (gHost.loadedCalls == 1 && at("mid-capture")) kiv_post_to_main_loop(stopTask, nullptr);
  if (gHost.loadedCalls == 2 && at("last-loaded")) std::exit(0);
  if (gHost.loadedCalls == 2 && (at("finish") || at("last-loaded"))) kiv_post_to_main_loop(stopTask, nullptr);
}

void finished(const char* outcome) {
  if (at(outcome)) std::exit(0);
  if (at("after-outcome")) kiv_post_to_main_loop(exitTask, nullptr);
}

void onSuccess(void*, const char*) { finished("success"); }
void onFailure(void*, const char*, const char*, const char*) { finished("failure"); }
void onError(void*, const char*, const char*) { finished("error"); }
void onCancelled(void*) { finished("cancelled"); }

const char* scriptFor(const std::string& point) {
  if (point == "mid-capture") return "connected; wait 30; success";
  if (point == "failure") return "connected; failure eyes_closed";
  if (point == "error") return "connected; error server";
  if (point == "cancelled") return "connected; canceled";
  return "connected; wait 0.05; success";
}

void begin(void*) {
  kiv_delegate delegate{};
  delegate.did_finish_with_success = onSuccess;
  delegate.did_finish_with_failure = onFailure;
  delegate.did_finish_with_error = onError;
  delegate.cancelled = onCancelled;
  delegate.loading = onLoading;
  delegate.loaded = onLoaded;
  if (kiv_sdk_create(&gHost.sdk) != KIV_OK || kiv_sdk_set_delegate(gHost.sdk, &delegate) != KIV_OK) std::exit(91);
  if (at("before-setup")) std::exit(0);
  if (kiv_sdk_setup(gHost.sdk, gHost.token, gHost.point.c_str(), nullptr, nullptr, nullptr, KIV_ENVIRONMENT_DEV, 1) !=
          KIV_OK ||
      kiv_sdk_start(gHost.sdk) != KIV_OK) {
    std::exit(92);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) return 90;
  gHost.token = argv[2];
  gHost.point = argv[4];
  if (kiv_set_data_directory(argv[3]) != KIV_OK || kiv_set_log_handler(nullptr, nullptr) != KIV_OK ||
      kiv_set_backend_root_url(KIV_ENVIRONMENT_DEV, argv[1]) != KIV_OK ||
      kiv_set_camera_status(KIV_CAMERA_AUTHORIZED, 1) != KIV_OK ||
      kiv_use_simulated_capture(scriptFor(gHost.point)) != KIV_OK) {
    return 93;
  }
  kiv_post_to_main_loop(begin, nullptr);
  kiv_run_main_loop();
  kiv_wait_for_background_work();
  if (at("mid-capture") || at("finish")) return 0;
  return 94;  // the point was never reached
}
