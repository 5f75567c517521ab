/* A whole attempt run by a host that lends everything it has of its own: a
 * GLib main loop, a capture vendor that reports from its own thread (and
 * once from inside launch), a camera prompt answered from another thread,
 * its screen, and a keystore key; against the sandbox, from a program
 * compiled as C. Also feeds the host-service calls bad input. Exits 0 when
 * every check held. */
#define _XOPEN_SOURCE 700

#include <ftw.h>
#include <glib.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include "kiv/face_liveness_lite.h"
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

static GMainLoop* loop;

/* ---- The host's main queue: sources on GLib's default context ------------ */

typedef struct posted {
  kiv_task task;
  void* data;
} posted;

static gboolean run_posted(gpointer user_data) {
  posted* p = user_data;
  p->task(p->data);
  return G_SOURCE_REMOVE;
}

static uint64_t attach(GSource* source, kiv_task task, void* data) {
  posted* p = g_new(posted, 1);
  guint id;
  p->task = task;
  p->data = data;
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(source, run_posted, p, g_free);
  id = g_source_attach(source, NULL);
  g_source_unref(source);
  return id;
}

static void queue_post(void* host, kiv_task task, void* data) {
  (void)host;
  attach(g_idle_source_new(), task, data);
}

static uint64_t queue_post_after(void* host, double seconds, kiv_task task, void* data) {
  (void)host;
  return attach(g_timeout_source_new((guint)(seconds * 1000.0)), task, data);
}

static void queue_cancel(void* host, uint64_t handle) {
  GSource* source = g_main_context_find_source_by_id(NULL, (guint)handle);
  (void)host;
  if (source != NULL) g_source_destroy(source);
}

static int queue_is_current(void* host) {
  (void)host;
  return g_main_context_is_owner(NULL);
}

/* ---- The host's vendor: reports from a thread of its own ----------------- */

static kiv_capture launched = 0;
static char launch_url[256], launch_options[1024];
static GThread* vendor_thread;

static gpointer play_capture(gpointer data) {
  kiv_capture capture = (kiv_capture)(uintptr_t)data;
  kiv_failure_reason bad_reason = {"eyes_closed", "\xC3\x28"};
  CHECK_STATUS(kiv_capture_report_connected(capture), KIV_OK);
  CHECK_STATUS(kiv_capture_report_processing(capture, 0.5, "Hold still"), KIV_OK);
  CHECK_STATUS(kiv_capture_report_processing(capture, 1.5, NULL), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_capture_report_processing(capture, 0.5, "ok\x80"), KIV_ERROR_INVALID_UTF8);
  CHECK_STATUS(kiv_capture_report_failure(capture, NULL, 1), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_capture_report_failure(capture, &bad_reason, 1), KIV_ERROR_INVALID_UTF8);
  CHECK_STATUS(kiv_capture_report_error(capture, (kiv_capture_error)99, NULL), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_capture_report_canceled(capture, (kiv_canceler)7), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_capture_report_success(capture + 1000), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_capture_report_success(capture), KIV_OK);
  /* Late: the capture has ended. */
  CHECK_STATUS(kiv_capture_report_connected(capture), KIV_ERROR_INVALID_STATE);
  CHECK_STATUS(kiv_capture_report_error(capture, KIV_CAPTURE_ERROR_NETWORK, NULL), KIV_ERROR_INVALID_STATE);
  CHECK_STATUS(kiv_capture_request_dismissal(capture), KIV_OK);
  CHECK_STATUS(kiv_capture_request_dismissal(capture), KIV_ERROR_INVALID_STATE);
  return NULL;
}

static int vendor_cancels = 0;

static void vendor_launch(void* host, kiv_capture capture, const char* url, const char* token, const char* options) {
  (void)host;
  CHECK(g_main_context_is_owner(NULL));
  CHECK(token != NULL && *token != '\0');
  launched = capture;
  snprintf(launch_url, sizeof launch_url, "%s", url);
  snprintf(launch_options, sizeof launch_options, "%s", options);
  /* Early: a status inside launch. */
  CHECK_STATUS(kiv_capture_report_connecting(capture), KIV_OK);
  vendor_thread = g_thread_new("host-vendor", play_capture, (gpointer)(uintptr_t)capture);
}

