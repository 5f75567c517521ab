/* KivFaceLivenessLite for C and for bridges (Swift, JNI, React Native,
 * Flutter): the facade and its delegate behind opaque handles and plain
 * function pointers. C99; no C++ type, exception or allocation crosses it.
 *
 * A whole integration, on a host thread that becomes the SDK's main thread:
 *
 *   static kiv_sdk* sdk = NULL;
 *   static void finished(void* user_data, const char* signed_response) {
 *     printf("%s\n", signed_response);
 *     kiv_sdk_destroy(sdk);                         // allowed inside a delegate call
 *     kiv_stop_main_loop();
 *   }
 *   static void begin(void* user_data) {           // runs inside the loop
 *     kiv_delegate delegate = {0};
 *     delegate.did_finish_with_success = finished;  // ...and the other five
 *     kiv_sdk_create(&sdk);
 *     kiv_sdk_set_delegate(sdk, &delegate);
 *     kiv_sdk_setup(sdk, token, "person-1", NULL, NULL, NULL, KIV_ENVIRONMENT_PROD, 1);
 *     kiv_sdk_start(sdk);
 *   }
 *   kiv_post_to_main_loop(begin, NULL);
 *   kiv_run_main_loop();                            // delegate calls arrive here
 *   kiv_wait_for_background_work();                 // let analytics posts finish
 *
 * Results: every entry point returns a kiv_status. Anything other than KIV_OK
 * means the call did nothing and wrote nothing to its out-arguments: a NULL
 * where a handle or text is required, text that is not well-formed UTF-8, a
 * value out of range, a call from the wrong thread. No entry point aborts on
 * bad input.
 *
 * Strings: every string passed in is NUL-terminated UTF-8 and is copied
 * before the call returns. Every string passed out (to a delegate call) is
 * valid only until that call returns; copy it to keep it.
 *
 * Threads: the main loop runs on the thread that calls kiv_run_main_loop(),
 * which is the SDK's main thread while it runs (or it is the host's own
 * loop, lent with kiv_use_host_main_queue()). The calls marked "main
 * thread" must be made from inside the running loop (from a task posted with
 * kiv_post_to_main_loop() or from a delegate call); elsewhere they return
 * KIV_ERROR_WRONG_THREAD. The others are safe from any thread. Delegate calls
 * arrive on the main thread.
 *
 * Process set-up: the platform (main loop, capture vendor, camera, storage)
 * is made on first use by any call that needs it. kiv_set_data_directory()
 * must come before that.
 *
 * Test doubles (the simulated capture vendor, a fixed camera answer) are not
 * part of this library: kiv/testing/face_liveness_lite_testing.h declares
 * them, in the kivfll_testing library.
 */
#ifndef KIV_FACE_LIVENESS_LITE_H
#define KIV_FACE_LIVENESS_LITE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define KIV_API __attribute__((visibility("default")))
#else
#define KIV_API
#endif

typedef enum kiv_status {
  KIV_OK = 0,
  KIV_ERROR_NULL_ARGUMENT = 1,    /* a required handle, text or out-pointer is NULL */
  KIV_ERROR_INVALID_UTF8 = 2,     /* a text is not well-formed UTF-8 */
  KIV_ERROR_INVALID_ARGUMENT = 3, /* a value out of range, unparsable JSON or script, a bad URL */
  KIV_ERROR_WRONG_THREAD = 4,     /* a main-thread call outside the running main loop */
  KIV_ERROR_INVALID_STATE = 5,    /* too late (a host service, the data directory), the loop already
                                     runs (or is the host's), a status after a capture ended */
  KIV_ERROR_INTERNAL = 6          /* the SDK failed unexpectedly; nothing was changed */
} kiv_status;

/* The status's name ("KIV_OK", ...); "unknown" for another value. Static
 * storage. */
KIV_API const char* kiv_status_name(kiv_status status);

typedef enum kiv_environment {
  KIV_ENVIRONMENT_DEV = 0,
  KIV_ENVIRONMENT_BETA = 1,
  KIV_ENVIRONMENT_PROD = 2
} kiv_environment;

typedef enum kiv_camera_status {
  KIV_CAMERA_NOT_DETERMINED = 0,
  KIV_CAMERA_RESTRICTED = 1,
  KIV_CAMERA_DENIED = 2,
  KIV_CAMERA_AUTHORIZED = 3
} kiv_camera_status;

