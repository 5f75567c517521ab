/* Whole attempts through the C interface alone, against the sandbox, from a
 * program compiled as C; and every entry point fed NULL, malformed UTF-8 and
 * out-of-range values. Exits 0 when every check held. */
#define _XOPEN_SOURCE 700

#include <ftw.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "kiv/testing/face_liveness_lite_testing.h"
#include "test_sandbox.h"

static int failures = 0;

#define CHECK(condition)                                                            \
  do {                                                                              \
    if (!(condition)) {                                                             \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      ++failures;                                                                   \
    }                                                                               \
  } while (0)

#define CHECK_STATUS(call, expected)                                                                        \
  do {                                                                                                      \
    kiv_status got_ = (call);                                                                               \
    if (got_ != (expected)) {                                                                               \
      fprintf(stderr, "%s:%d: %s gave %s, expected %s\n", __FILE__, __LINE__, #call, kiv_status_name(got_), \
              kiv_status_name(expected));                                                                   \
      ++failures;                                                                                           \
    }                                                                                                       \
  } while (0)

/* The SDK's lines, counted and kept out of the test's output. Written under
 * the SDK's console lock; read once the handler was replaced (same lock). */
static long log_lines = 0;
static void count_line(void* user_data, const char* line) {
  (void)user_data;
  if (line != NULL) ++log_lines;
}

/* ---- One attempt ---------------------------------------------------------- */

enum destroy_point { DESTROY_AT_END, DESTROY_WHEN_LOADED };

typedef struct attempt {
  const char* token;
  const char* script;
  kiv_camera_status camera;
  enum destroy_point destroy;
  int setup;   /* zero: start without setup */
  int restart; /* non-zero: the first outcome starts the next attempt */
  kiv_sdk* sdk;
  /* What the delegate heard. */
  int finishing_calls;
  int loading_calls;
  int loaded_calls;
  char outcome[32]; /* "success", "failure", "error", "cancelled" */
  char type[64];
  char description[256];
  char signed_response[4096];
  int description_absent;
  int signed_response_absent;
} attempt;

static void copy_text(char* to, size_t size, const char* from) { snprintf(to, size, "%s", from == NULL ? "" : from); }

/* Ends the attempt as a host would: releases the facade from inside the
 * delegate call, then stops the loop. */
static void finish(attempt* a, const char* outcome) {
  ++a->finishing_calls;
  copy_text(a->outcome, sizeof a->outcome, outcome);
  if (a->restart) {
    /* The ending run is torn down only after this call returns. */
    a->restart = 0;
    CHECK_STATUS(kiv_sdk_start(a->sdk), KIV_ERROR_INVALID_STATE);
    CHECK_STATUS(kiv_sdk_post_start(a->sdk), KIV_OK);
    return;
  }
  CHECK_STATUS(kiv_sdk_destroy(a->sdk), KIV_OK);
  a->sdk = NULL;
  CHECK_STATUS(kiv_stop_main_loop(), KIV_OK);
}

static void on_success(void* user_data, const char* signed_response) {
  attempt* a = user_data;
  copy_text(a->signed_response, sizeof a->signed_response, signed_response);
  finish(a, "success");
}

static void on_failure(void* user_data, const char* type, const char* description, const char* signed_response) {
  attempt* a = user_data;
  copy_text(a->type, sizeof a->type, type);
  copy_text(a->description, sizeof a->description, description);
  a->description_absent = description == NULL;
  a->signed_response_absent = signed_response == NULL;
  finish(a, "failure");
}

static void on_error(void* user_data, const char* type, const char* description) {
  attempt* a = user_data;
  copy_text(a->type, sizeof a->type, type);
  copy_text(a->description, sizeof a->description, description);
  finish(a, "error");
}

static void on_cancelled(void* user_data) { finish(user_data, "cancelled"); }

static void on_loading(void* user_data) { ++((attempt*)user_data)->loading_calls; }

static void stop_task(void* user_data) {
  (void)user_data;
  kiv_stop_main_loop();
}

static void on_loaded(void* user_data) {
  attempt* a = user_data;
  ++a->loaded_calls;
  if (a->destroy == DESTROY_WHEN_LOADED && a->sdk != NULL) {
    /* The session is in and the capture under way: the host walks away. */
    CHECK_STATUS(kiv_sdk_destroy(a->sdk), KIV_OK);
    a->sdk = NULL;
    CHECK_STATUS(kiv_post_to_main_loop(stop_task, NULL), KIV_OK);
  }
}

static const char* kLook =
    "{\"mask\":{\"isBlurEnabled\":true,\"color\":\"#00000099\"},"
    "\"appBar\":{\"title\":\"Verify\",\"titleColor\":\"#FFFFFF\",\"color\":\"#102030\"},"
    "\"prompt\":{\"textColor\":\"#ffffff\",\"backgroundColor\":\"#000000CC\",\"isRounded\":true},"
    "\"fontName\":\"DejaVu Sans\"}";