static void vendor_cancel(void* host, kiv_capture capture) {
  (void)host;
  (void)capture;
  ++vendor_cancels; /* never: the capture reported its end */
}

/* ---- The host's camera prompt, answered from another thread ------------- */

static GThread* prompt_thread;
static kiv_camera_request prompted = 0;

static kiv_camera_status camera_status(void* host) {
  (void)host;
  return prompted == 0 ? KIV_CAMERA_NOT_DETERMINED : KIV_CAMERA_AUTHORIZED;
}

static gpointer answer_prompt(gpointer data) {
  kiv_camera_request request = (kiv_camera_request)(uintptr_t)data;
  CHECK_STATUS(kiv_camera_answer(request, 1), KIV_OK);
  CHECK_STATUS(kiv_camera_answer(request, 1), KIV_ERROR_INVALID_ARGUMENT);
  return NULL;
}

static void camera_request(void* host, kiv_camera_request request) {
  (void)host;
  prompted = request;
  prompt_thread = g_thread_new("host-prompt", answer_prompt, (gpointer)(uintptr_t)request);
}

/* ---- The host's screen: what it was asked to show, in order -------------- */

static GString* screen_log;
static int host_view_marker;
static kiv_capture presented = 0;

/* The screen comes up before the vendor is launched. */
static void present_screen(void* host, void* view, kiv_capture capture) {
  (void)host;
  CHECK(view == &host_view_marker && capture != 0);
  presented = capture;
  g_string_append(screen_log, "present;");
}

static void dismiss_screen(void* host, void* view, kiv_capture capture) {
  (void)host;
  CHECK(view == &host_view_marker && capture == launched);
  g_string_append(screen_log, "dismiss;");
}

static void show_loading(void* host, void* view) {
  (void)host;
  CHECK(view == &host_view_marker);
  g_string_append(screen_log, "show-loading;");
}

static void hide_loading(void* host, void* view) {
  (void)host;
  CHECK(view == &host_view_marker);
  g_string_append(screen_log, "hide-loading;");
}

/* ---- The attempt ---------------------------------------------------------- */

static kiv_sdk* sdk;
static char outcome[4096];
static int finishing_calls = 0, off_main_calls = 0;

static void note_thread(void) {
  if (!g_main_context_is_owner(NULL)) ++off_main_calls;
}

static void quit_loop(void* user_data) {
  (void)user_data;
  g_main_loop_quit(loop);
}

static void finish(const char* text) {
  note_thread();
  ++finishing_calls;
  snprintf(outcome, sizeof outcome, "%s", text);
  CHECK_STATUS(kiv_sdk_destroy(sdk), KIV_OK);
  sdk = NULL;
  CHECK_STATUS(kiv_on_background_work_done(quit_loop, NULL), KIV_OK);
}

static void on_success(void* user_data, const char* signed_response) {
  (void)user_data;
  CHECK(strchr(signed_response, '.') != NULL);
  finish("success");
}
static void on_failure(void* user_data, const char* type, const char* description, const char* signed_response) {
  (void)user_data;
  (void)description;
  (void)signed_response;
  finish(type);
}
static void on_error(void* user_data, const char* type, const char* description) {
  (void)user_data;
  fprintf(stderr, "error %s: %s\n", type, description);
  finish(type);
}
static void on_cancelled(void* user_data) {
  (void)user_data;
  finish("cancelled");
}
static void on_loading(void* user_data) {
  (void)user_data;
  note_thread();
}

