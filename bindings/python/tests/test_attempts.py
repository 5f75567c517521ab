"""Whole attempts through the Python package against `kivfll sandbox`, on an asyncio
loop lent as the main thread, with a capture vendor written in Python that reports
from threads of its own. KIVFLL_PROGRAM names the kivfll program, KIVFLL_LIBRARY the
library."""
import asyncio
import base64
import json
import os
import subprocess
import tempfile
import threading
import urllib.request

import pytest

import kivfll

KIVFLL = os.environ["KIVFLL_PROGRAM"]


class Vendor:
    """Plays `self.play` at each launch, from a thread of its own."""

    def __init__(self):
        self.play = "success"
        self.options = None
        self.hung = None
        self.cancelled = []
        self.problems = []  # checked by each attempt: an assert would stop in the C callback's frame

    def expect(self, holds, what):
        if not holds:
            self.problems.append(what)

    def launch(self, capture, url, token, options):
        self.expect(url == "wss://eu.capture.example/ws", url)
        self.options = options
        if self.play == "hang":
            self.hung = capture  # reports nothing: only a cancel ends it
            return
        threading.Thread(target=self._report, args=(capture, self.play)).start()

    def _report(self, capture, play):
        self.expect(kivfll.report_connected(capture) == kivfll.KivStatus.OK, "connected")
        self.expect(kivfll.report_processing(capture, 1.5) == kivfll.KivStatus.INVALID_ARGUMENT, "progress 1.5")
        final = {
            "success": lambda: kivfll.report_success(capture),
            "failure": lambda: kivfll.report_failure(capture, [("too_dark", "Too dark \U0001F311")]),
            "error": lambda: kivfll.report_error(capture, "userTimeout", "Nobody came"),
            "cancel": lambda: kivfll.report_canceled(capture),
        }[play]
        self.expect(final() == kivfll.KivStatus.OK, play)
        self.expect(kivfll.report_success(capture) == kivfll.KivStatus.INVALID_STATE, "a late status")
        self.expect(kivfll.request_dismissal(capture) == kivfll.KivStatus.OK, "dismissal")

    def cancel(self, capture):
        self.cancelled.append(capture)


class Camera:
    def status(self):
        return kivfll.CameraStatus.authorized

    def request_access(self, request):
        kivfll.answer_camera(request, True)


@pytest.fixture(scope="module")
def host():
    sandbox = subprocess.Popen([KIVFLL, "sandbox", "--port", "0"], stdout=subprocess.PIPE, text=True)
    root = sandbox.stdout.readline().split()[-1]
    threading.Thread(target=sandbox.stdout.read, daemon=True).start()
    token = subprocess.run([KIVFLL, "token", "--iss", "python-client", "--service-location", "eu.capture.example"],
                           capture_output=True, text=True, check=True).stdout.strip()
    loop = asyncio.new_event_loop()
    threading.Thread(target=loop.run_forever, daemon=True).start()
    vendor = Vendor()
    kivfll.use_event_loop(loop)
    kivfll.use_capture_vendor(vendor)
    kivfll.use_camera(Camera())
    kivfll.set_data_directory(tempfile.mkdtemp(prefix="kiv-python-"))
    kivfll.set_log_handler(None)
    with pytest.raises(kivfll.KivError) as late:
        kivfll.use_capture_vendor(vendor)
    assert late.value.status == kivfll.KivStatus.INVALID_STATE
    kivfll.set_backend_root_url(kivfll.KivEnvironment.dev, root)

    def attempt(play, person="person-1", prewarm=False, close_when_loaded=False):
        calls_off_loop = []

        async def run():
            vendor.play = play  # on the loop: a released attempt's launch may still be ahead there
            sdk = kivfll.KivFaceLivenessLiteSDK()

            def loaded():
                calls_off_loop.append(threading.get_ident() != kivfll._loop_thread)
                if close_when_loaded:
                    sdk.close()

            sdk.on_loaded = loaded
            sdk.setup(token, person, environment=kivfll.KivEnvironment.dev, loading=True,
                      ui_customization={"appBar": {"title": "Verify"}})
            if prewarm:
                sdk.prewarm()
            try:
                return await sdk.start()
            except asyncio.CancelledError:
                return "released"
            finally:
                sdk.close()

        outcome = asyncio.run_coroutine_threadsafe(run(), loop).result(timeout=60)
        assert not any(calls_off_loop)
        assert vendor.problems == []
        return outcome

    def sessions():
        with urllib.request.urlopen(root + "_sandbox/requests?path=bff/sessions") as answer:
            return len(json.load(answer))

    yield attempt, sessions, vendor
    asyncio.run_coroutine_threadsafe(kivfll.background_work_done(), loop).result(timeout=60)
    sandbox.terminate()


def test_success_signs_a_person_id_from_outside_the_bmp(host):
    attempt, _, vendor = host
    person = "person-\U0001F600"
    outcome = attempt("success", person=person)
    assert isinstance(outcome, kivfll.Success)
    payload = outcome.signed_response.split(".")[1]
    claims = json.loads(base64.urlsafe_b64decode(payload + "=" * (-len(payload) % 4)))
    assert claims["personId"] == person
    assert vendor.options["title"] == "Verify"


@pytest.mark.parametrize("play, expected", [
    ("failure", kivfll.Failure(kivfll.KivFailureType.too_dark, "Too dark \U0001F311", None)),
    ("error", kivfll.Error(kivfll.KivErrorType.userTimeoutException, "Nobody came")),
    ("cancel", kivfll.Cancelled()),
])
def test_every_outcome_arrives_typed(host, play, expected):
    outcome = host[0](play)
    if isinstance(outcome, kivfll.Failure):
        assert outcome.signed_response  # the session's verdict, not the vendor's
        outcome = kivfll.Failure(outcome.type, outcome.description, None)
    assert outcome == expected


def test_prewarm_serves_the_start(host):
    attempt, sessions, _ = host
    before = sessions()
    assert isinstance(attempt("success", prewarm=True), kivfll.Success)
    assert sessions() == before + 1


def test_a_facade_closed_mid_run_stops_its_capture_and_lets_the_next_attempt_run(host):
    attempt, _, vendor = host
    assert attempt("hang", close_when_loaded=True) == "released"
    assert isinstance(attempt("success"), kivfll.Success)
    assert vendor.cancelled == [vendor.hung]  # the others reported their end
    assert kivfll.report_success(987654321) == kivfll.KivStatus.INVALID_ARGUMENT
