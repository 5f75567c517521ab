/* One liveness attempt from C, through kiv/face_liveness_lite.h alone.
 *
 *   c_host BACKEND_URL MOBILE_TOKEN [PERSON_ID [CAPTURE_SCRIPT]]
 *
 * Prints how the attempt ended and exits 0 on success, 1 on a failure, 2 on
 * an error and 3 when cancelled. */
#include <stdio.h>
#include <string.h>

#include "kiv/testing/face_liveness_lite_testing.h"

typedef struct host {
  const char* token;
  const char* person;
  kiv_sdk* sdk;
  int exit_code;
} host;

static void end(host* h, int exit_code) {
  h->exit_code = exit_code;
  kiv_sdk_destroy(h->sdk); /* allowed inside a delegate call */
  h->sdk = NULL;
  kiv_stop_main_loop();
}

static void success(void* user_data, const char* signed_response) {
  printf("success %s\n", signed_response);
  end(user_data, 0);
}

static void failure(void* user_data, const char* type, const char* description, const char* signed_response) {
  (void)signed_response;
  printf("failure %s: %s\n", type, description ? description : "");
  end(user_data, 1);
}

static void error(void* user_data, const char* type, const char* description) {
  printf("error %s: %s\n", type, description);
  end(user_data, 2);
}

static void cancelled(void* user_data) {
  printf("cancelled\n");
  end(user_data, 3);
}

/* The SDK's diagnostic lines, kept off the standard output. */
static void log_line(void* user_data, const char* line) {
  (void)user_data;
  fprintf(stderr, "%s\n", line);
}

/* Runs inside the main loop: the facade lives on the loop's thread. */
static void begin(void* user_data) {
  host* h = user_data;
  kiv_delegate delegate;
  memset(&delegate, 0, sizeof delegate);
  delegate.user_data = h;
  delegate.did_finish_with_success = success;
  delegate.did_finish_with_failure = failure;
  delegate.did_finish_with_error = error;
  delegate.cancelled = cancelled;

  if (kiv_sdk_create(&h->sdk) != KIV_OK || kiv_sdk_set_delegate(h->sdk, &delegate) != KIV_OK ||
      kiv_sdk_setup(h->sdk, h->token, h->person, NULL, NULL, NULL, KIV_ENVIRONMENT_DEV, 1) != KIV_OK ||
      kiv_sdk_start(h->sdk) != KIV_OK) {
    fprintf(stderr, "c_host: the SDK refused the set-up\n");
    kiv_stop_main_loop();
  }
}

int main(int argc, char** argv) {
  host h = {NULL, "person-1", NULL, 2};
  kiv_status status;
  if (argc < 3 || argc > 5) {
    fprintf(stderr, "usage: c_host BACKEND_URL MOBILE_TOKEN [PERSON_ID [CAPTURE_SCRIPT]]\n");
    return 64;
  }
  h.token = argv[2];
  if (argc > 3) h.person = argv[3];
  status = kiv_set_log_handler(log_line, NULL);
  if (status == KIV_OK) status = kiv_set_backend_root_url(KIV_ENVIRONMENT_DEV, argv[1]);
  if (status == KIV_OK) status = kiv_use_simulated_capture(argc > 4 ? argv[4] : "connected; success");
  /* A kiosk decides itself; a phone host asks the user first. */
  if (status == KIV_OK) status = kiv_set_camera_status(KIV_CAMERA_AUTHORIZED, 1);
  if (status != KIV_OK) {
    fprintf(stderr, "c_host: %s\n", kiv_status_name(status));
    return 64;
  }
  kiv_post_to_main_loop(begin, &h);
  kiv_run_main_loop();
  kiv_wait_for_background_work(); /* the attempt's analytics posts */
  return h.exit_code;
}