static void begin(void* user_data) {
  const char* token = user_data;
  kiv_delegate delegate;
  memset(&delegate, 0, sizeof delegate);
  delegate.did_finish_with_success = on_success;
  delegate.did_finish_with_failure = on_failure;
  delegate.did_finish_with_error = on_error;
  delegate.cancelled = on_cancelled;
  delegate.loading = on_loading;
  delegate.loaded = on_loading;
  CHECK_STATUS(kiv_run_main_loop(), KIV_ERROR_INVALID_STATE); /* the loop is the host's */
  CHECK_STATUS(kiv_sdk_create(&sdk), KIV_OK);
  CHECK_STATUS(kiv_sdk_set_delegate(sdk, &delegate), KIV_OK);
  CHECK_STATUS(kiv_sdk_setup(sdk, token, "person-glib", NULL, NULL, "{\"appBar\":{\"title\":\"Verify\"}}",
                             KIV_ENVIRONMENT_DEV, 1),
               KIV_OK);
  CHECK_STATUS(kiv_sdk_start_over(sdk, NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_sdk_start_over(sdk, &host_view_marker), KIV_OK);
}

static int remove_entry(const char* path, const struct stat* entry, int flag, struct FTW* walk) {
  (void)entry;
  (void)flag;
  (void)walk;
  return remove(path);
}

int main(void) {
  static const unsigned char key[32] = {7, 7, 7};
  char data_template[] = "/tmp/kiv-host-loop-XXXXXX";
  const char* data = mkdtemp(data_template);
  kiv_main_queue queue = {NULL, queue_post, queue_post_after, queue_cancel, queue_is_current};
  kiv_capture_vendor vendor = {NULL, vendor_launch, vendor_cancel};
  kiv_camera camera = {NULL, camera_status, camera_request};
  kiv_presentation presentation = {NULL, present_screen, dismiss_screen, show_loading, hide_loading};
  kiv_main_queue incomplete = queue;
  kiv_test_sandbox* sandbox;
  char key_file[512];
  struct stat info;

  if (data == NULL) return 1;
  incomplete.is_current = NULL;
  CHECK_STATUS(kiv_use_host_main_queue(NULL), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_use_host_main_queue(&incomplete), KIV_ERROR_NULL_ARGUMENT);
  CHECK_STATUS(kiv_set_secure_store_key(key, 31), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_camera_answer(12345, 1), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_capture_request_dismissal(12345), KIV_ERROR_INVALID_ARGUMENT);
  CHECK_STATUS(kiv_set_data_directory(data), KIV_OK);
  CHECK_STATUS(kiv_set_secure_store_key(key, sizeof key), KIV_OK);
  CHECK_STATUS(kiv_use_host_main_queue(&queue), KIV_OK);
  CHECK_STATUS(kiv_use_host_capture_vendor(&vendor), KIV_OK);
  CHECK_STATUS(kiv_use_host_camera(&camera), KIV_OK);
  CHECK_STATUS(kiv_use_host_presentation(&presentation), KIV_OK);
  CHECK_STATUS(kiv_set_log_handler(NULL, NULL), KIV_OK); /* makes the platform */
  CHECK_STATUS(kiv_use_host_capture_vendor(&vendor), KIV_ERROR_INVALID_STATE);

  sandbox = kiv_test_sandbox_start();
  if (sandbox == NULL) return 1;
  screen_log = g_string_new("");
  loop = g_main_loop_new(NULL, FALSE);
  CHECK_STATUS(kiv_set_backend_root_url(KIV_ENVIRONMENT_DEV, kiv_test_sandbox_url(sandbox)), KIV_OK);
  CHECK_STATUS(kiv_post_to_main_loop(begin, (void*)kiv_test_sandbox_token(sandbox, "client-glib")), KIV_OK);
  g_main_loop_run(loop);
  if (vendor_thread != NULL) g_thread_join(vendor_thread);
  if (prompt_thread != NULL) g_thread_join(prompt_thread);

  CHECK(finishing_calls == 1);
  CHECK(strcmp(outcome, "success") == 0);
  CHECK(off_main_calls == 0);
  CHECK(vendor_cancels == 0);
  CHECK(presented == launched);
  CHECK(strcmp(launch_url, "wss://eu.capture.example/ws") == 0);
  CHECK(strstr(launch_options, "\"title\":\"Verify\"") != NULL);
  CHECK(strcmp(screen_log->str, "show-loading;hide-loading;present;dismiss;") == 0);
  CHECK(kiv_test_sandbox_requests(sandbox, "bff/sessions") == 1);
  /* Sealed under the host's key: no key file beside the store. */
  snprintf(key_file, sizeof key_file, "%s/store.key", data);
  CHECK(stat(key_file, &info) != 0);

  if (failures != 0) fprintf(stderr, "screens: %s\n%d checks failed\n", screen_log->str, failures);
  g_string_free(screen_log, TRUE);
  g_main_loop_unref(loop);
  kiv_test_sandbox_stop(sandbox);
  nftw(data, remove_entry, 8, FTW_DEPTH | FTW_PHYS);
  return failures == 0 ? 0 : 1;
}
