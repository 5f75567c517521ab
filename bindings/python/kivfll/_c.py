"""The C interface (kiv/face_liveness_lite.h) as ctypes declarations."""
import ctypes
import ctypes.util
import os

_library = os.environ.get("KIVFLL_LIBRARY") or ctypes.util.find_library("kivfll") or "libkivfll.so.3"
lib = ctypes.CDLL(_library)

c_char_p, c_void_p, c_int, c_double, c_uint64, c_size_t = (
    ctypes.c_char_p, ctypes.c_void_p, ctypes.c_int, ctypes.c_double, ctypes.c_uint64, ctypes.c_size_t)

TASK = ctypes.CFUNCTYPE(None, c_void_p)
POST = ctypes.CFUNCTYPE(None, c_void_p, c_void_p, c_void_p)
POST_AFTER = ctypes.CFUNCTYPE(c_uint64, c_void_p, c_double, c_void_p, c_void_p)
CANCEL_DELAYED = ctypes.CFUNCTYPE(None, c_void_p, c_uint64)
IS_CURRENT = ctypes.CFUNCTYPE(c_int, c_void_p)
LAUNCH = ctypes.CFUNCTYPE(None, c_void_p, c_uint64, c_char_p, c_char_p, c_char_p)
CANCEL = ctypes.CFUNCTYPE(None, c_void_p, c_uint64)
CAMERA_STATUS = ctypes.CFUNCTYPE(c_int, c_void_p)
REQUEST_ACCESS = ctypes.CFUNCTYPE(None, c_void_p, c_uint64)
LOG = ctypes.CFUNCTYPE(None, c_void_p, c_char_p)
SUCCESS = ctypes.CFUNCTYPE(None, c_void_p, c_char_p)
FAILURE = ctypes.CFUNCTYPE(None, c_void_p, c_char_p, c_char_p, c_char_p)
ERROR = ctypes.CFUNCTYPE(None, c_void_p, c_char_p, c_char_p)
PLAIN = ctypes.CFUNCTYPE(None, c_void_p)


class MainQueue(ctypes.Structure):
    _fields_ = [("user_data", c_void_p), ("post", POST), ("post_after", POST_AFTER),
                ("cancel_delayed", CANCEL_DELAYED), ("is_current", IS_CURRENT)]


class CaptureVendor(ctypes.Structure):
    _fields_ = [("user_data", c_void_p), ("launch", LAUNCH), ("cancel", CANCEL)]


class Camera(ctypes.Structure):
    _fields_ = [("user_data", c_void_p), ("status", CAMERA_STATUS), ("request_access", REQUEST_ACCESS)]


class FailureReason(ctypes.Structure):
    _fields_ = [("feedback_code", c_char_p), ("localized_description", c_char_p)]


class Delegate(ctypes.Structure):
    _fields_ = [("user_data", c_void_p), ("did_finish_with_success", SUCCESS),
                ("did_finish_with_failure", FAILURE), ("did_finish_with_error", ERROR),
                ("cancelled", PLAIN), ("loading", PLAIN), ("loaded", PLAIN)]


def _declare(name, *argtypes):
    function = getattr(lib, name)
    function.argtypes = list(argtypes)
    function.restype = c_int
    return function


use_host_main_queue = _declare("kiv_use_host_main_queue", ctypes.POINTER(MainQueue))
use_host_capture_vendor = _declare("kiv_use_host_capture_vendor", ctypes.POINTER(CaptureVendor))
use_host_camera = _declare("kiv_use_host_camera", ctypes.POINTER(Camera))
camera_answer = _declare("kiv_camera_answer", c_uint64, c_int)
set_data_directory = _declare("kiv_set_data_directory", c_char_p)
set_backend_root_url = _declare("kiv_set_backend_root_url", c_int, c_char_p)
set_log_handler = _declare("kiv_set_log_handler", LOG, c_void_p)
on_background_work_done = _declare("kiv_on_background_work_done", TASK, c_void_p)
sdk_create = _declare("kiv_sdk_create", ctypes.POINTER(c_void_p))
sdk_destroy = _declare("kiv_sdk_destroy", c_void_p)
sdk_set_delegate = _declare("kiv_sdk_set_delegate", c_void_p, ctypes.POINTER(Delegate))
sdk_setup = _declare("kiv_sdk_setup", c_void_p, c_char_p, c_char_p, c_char_p, c_char_p, c_char_p, c_int, c_int)
sdk_prewarm = _declare("kiv_sdk_prewarm", c_void_p)
sdk_start = _declare("kiv_sdk_start", c_void_p)
report_connecting = _declare("kiv_capture_report_connecting", c_uint64)
report_connected = _declare("kiv_capture_report_connected", c_uint64)
report_processing = _declare("kiv_capture_report_processing", c_uint64, c_double, c_char_p)
report_success = _declare("kiv_capture_report_success", c_uint64)
report_failure = _declare("kiv_capture_report_failure", c_uint64, ctypes.POINTER(FailureReason), c_size_t)
report_canceled = _declare("kiv_capture_report_canceled", c_uint64, c_int)
report_error = _declare("kiv_capture_report_error", c_uint64, c_int, c_char_p)
request_dismissal = _declare("kiv_capture_request_dismissal", c_uint64)
