"""KivFaceLivenessLite for Python: the C interface through ctypes, on an asyncio loop.

The loop is lent as the SDK's main thread: every delegate call, timer and
facade call runs on it. A capture vendor (and a camera prompt) may be written
in Python; they report from any thread.

    kivfll.use_event_loop(loop)              # before anything else, once per process
    kivfll.use_capture_vendor(MyVendor())
    kivfll.set_backend_root_url(kivfll.KivEnvironment.dev, "http://127.0.0.1:8080/")
    ...                                      # then, on the loop:
    sdk = kivfll.KivFaceLivenessLiteSDK()
    sdk.setup(token, "person-1", environment=kivfll.KivEnvironment.dev)
    outcome = await sdk.start()              # Success, Failure, Error or Cancelled
"""
import asyncio
import ctypes
import dataclasses
import enum
import json
import threading
from typing import Optional, Union

from . import _c


class KivStatus(enum.IntEnum):
    OK = 0
    NULL_ARGUMENT = 1
    INVALID_UTF8 = 2
    INVALID_ARGUMENT = 3
    WRONG_THREAD = 4
    INVALID_STATE = 5
    INTERNAL = 6


class KivError(Exception):
    """A call the SDK refused; it changed nothing."""

    def __init__(self, status):
        super().__init__(f"KivFaceLivenessLite refused the call: {status.name}")
        self.status = status


def _check(code):
    status = KivStatus(code)
    if status != KivStatus.OK:
        raise KivError(status)


def _text(value):
    return None if value is None else value.encode("utf-8")


def _string(value):
    return None if value is None else value.decode("utf-8")


class KivEnvironment(enum.IntEnum):
    dev = 0
    beta = 1
    prod = 2


KivErrorType = enum.Enum("KivErrorType", [(name, name) for name in (
    "unsupportedDevice cameraPermission networkException serverException tokenException "
    "captureAlreadyActiveException unexpectedErrorException userTimeoutException imageNotFoundException "
    "tooManyRequestsException unknownException libraryException permissionException "
    "invalidResponseException cameraException certificateException invalidOptionsException "
    "securityException faceAuthentication").split()], type=str)
KivErrorType.__doc__ = "Why an attempt could not complete; values are the raw camelCase values."

KivFailureType = enum.Enum("KivFailureType", [(raw, raw) for raw in (
    "unknown too_much_movement too_bright too_dark misaligned_face eyes_closed face_too_far face_too_close "
    "sunglasses eyewear obscured_face multiple_faces face_not_found frames_blurry lighting_issues "
    "motion_issue background_issue device_issue device_restart system_error rejected timeout "
    "user_not_found processing_fault").split()], type=str)
KivFailureType.__doc__ = "Why a capture was judged a failure; values are the raw snake_case values."


@dataclasses.dataclass(frozen=True)
class Success:
    signed_response: str


@dataclasses.dataclass(frozen=True)
class Failure:
    type: KivFailureType
    description: Optional[str]
    signed_response: Optional[str]


@dataclasses.dataclass(frozen=True)
class Error:
    type: KivErrorType
    description: str


@dataclasses.dataclass(frozen=True)
class Cancelled:
    pass


Outcome = Union[Success, Failure, Error, Cancelled]

# Everything C holds a pointer to lives here for the process.
_kept = []
_loop = None
_loop_thread = None


def _run(task, data):
    _c.TASK(task)(data)


def use_event_loop(loop):
    """Lends `loop` as the main thread; it must be running (here or on another thread)."""
    global _loop, _loop_thread
    try:
        here = asyncio.get_running_loop() is loop
    except RuntimeError:
        here = False
    thread = threading.get_ident() if here else \
        asyncio.run_coroutine_threadsafe(_ident(), loop).result()
    _loop, _loop_thread = loop, thread

    def post(_, task, data):
        loop.call_soon_threadsafe(_run, task, data)

    def post_after(_, seconds, task, data):
        loop.call_soon_threadsafe(loop.call_later, seconds, _run, task, data)
        return 0

    queue = _c.MainQueue(None, _c.POST(post), _c.POST_AFTER(post_after), _c.CANCEL_DELAYED(),
                         _c.IS_CURRENT(lambda _: int(threading.get_ident() == _loop_thread)))
    _kept.append(queue)
    _check(_c.use_host_main_queue(ctypes.byref(queue)))


async def _ident():
    return threading.get_ident()


def use_capture_vendor(vendor):
    """`vendor.launch(capture, streaming_url, token, options)` runs on the loop (options: a dict);
    `vendor.cancel(capture)` on any thread. The vendor reports with the report_* functions."""
    functions = _c.CaptureVendor(
        None,
        _c.LAUNCH(lambda _, capture, url, token, options: vendor.launch(
            capture, _string(url), _string(token), json.loads(_string(options)))),
        _c.CANCEL(lambda _, capture: vendor.cancel(capture)))
    _kept.append(functions)
    _check(_c.use_host_capture_vendor(ctypes.byref(functions)))


class CameraStatus(enum.IntEnum):
    not_determined = 0
    restricted = 1
    denied = 2
    authorized = 3