static void begin_attempt(void* user_data) {
  attempt* a = user_data;
  kiv_delegate delegate;
  memset(&delegate, 0, sizeof delegate);
  delegate.user_data = a;
  delegate.did_finish_with_success = on_success;
  delegate.did_finish_with_failure = on_failure;
  delegate.did_finish_with_error = on_error;
  delegate.cancelled = on_cancelled;
  delegate.loading = on_loading;
  delegate.loaded = on_loaded;

  CHECK_STATUS(kiv_sdk_create(&a->sdk), KIV_OK);
  CHECK_STATUS(kiv_sdk_set_delegate(a->sdk, &delegate), KIV_OK);
  if (a->setup) {
    CHECK_STATUS(kiv_sdk_setup(a->sdk, a->token, "person-c", NULL, NULL, kLook, KIV_ENVIRONMENT_DEV, 1), KIV_OK);
  }
  CHECK_STATUS(kiv_sdk_start(a->sdk), KIV_OK);
}

static void play(attempt* a) {
  CHECK_STATUS(kiv_use_simulated_capture(a->script), KIV_OK);
  CHECK_STATUS(kiv_set_camera_status(a->camera, 1), KIV_OK);
  CHECK_STATUS(kiv_post_to_main_loop(begin_attempt, a), KIV_OK);
  CHECK_STATUS(kiv_run_main_loop(), KIV_OK);
}

static attempt make_attempt(const char* token, const char* script) {
  attempt a;
  memset(&a, 0, sizeof a);
  a.token = token;
  a.script = script;
  a.camera = KIV_CAMERA_AUTHORIZED;
  a.setup = 1;
  return a;
}

/* ---- Bad input ------------------------------------------------------------ */

static const char* const kMalformed[] = {
    "\xC3\x28",         /* a lead byte without its continuation */
    "ok\x80",           /* a stray continuation byte */
    "\xC0\xAF",         /* an overlong "/" */
    "\xED\xA0\x80",     /* a surrogate */
    "\xF4\x90\x80\x80", /* above U+10FFFF */
    "\xE2\x82",         /* truncated at the end */
};
#define MALFORMED_COUNT (sizeof kMalformed / sizeof kMalformed[0])

