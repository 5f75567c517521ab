/* One liveness attempt from C, on the host's own GLib main loop: the SDK
 * never runs a loop of its own here. The capture is played by the simulated
 * vendor of the testing library (a phone host lends its vendor's framework
 * through kiv_use_host_capture_vendor instead).
 *
 *   c_host BACKEND_URL MOBILE_TOKEN [PERSON_ID [CAPTURE_SCRIPT]]
 *
 * Prints how the attempt ended and exits 0 on success, 1 on a failure, 2 on
 * an error and 3 when cancelled. */
#include <glib.h>
#include <stdio.h>
#include <string.h>

#include "kiv/face_liveness_lite.h"
#include "kiv/testing/face_liveness_lite_testing.h"

typedef struct host {
  GMainLoop* loop;
  const char* token;
  const char* person;
  kiv_sdk* sdk;
  int exit_code;
} host;

/* ---- The SDK's main queue: sources on GLib's default context ------------ */

typedef struct posted {
  kiv_task task;
  void* data;
} posted;

static gboolean run_posted(gpointer user_data) {
  posted* p = user_data;
  p->task(p->data);
  return G_SOURCE_REMOVE;
}

static guint attach(GSource* source, kiv_task task, void* data) {
  posted* p = g_new(posted, 1);
  guint id;
  p->task = task;
  p->data = data;
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(source, run_posted, p, g_free);
  id = g_source_attach(source, NULL); /* safe from any thread */
  g_source_unref(source);
  return id;
}

static void post(void* user_data, kiv_task task, void* data) {
  (void)user_data;
  attach(g_idle_source_new(), task, data);
}

static uint64_t post_after(void* user_data, double seconds, kiv_task task, void* data) {
  (void)user_data;
  return attach(g_timeout_source_new((guint)(seconds * 1000.0)), task, data);
}

static void cancel_delayed(void* user_data, uint64_t handle) {
  GSource* source = g_main_context_find_source_by_id(NULL, (guint)handle);
  (void)user_data;
  if (source != NULL) g_source_destroy(source);
}

static int is_current(void* user_data) {
  (void)user_data;
  return g_main_context_is_owner(NULL);
}

/* ---- The delegate --------------------------------------------------------- */

static void quit(void* user_data) { g_main_loop_quit(((host*)user_data)->loop); }

static void end(host* h, int exit_code) {
  h->exit_code = exit_code;
  kiv_sdk_destroy(h->sdk); /* allowed inside a delegate call */
  h->sdk = NULL;
  kiv_on_background_work_done(quit, h); /* the attempt's analytics posts */
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

/* Runs inside the GLib loop: the facade lives on the loop's thread. */
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
    g_main_loop_quit(h->loop);
  }
}

int main(int argc, char** argv) {
  host h = {NULL, NULL, "person-1", NULL, 2};
  kiv_main_queue queue = {NULL, post, post_after, cancel_delayed, is_current};
  kiv_status status;
  if (argc < 3 || argc > 5) {
    fprintf(stderr, "usage: c_host BACKEND_URL MOBILE_TOKEN [PERSON_ID [CAPTURE_SCRIPT]]\n");
    return 64;
  }
  h.token = argv[2];
  if (argc > 3) h.person = argv[3];
  /* Lent before anything else makes the platform. */
  status = kiv_use_host_main_queue(&queue);
  if (status == KIV_OK) status = kiv_use_simulated_capture(argc > 4 ? argv[4] : "connected; success");
  /* A kiosk decides itself; a phone host lends its prompt (kiv_use_host_camera). */
  if (status == KIV_OK) status = kiv_set_camera_status(KIV_CAMERA_AUTHORIZED, 1);
  if (status == KIV_OK) status = kiv_set_log_handler(log_line, NULL);
  if (status == KIV_OK) status = kiv_set_backend_root_url(KIV_ENVIRONMENT_DEV, argv[1]);
  if (status != KIV_OK) {
    fprintf(stderr, "c_host: %s\n", kiv_status_name(status));
    return 64;
  }
  h.loop = g_main_loop_new(NULL, FALSE);
  kiv_post_to_main_loop(begin, &h);
  g_main_loop_run(h.loop); /* delegate calls arrive here */
  g_main_loop_unref(h.loop);
  return h.exit_code;
}
