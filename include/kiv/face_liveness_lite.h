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
 * which is the SDK's main thread while it runs. The calls marked "main
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
  KIV_ERROR_INVALID_STATE = 5,    /* too late (data directory) or the loop already runs */
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
 * KIV_ERROR_INVALID_STATE when the loop already runs. */
KIV_API kiv_status kiv_run_main_loop(void);

/* Makes kiv_run_main_loop() return. Any thread, including from a task. */
KIV_API kiv_status kiv_stop_main_loop(void);

/* Queues task(user_data) on the main loop (it runs once the loop runs).
 * Any thread. */
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
 * from any thread, one at a time, the line (UTF-8, no line feed) valid during
 * the call; the handler must not call kiv_set_log_handler. NULL drops them. Standard output until this is called. Any
 * thread. */
KIV_API kiv_status kiv_set_log_handler(kiv_log_handler handler, void* user_data);

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
 * Main thread. */
KIV_API kiv_status kiv_sdk_start(kiv_sdk* sdk);

#ifdef __cplusplus
}
#endif

#endif /* KIV_FACE_LIVENESS_LITE_H */