/* Calls outside the running loop (no handle needed). */
static void check_bad_input_off_the_loop(void) {
  kiv_sdk* untouched = (kiv_sdk*)&failures; /* any non-NULL marker */
  size_t i;

  CHECK_STATUS(kiv_sdk_create(NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_sdk_create(&untouched), KIV_ERROR_WRONG_THREAD);
  CHECK(untouched == (kiv_sdk*)&failures);
  CHECK_STATUS(kiv_sdk_destroy(NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_sdk_set_delegate(NULL, NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_sdk_setup(NULL, "t", "p", NULL, NULL, NULL, KIV_ENVIRONMENT_DEV, 0), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_sdk_prewarm(NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_sdk_start(NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_post_to_main_loop(NULL, NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_set_data_directory(NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_set_backend_root_url(KIV_ENVIRONMENT_DEV, NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_use_simulated_capture(NULL), KIV_ERROR_NULL_ARGUMENT);

  for (i = 0; i < MALFORMED_COUNT; ++i) {
    CHECK_STATUS(kiv_set_data_directory(kMalformed[i]), KIV_ERROR_INVALID_UTF8);
    CHECK_STATUS(kiv_set_backend_root_url(KIV_ENVIRONMENT_DEV, kMalformed[i]), KIV_ERROR_INVALID_UTF8);
    CHECK_STATUS(kiv_use_simulated_capture(kMalformed[i]), KIV_ERROR_INVALID_UTF8);
  }
  CHECK_STATUS(kiv_set_data_directory(""), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_set_backend_root_url((kiv_environment)7, "http://127.0.0.1:1/"), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_set_backend_root_url(KIV_ENVIRONMENT_DEV, "not a url"), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_use_simulated_capture("connected; wait soon"), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_set_camera_status((kiv_camera_status)9, 1), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_wait_for_background_work(), KIV_OK);
  CHECK(strcmp(kiv_status_name(KIV_ERROR_INVALID_UTF8), "KIV_ERROR_INVALID_UTF8") == 0);
  CHECK(strcmp(kiv_status_name((kiv_status)99), "unknown") == 0);
}

static void check_bad_input_on_the_loop(void* user_data) {
  const char* token = user_data;
  kiv_sdk* sdk = NULL;
  size_t i;
  static const char* const kBadLooks[] = {
      "not json",
      "[]",
      "{\"colour\":\"#000000\"}",
      "{\"mask\":{\"color\":\"#00000\"}}",
      "{\"mask\":{\"color\":\"#GG0000\"}}",
      "{\"prompt\":{\"isRounded\":1}}",
      "{\"appBar\":{\"title\":3}}",
      "{\"fontName\":false}",
  };

  CHECK_STATUS(kiv_run_main_loop(), KIV_ERROR_INVALID_STATE);
  CHECK_STATUS(kiv_wait_for_background_work(), KIV_ERROR_WRONG_THREAD);
  CHECK_STATUS(kiv_sdk_create(&sdk), KIV_OK);
  CHECK_STATUS(kiv_sdk_setup(sdk, NULL, "p", NULL, NULL, NULL, KIV_ENVIRONMENT_DEV, 0), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_sdk_setup(sdk, token, NULL, NULL, NULL, NULL, KIV_ENVIRONMENT_DEV, 0), KIV_ERROR_NULL_ARGUMENT);
  for (i = 0; i < MALFORMED_COUNT; ++i) {
    const char* bad = kMalformed[i];
    CHECK_STATUS(kiv_sdk_setup(sdk, bad, "p", NULL, NULL, NULL, KIV_ENVIRONMENT_DEV, 0), KIV_ERROR_INVALID_UTF8);
    CHECK_STATUS(kiv_sdk_setup(sdk, token, bad, NULL, NULL, NULL, KIV_ENVIRONMENT_DEV, 0), KIV_ERROR_INVALID_UTF8);
    CHECK_STATUS(kiv_sdk_setup(sdk, token, "p", bad, NULL, NULL, KIV_ENVIRONMENT_DEV, 0), KIV_ERROR_INVALID_UTF8);
    CHECK_STATUS(kiv_sdk_setup(sdk, token, "p", NULL, bad, NULL, KIV_ENVIRONMENT_DEV, 0), KIV_ERROR_INVALID_UTF8);
    CHECK_STATUS(kiv_sdk_setup(sdk, token, "p", NULL, NULL, bad, KIV_ENVIRONMENT_DEV, 0), KIV_ERROR_INVALID_UTF8);
  }
  for (i = 0; i < sizeof kBadLooks / sizeof kBadLooks[0]; ++i) {
    CHECK_STATUS(kiv_sdk_setup(sdk, token, "p", NULL, NULL, kBadLooks[i], KIV_ENVIRONMENT_DEV, 0),
                 KIV_ERROR_INVALID_ARGUMENT);
  }
  CHECK_STATUS(kiv_sdk_setup(sdk, token, "p", NULL, NULL, NULL, (kiv_environment)-1, 0), KIV_ERROR_INVALID_ARGUMENT);
  /* The edges of well-formed text pass: U+00EB, U+20AC, U+D7FF, U+E000,
   * U+1F44B, U+10FFFF. */
  CHECK_STATUS(
      kiv_sdk_setup(sdk, token, "\xC3\xAB \xE2\x82\xAC \xED\x9F\xBF \xEE\x80\x80 \xF0\x9F\x91\x8B \xF4\x8F\xBF\xBF",
                    NULL, NULL, NULL, KIV_ENVIRONMENT_DEV, 0),
      KIV_OK);
  CHECK_STATUS(kiv_sdk_set_delegate(sdk, NULL), KIV_OK);
  CHECK_STATUS(kiv_sdk_destroy(sdk), KIV_OK);
  CHECK_STATUS(kiv_stop_main_loop(), KIV_OK);
}

/* A log handler that calls into the SDK, which logs on the same thread: the
 * line it causes arrives once the handler has returned. */
static kiv_sdk* reentry_sdk = NULL;
static int reentry_lines = 0;
static int reentry_depth = 0;
static void reentrant_line(void* user_data, const char* line) {
  (void)user_data;
  (void)line;
  CHECK(reentry_depth++ == 0);
  if (++reentry_lines == 1) {
    CHECK_STATUS(kiv_sdk_setup(reentry_sdk, "not-a-jwt", "q", NULL, NULL, NULL, KIV_ENVIRONMENT_DEV, 0), KIV_OK);
  }
  --reentry_depth;
}

static void check_log_handler_reentry(void* user_data) {
  (void)user_data;
  CHECK_STATUS(kiv_sdk_create(&reentry_sdk), KIV_OK);
  CHECK_STATUS(kiv_set_log_handler(reentrant_line, NULL), KIV_OK);
  CHECK_STATUS(kiv_sdk_setup(reentry_sdk, "not-a-jwt", "p", NULL, NULL, NULL, KIV_ENVIRONMENT_DEV, 0), KIV_OK);
  CHECK_STATUS(kiv_set_log_handler(count_line, NULL), KIV_OK);
  CHECK(reentry_lines >= 2);
  CHECK_STATUS(kiv_sdk_destroy(reentry_sdk), KIV_OK);
  CHECK_STATUS(kiv_stop_main_loop(), KIV_OK);
}

static int remove_entry(const char* path, const struct stat* info, int flag, struct FTW* walk) {
  (void)info;
  (void)flag;
  (void)walk;
  return remove(path);
}

/* ---- The run -------------------------------------------------------------- */

int main(void) {
  char data_template[] = "/tmp/kiv-c-api-XXXXXX";
  const char* data = mkdtemp(data_template);
  kiv_test_sandbox* sandbox;
  const char* token;
  attempt a;
  size_t sessions_before;

  CHECK(data != NULL);
  if (data == NULL) return 1;
  CHECK_STATUS(kiv_set_data_directory(data), KIV_OK);
  CHECK_STATUS(kiv_set_log_handler(count_line, NULL), KIV_OK);
  check_bad_input_off_the_loop();

  sandbox = kiv_test_sandbox_start();
  if (sandbox == NULL) return 1;
  token = kiv_test_sandbox_token(sandbox, "client-c");
  CHECK_STATUS(kiv_set_backend_root_url(KIV_ENVIRONMENT_DEV, kiv_test_sandbox_url(sandbox)), KIV_OK);

  CHECK_STATUS(kiv_post_to_main_loop(check_bad_input_on_the_loop, (void*)token), KIV_OK);
  CHECK_STATUS(kiv_run_main_loop(), KIV_OK);
  CHECK_STATUS(kiv_post_to_main_loop(check_log_handler_reentry, NULL), KIV_OK);
  CHECK_STATUS(kiv_run_main_loop(), KIV_OK);
  /* The platform is in use now: its storage can no longer move. */
  CHECK_STATUS(kiv_set_data_directory(data), KIV_ERROR_INVALID_STATE);

  /* Success, twice: the second started from inside the first outcome. */
  a = make_attempt(token, "connected; wait 0.1; success");
  a.restart = 1;
  play(&a);
  CHECK(a.finishing_calls == 2);
  CHECK(strcmp(a.outcome, "success") == 0);
  CHECK(a.loading_calls >= 1 && a.loaded_calls >= 1);
  CHECK(strlen(a.signed_response) > 0 && strchr(a.signed_response, '.') != NULL);

  /* Failure: the raw failure type and its description. */
  a = make_attempt(token, "connected; failure eyes_closed too_dark");
  play(&a);
  CHECK(a.finishing_calls == 1);
  CHECK(strcmp(a.outcome, "failure") == 0);
  CHECK(strcmp(a.type, "eyes_closed") == 0);
  CHECK(strcmp(a.description, "Eyes closed") == 0);

  /* Error: the camera refused, as a raw error type. */
  a = make_attempt(token, "connected; success");
  a.camera = KIV_CAMERA_DENIED;
  play(&a);
  CHECK(a.finishing_calls == 1);
  CHECK(strcmp(a.outcome, "error") == 0);
  CHECK(strcmp(a.type, "cameraPermission") == 0);
  CHECK(strcmp(a.description, "Camera permission denied") == 0);

  /* Start before setup. */
  a = make_attempt(token, "connected; success");
  a.setup = 0;
  play(&a);
  CHECK(strcmp(a.outcome, "error") == 0);
  CHECK(strcmp(a.type, "invalidOptionsException") == 0);

  /* Cancelled by the user. */
  a = make_attempt(token, "connected; canceled");
  play(&a);
  CHECK(a.finishing_calls == 1);
  CHECK(strcmp(a.outcome, "cancelled") == 0);

  /* The facade released mid-run: nothing more reaches its delegate, and the
   * next attempt runs (the abandoned one no longer holds the run). */
  a = make_attempt(token, "connected; wait 30; success");
  a.destroy = DESTROY_WHEN_LOADED;
  sessions_before = kiv_test_sandbox_requests(sandbox, "bff/sessions");
  play(&a);
  CHECK(a.sdk == NULL);
  CHECK(a.finishing_calls == 0);
  CHECK(kiv_test_sandbox_requests(sandbox, "bff/sessions") == sessions_before + 1);
  {
    attempt after = make_attempt(token, "connected; success");
    play(&after);
    CHECK(strcmp(after.outcome, "success") == 0);
    CHECK(a.finishing_calls == 0);
  }

  CHECK_STATUS(kiv_post_application_did_enter_background(), KIV_OK);
  CHECK_STATUS(kiv_wait_for_background_work(), KIV_OK);
  CHECK_STATUS(kiv_set_log_handler(NULL, NULL), KIV_OK);
  CHECK(log_lines > 0);
  kiv_test_sandbox_stop(sandbox);
  nftw(data, remove_entry, 8, FTW_DEPTH | FTW_PHYS);
  if (failures != 0) fprintf(stderr, "%d checks failed\n", failures);
  return failures == 0 ? 0 : 1;
}