def use_camera(camera):
    """`camera.status()` gives a CameraStatus; `camera.request_access(request)` asks the person,
    who answers with answer_camera(request, granted) from any thread."""
    functions = _c.Camera(None, _c.CAMERA_STATUS(lambda _: int(camera.status())),
                          _c.REQUEST_ACCESS(lambda _, request: camera.request_access(request)))
    _kept.append(functions)
    _check(_c.use_host_camera(ctypes.byref(functions)))


def answer_camera(request, granted):
    return KivStatus(_c.camera_answer(request, int(granted)))


def set_data_directory(path):
    _check(_c.set_data_directory(_text(str(path))))


def set_backend_root_url(environment, url):
    _check(_c.set_backend_root_url(int(environment), _text(url)))


def set_log_handler(handler):
    """handler(line) from any thread; None drops the SDK's diagnostic lines."""
    if handler is None:
        _check(_c.set_log_handler(_c.LOG(), None))
        return
    function = _c.LOG(lambda _, line: handler(_string(line)))
    _kept.append(function)
    _check(_c.set_log_handler(function, None))


async def background_work_done():
    """Once the SDK's background posts are done (at most 2 s): before the loop stops."""
    done = _loop.create_future()
    task = _c.TASK(lambda _: done.done() or done.set_result(None))
    _check(_c.on_background_work_done(task, None))
    await done


# ---- What a host vendor reports, from any thread ----------------------------

def report_connecting(capture):
    return KivStatus(_c.report_connecting(capture))


def report_connected(capture):
    return KivStatus(_c.report_connected(capture))


def report_processing(capture, progress, message=None):
    return KivStatus(_c.report_processing(capture, progress, _text(message)))


def report_success(capture):
    return KivStatus(_c.report_success(capture))


def report_failure(capture, reasons):
    """reasons: (feedback_code, localized_description) pairs, most important first."""
    array = (_c.FailureReason * max(len(reasons), 1))(
        *[_c.FailureReason(_text(code), _text(text)) for code, text in reasons])
    return KivStatus(_c.report_failure(capture, array, len(reasons)))


def report_canceled(capture, by_user=True):
    return KivStatus(_c.report_canceled(capture, 0 if by_user else 1))


CAPTURE_ERRORS = ("network", "server", "unexpected", "captureAlreadyActive", "cameraPermissionDenied",
                  "userTimeout", "notSupported", "invalidOptions", "cameraUnavailable")


def report_error(capture, code, description=None):
    """code: one of CAPTURE_ERRORS."""
    return KivStatus(_c.report_error(capture, CAPTURE_ERRORS.index(code), _text(description)))


def request_dismissal(capture):
    return KivStatus(_c.request_dismissal(capture))


# ---- The facade ------------------------------------------------------------

class KivFaceLivenessLiteSDK:
    """Make it, call it and close it on the loop. on_loading/on_loaded may be set to callables."""

    def __init__(self):
        handle = ctypes.c_void_p()
        _check(_c.sdk_create(ctypes.byref(handle)))
        self._handle = handle
        self._outcome = None
        self.on_loading = None
        self.on_loaded = None

        def settle(outcome):
            if self._outcome is not None and not self._outcome.done():
                self._outcome.set_result(outcome)

        def loading(on):
            callback = self.on_loading if on else self.on_loaded
            if callback is not None:
                callback()

        self._delegate = _c.Delegate(
            None,
            _c.SUCCESS(lambda _, signed: settle(Success(_string(signed)))),
            _c.FAILURE(lambda _, kind, text, signed: settle(
                Failure(KivFailureType(_string(kind)), _string(text), _string(signed)))),
            _c.ERROR(lambda _, kind, text: settle(Error(KivErrorType(_string(kind)), _string(text)))),
            _c.PLAIN(lambda _: settle(Cancelled())),
            _c.PLAIN(lambda _: loading(True)),
            _c.PLAIN(lambda _: loading(False)))
        _check(_c.sdk_set_delegate(self._handle, ctypes.byref(self._delegate)))

    def setup(self, mobile_token, person_id, *, custom_localization=None, localization_bundle_dir=None,
              ui_customization=None, environment=KivEnvironment.prod, loading=False):
        """ui_customization: a dict with the keys of kiv/face_liveness_lite.h, or None."""
        look = None if ui_customization is None else json.dumps(ui_customization)
        _check(_c.sdk_setup(self._live(), _text(mobile_token), _text(person_id), _text(custom_localization),
                            _text(localization_bundle_dir), _text(look), int(environment), int(loading)))

    def prewarm(self):
        _check(_c.sdk_prewarm(self._live()))

    async def start(self) -> Outcome:
        """Runs one attempt; its outcome, once the SDK delivered it."""
        self._outcome = asyncio.get_running_loop().create_future()
        _check(_c.sdk_start(self._live()))
        return await self._outcome

    def close(self):
        """Ends a run in progress without an outcome: a start() still waiting raises
        asyncio.CancelledError. Allowed inside on_loading/on_loaded."""
        if self._handle is None:
            return
        _check(_c.sdk_destroy(self._handle))
        self._handle = None
        if self._outcome is not None and not self._outcome.done():
            self._outcome.cancel()

    def _live(self):
        if self._handle is None:
            raise KivError(KivStatus.NULL_ARGUMENT)
        return self._handle