/* ---- Main loop ---------------------------------------------------------- */

typedef void (*kiv_task)(void* user_data);

/* Runs the main loop on the calling thread until kiv_stop_main_loop(); the
 * thread is the SDK's main thread meanwhile. May be run again after it
 * returns; work still queued then runs at the next run.
 * KIV_ERROR_INVALID_STATE when the loop already runs, or when the host lent
 * its own (kiv_use_host_main_queue; kiv_stop_main_loop and
 * kiv_wait_for_background_work then refuse the same way). */
KIV_API kiv_status kiv_run_main_loop(void);

/* Makes kiv_run_main_loop() return. Any thread, including from a task. A
 * stop while the loop is not running (before kiv_run_main_loop(), or between
 * two runs) is kept, never lost: the next kiv_run_main_loop() returns at
 * once, leaving the queued work for the run after it. */
KIV_API kiv_status kiv_stop_main_loop(void);

/* Queues task(user_data) on the main loop (it runs once the loop runs), or
 * on the host's loop when it lent one. Any thread. */
KIV_API kiv_status kiv_post_to_main_loop(kiv_task task, void* user_data);

/* Runs the main loop on the calling thread until the SDK's background work
 * (transaction and analytics posts, and what their answers start) is done,
 * for at most 2 seconds, then stops it. Call on the main thread while the
 * loop is not running (KIV_ERROR_WRONG_THREAD from inside it,
 * KIV_ERROR_INVALID_STATE while another thread runs it), before the process
 * exits. */
KIV_API kiv_status kiv_wait_for_background_work(void);

/* ---- Process-wide settings ---------------------------------------------- */

/* Where the SDK keeps its secure store, defaults and crash records (created
 * 0700 when missing); the XDG data directory when never called. Only before
 * the first other call that needs the platform: KIV_ERROR_INVALID_STATE
 * after. Any thread. */
KIV_API kiv_status kiv_set_data_directory(const char* path);

/* Points `environment` at another backend root, an absolute http or https
 * URL without query or fragment (a missing final "/" is added); for example
 * a sandbox backend on 127.0.0.1. Requests built afterwards use it. Any
 * thread. */
KIV_API kiv_status kiv_set_backend_root_url(kiv_environment environment, const char* url);

/* Tells the SDK the application entered the background (a session fetched
 * ahead of time is dropped). Any thread. */
KIV_API kiv_status kiv_post_application_did_enter_background(void);

typedef void (*kiv_log_handler)(void* user_data, const char* line);

/* Where the SDK's diagnostic lines go: handler(user_data, line) for each,
 * in order, one at a time, from any thread, the line (UTF-8, no line feed)
 * valid during the call. No lock of the SDK is held during the call: the
 * handler may call any entry point (kiv_set_log_handler too), and the lines
 * that causes reach it after it returns. Lines beyond 1024 waiting are
 * dropped. Once this returns, the previous handler is not running (unless
 * it is the caller) and is not called again. NULL drops the lines. Standard
 * output until this is called. Any thread. */
KIV_API kiv_status kiv_set_log_handler(kiv_log_handler handler, void* user_data);

/* ---- Host services ------------------------------------------------------ */

/* A host lends the SDK what it has of its own: its main loop, the capture
 * vendor's framework, the system camera prompt, its screen, a keystore key.
 * Each is optional (what is not lent stays the Linux default) and must be
 * lent before the first call that makes the platform (kiv_sdk_create,
 * kiv_post_to_main_loop, ...): KIV_ERROR_INVALID_STATE after, and
 * KIV_ERROR_NULL_ARGUMENT when a required function is NULL. The structs are
 * copied; their user_data must stay valid for the rest of the process.
 * Every function the SDK calls through them must not throw or longjmp out,
 * and may call back into the SDK. */

/* The host's main thread. The SDK then never needs kiv_run_main_loop():
 * delegate calls, timers (the dismissal hold, the prewarm freshness, the
 * integrity monitor) and every hop to the main thread go through it. */
