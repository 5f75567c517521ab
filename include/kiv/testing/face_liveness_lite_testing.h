/* Test doubles for a C host's own tests (and for bridges' tests): the
 * simulated capture vendor and a camera answer decided in advance. They live
 * in the kivfll_testing library, never in the shipped one; link both.
 *
 *   kiv_use_simulated_capture("connected; wait 0.5; failure eyes_closed");
 *   kiv_set_camera_status(KIV_CAMERA_AUTHORIZED, 1);
 *
 * Both may be called at any time, from any thread, and apply to the
 * attempts started afterwards. They replace a vendor or camera lent through
 * kiv_use_host_capture_vendor() or kiv_use_host_camera(). Bad input gets a
 * kiv_status and changes nothing, as everywhere in the C interface. */
#ifndef KIV_FACE_LIVENESS_LITE_TESTING_H
#define KIV_FACE_LIVENESS_LITE_TESTING_H

#include "kiv/face_liveness_lite.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The capture vendor plays `script` (one step per ';', for example
 * "connected; wait 2; failure eyes_closed" or "connected; canceled"; the
 * steps are listed in kiv/testing/capture_script.hpp) at the following
 * launches. KIV_ERROR_INVALID_ARGUMENT for a script that does not parse. */
KIV_API kiv_status kiv_use_simulated_capture(const char* script);

/* The camera's authorization is `status`, whatever the devices say; when it
 * is KIV_CAMERA_NOT_DETERMINED, the prompt is answered `grant_when_asked`
 * (non-zero: granted). */
KIV_API kiv_status kiv_set_camera_status(kiv_camera_status status, int grant_when_asked);

#ifdef __cplusplus
}
#endif

#endif /* KIV_FACE_LIVENESS_LITE_TESTING_H */