typedef struct kiv_main_queue {
  void* user_data;
  /* Required. Runs task(task_data) once on the main thread, after the tasks
   * posted before it; never inside this call. Called from any thread. */
  void (*post)(void* user_data, kiv_task task, void* task_data);
  /* Required. The same, once `seconds` (>= 0) have passed. Returns a
   * handle of the host's choice for cancel_delayed. Any thread. */
  uint64_t (*post_after)(void* user_data, double seconds, kiv_task task, void* task_data);
  /* Optional. The SDK no longer needs the task of that handle: the host may
   * drop its timer. Running the task anyway is harmless (it does nothing).
   * Any thread. */
  void (*cancel_delayed)(void* user_data, uint64_t handle);
  /* Required. Non-zero when called on the main thread. Any thread. */
  int (*is_current)(void* user_data);
} kiv_main_queue;

KIV_API kiv_status kiv_use_host_main_queue(const kiv_main_queue* queue);

/* Posts task(user_data) to the main queue once the SDK's background work
 * (transaction and analytics posts, and what their answers start) is done,
 * or 2 seconds have passed: a host that lends its loop quits it from there.
 * Any thread. */
KIV_API kiv_status kiv_on_background_work_done(kiv_task task, void* user_data);

/* One capture that the host's vendor runs; never 0. */
typedef uint64_t kiv_capture;

/* The host's capture vendor (the vendor's framework behind a bridge).
 *
 * options_json holds the vendor options the SDK filled from the session and
 * the host's customization; a key is absent when the option keeps the
 * vendor's default:
 *   "stringsTable": string          name of the host's strings table
 *   "stringsBundle": string         the directory that holds it
 *   "filter": {"type": "natural", "style": "clean"|"sketch"} or
 *             {"type": "lineDrawing", "style": "classic"|"shaded"|"vibrant",
 *              "foregroundColor": COLOR, "backgroundColor": COLOR}
 *   "disableExteriorEffects": bool  no blur and dimming around the oval
 *   "surroundColor": COLOR          around the oval
 *   "title": string                 the app bar's title
 *   "titleTextColor": COLOR
 *   "headerBackgroundColor": COLOR  the app bar
 *   "closeButtonTintColor": COLOR
 *   "promptTextColor": COLOR
 *   "promptBackgroundColor": COLOR
 *   "promptRoundedCorners": bool
 *   "font": {"name": string, "pointSize": number}
 * where COLOR is "#RRGGBBAA" (hex, sRGB). Images (close button, logo) are
 * never set through this interface.
 *
 * The statuses of a capture are reported with the kiv_capture_report_*()
 * calls, and the vendor asks for its screen to be taken down with
 * kiv_capture_request_dismissal(): from any thread, even from inside launch.
 * Exactly one final status (success, failure, canceled, error) ends a
 * capture; a status after it, or after the SDK cancelled the capture, is
 * refused with KIV_ERROR_INVALID_STATE and reaches nobody. */
typedef struct kiv_capture_vendor {
  void* user_data;
  /* Required. Starts `capture`: the vendor connects to streaming_url with
   * the session's token. Texts are valid during the call. Main thread. */
  void (*launch)(void* user_data, kiv_capture capture, const char* streaming_url, const char* token,
                 const char* options_json);
  /* Optional. Stops `capture` and takes its screen down; at most once per
   * capture, never after the host reported its final status. Any thread. */
  void (*cancel)(void* user_data, kiv_capture capture);
} kiv_capture_vendor;

KIV_API kiv_status kiv_use_host_capture_vendor(const kiv_capture_vendor* vendor);

/* Progress statuses. progress is 0...1; message may be NULL. */
KIV_API kiv_status kiv_capture_report_connecting(kiv_capture capture);
KIV_API kiv_status kiv_capture_report_connected(kiv_capture capture);
KIV_API kiv_status kiv_capture_report_processing(kiv_capture capture, double progress, const char* message);

/* Final statuses. */
KIV_API kiv_status kiv_capture_report_success(kiv_capture capture);

/* One reason for a failure: a snake_case code ("eyes_closed", or one the
 * SDK does not know) and its text for the person; both required. */
typedef struct kiv_failure_reason {
  const char* feedback_code;
  const char* localized_description;
} kiv_failure_reason;

/* reasons[0...count), most important first; count may be 0. */
KIV_API kiv_status kiv_capture_report_failure(kiv_capture capture, const kiv_failure_reason* reasons, size_t count);

typedef enum kiv_canceler { KIV_CANCELER_USER = 0, KIV_CANCELER_INTEGRATION = 1 } kiv_canceler;

KIV_API kiv_status kiv_capture_report_canceled(kiv_capture capture, kiv_canceler canceler);

/* Why the vendor could not complete the capture. */
typedef enum kiv_capture_error {
  KIV_CAPTURE_ERROR_NETWORK = 0,
  KIV_CAPTURE_ERROR_SERVER = 1,
  KIV_CAPTURE_ERROR_UNEXPECTED = 2,
  KIV_CAPTURE_ERROR_CAPTURE_ALREADY_ACTIVE = 3,
  KIV_CAPTURE_ERROR_CAMERA_PERMISSION_DENIED = 4,
  KIV_CAPTURE_ERROR_USER_TIMEOUT = 5,
  KIV_CAPTURE_ERROR_NOT_SUPPORTED = 6,
  KIV_CAPTURE_ERROR_INVALID_OPTIONS = 7,
  KIV_CAPTURE_ERROR_CAMERA_UNAVAILABLE = 8
} kiv_capture_error;

/* description may be NULL (the vendor gave none). */
KIV_API kiv_status kiv_capture_report_error(kiv_capture capture, kiv_capture_error code, const char* description);

/* The vendor is done with its screen. The SDK takes it down once the host
 * heard the outcome (at most 3 seconds later). Once per capture: a second
 * request is refused with KIV_ERROR_INVALID_STATE. */
KIV_API kiv_status kiv_capture_request_dismissal(kiv_capture capture);

/* The system camera prompt. */
typedef uint64_t kiv_camera_request;

typedef struct kiv_camera {
  void* user_data;
  /* Required. The current authorization. Any thread. */
  kiv_camera_status (*status)(void* user_data);
  /* Required. Asks the person; the host answers once with
   * kiv_camera_answer(request, granted), from any thread, even from inside
   * this call. Any thread. */
  void (*request_access)(void* user_data, kiv_camera_request request);
} kiv_camera;

KIV_API kiv_status kiv_use_host_camera(const kiv_camera* camera);

/* The answer to `request`. KIV_ERROR_INVALID_ARGUMENT for a request that
 * was never made or is already answered. Any thread. */
KIV_API kiv_status kiv_camera_answer(kiv_camera_request request, int granted);

/* The host's screen, for a start over a view of the host's
 * (kiv_sdk_start_over). Every function is optional and is called on the main
 * thread with the host_view given to that start. capture is the capture
 * whose screen is meant, 0 for a vendor other than the host's. */
typedef struct kiv_presentation {
  void* user_data;
  /* Put the vendor's screen for `capture` over host_view, full screen. */
  void (*present_capture_screen)(void* user_data, void* host_view, kiv_capture capture);
  /* Take it down. */
  void (*dismiss_capture_screen)(void* user_data, void* host_view, kiv_capture capture);
  /* Show the SDK's loading indicator over host_view, or hide it (only when
   * setup asked for the SDK's loading view). */
  void (*show_loading)(void* user_data, void* host_view);
  void (*hide_loading)(void* user_data, void* host_view);
} kiv_presentation;

KIV_API kiv_status kiv_use_host_presentation(const kiv_presentation* presentation);

/* The 32-byte key that seals the secure store's items (from a phone's
 * keystore), instead of the key file beside the database; nothing is read
 * from or written to that file then. KIV_ERROR_INVALID_ARGUMENT unless
 * length is 32. The bytes are copied. */
KIV_API kiv_status kiv_set_secure_store_key(const unsigned char* key, size_t length);

/* ---- Delegate ----------------------------------------------------------- */

/* How a run ended. Exactly one of the first four ends a run; loading and
 * loaded bracket the SDK's preparation work. Each gets the delegate's
 * user_data first; a NULL pointer is simply not called. Types are raw values
 * that never change: error types in camelCase ("cameraPermission",
 * "networkException", ...), failure types in snake_case ("eyes_closed",
 * "too_dark", ..., "unknown"). Texts are valid during the call only. */
typedef struct kiv_delegate {
  void* user_data;
  /* signed_response: the backend's signed verdict, "" when it sent none. */
  void (*did_finish_with_success)(void* user_data, const char* signed_response);
  /* description and signed_response may be NULL (absent). */
  void (*did_finish_with_failure)(void* user_data, const char* type, const char* description,
                                  const char* signed_response);
  void (*did_finish_with_error)(void* user_data, const char* type, const char* description);
  void (*cancelled)(void* user_data);
  void (*loading)(void* user_data);
  void (*loaded)(void* user_data);
} kiv_delegate;

/* ---- The facade --------------------------------------------------------- */

typedef struct kiv_sdk kiv_sdk;

/* A facade with no configuration and no delegate, in *out_sdk. Main thread. */
KIV_API kiv_status kiv_sdk_create(kiv_sdk** out_sdk);

/* Releases the facade. A run in progress ends without another delegate call;
 * none arrives for this handle once the call returned, even when it is made
 * from inside a delegate call. Main thread. */
KIV_API kiv_status kiv_sdk_destroy(kiv_sdk* sdk);

/* Copies *delegate (NULL: no delegate) for the runs started after. The
 * previous delegate hears nothing more once this returns, not even the end
 * of a run in progress, so its user_data may be freed. Main thread. */
KIV_API kiv_status kiv_sdk_set_delegate(kiv_sdk* sdk, const kiv_delegate* delegate);

/* Stores the configuration, replacing an earlier one:
 *   mobile_token, person_id   required
 *   custom_localization       name of the host's strings table, or NULL
 *   localization_bundle_dir   the directory holding it, or NULL
 *   ui_customization_json     the capture screen's look, or NULL for the
 *                             default; a JSON object whose keys are all
 *                             optional (others are refused):
 *     "mask":   {"isBlurEnabled": bool, "color": COLOR}
 *     "appBar": {"title": string, "titleColor": COLOR, "color": COLOR,
 *                "closeButtonTintColor": COLOR}
 *     "prompt": {"textColor": COLOR, "backgroundColor": COLOR,
 *                "isRounded": bool}
 *     "fontName": string (a font family for the capture texts)
 *   where COLOR is "#RRGGBB" or "#RRGGBBAA" (hex); a missing record or
 *   colour is the vendor's default, missing booleans are false.
 *   environment               the backend stage
 *   loading                   non-zero: the SDK shows its own loading view
 * KIV_ERROR_INVALID_ARGUMENT for JSON that breaks these rules. Main thread. */
KIV_API kiv_status kiv_sdk_setup(kiv_sdk* sdk, const char* mobile_token, const char* person_id,
                                 const char* custom_localization, const char* localization_bundle_dir,
                                 const char* ui_customization_json, kiv_environment environment, int loading);

/* Fetches the liveness session ahead of time for the next start. Any thread
 * (the work moves to the main loop), as long as the handle is not destroyed
 * meanwhile. */
KIV_API kiv_status kiv_sdk_prewarm(kiv_sdk* sdk);

/* Runs one attempt over a screen of the SDK's own; the outcome reaches the
 * delegate. Before setup the delegate hears "invalidOptionsException".
 * KIV_ERROR_INVALID_STATE while a run is in progress, in any handle. A run
 * is torn down only after its finishing delegate call returns, so a start
 * made inside that call is refused too: use kiv_sdk_post_start() there.
 * Main thread. */
KIV_API kiv_status kiv_sdk_start(kiv_sdk* sdk);

/* The same, over the host's view: host_view is an opaque handle (a
 * jobject's global reference, an NSView*, a GtkWidget*...) handed back to
 * the presentation functions of kiv_use_host_presentation(); the host keeps
 * it valid until the attempt's outcome was delivered and its screens are
 * down. Main thread. */
KIV_API kiv_status kiv_sdk_start_over(kiv_sdk* sdk, void* host_view);

/* Queues kiv_sdk_start() on the main queue: it runs after the task under
 * way, so called inside a finishing delegate call it starts the next attempt
 * once the run that is ending has been torn down. Nothing starts when the
 * handle is destroyed before that; how the start went shows only through
 * the delegate. Any thread, as long as the handle is not destroyed
 * meanwhile. */
KIV_API kiv_status kiv_sdk_post_start(kiv_sdk* sdk);

#ifdef __cplusplus
}
#endif

#endif /* KIV_FACE_LIVENESS_LITE_H */
