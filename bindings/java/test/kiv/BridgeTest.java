package kiv;

import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.net.URI;
import java.net.http.HttpClient;
import java.net.http.HttpRequest;
import java.net.http.HttpResponse;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Base64;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.Executors;
import java.util.concurrent.ScheduledExecutorService;
import java.util.concurrent.TimeUnit;

/**
 * Whole attempts through the Java bridge against `kivfll sandbox`: the main
 * thread lent from a single-thread executor, the capture vendor written in
 * Java and reporting from threads of its own. Run under -Xcheck:jni. Exits 0
 * when every check held.
 *
 *   java -Xcheck:jni -Djava.library.path=DIR -cp ... kiv.BridgeTest KIVFLL_PROGRAM
 */
public final class BridgeTest {
  private static int failures = 0;
  private static final ScheduledExecutorService main = Executors.newSingleThreadScheduledExecutor(task -> {
    Thread thread = new Thread(task, "host-main");
    thread.setDaemon(true);
    return thread;
  });
  private static Thread mainThread;

  private static void check(boolean condition, String what) {
    if (!condition) {
      System.err.println("check failed: " + what);
      ++failures;
    }
  }

  /** What the vendor plays at the next launch. */
  enum Play { SUCCESS, FAILURE, ERROR, CANCEL, HANG }

  static final class Vendor implements KivCaptureVendor {
    volatile Play play = Play.SUCCESS;
    final List<Long> cancels = new ArrayList<>();
    volatile long hung = 0;

    @Override
    public void launch(long capture, String url, String token, String optionsJson) {
      check(Thread.currentThread() == mainThread, "launch on the main thread");
      check(url.equals("wss://eu.capture.example/ws"), "streaming URL " + url);
      final Play now = play;
      if (now == Play.HANG) {
        hung = capture; // reports nothing: only a cancel ends it
        return;
      }
      new Thread(() -> report(capture, now)).start();
    }

    private static void report(long capture, Play play) {
      check(KivCapture.connected(capture) == KivStatus.OK, play + ": connected accepted");
      check(KivCapture.processing(capture, 2.0, null) == KivStatus.INVALID_ARGUMENT, "progress 2 refused");
      switch (play) {
        case SUCCESS -> check(KivCapture.success(capture) == KivStatus.OK, "success accepted");
        case FAILURE -> KivCapture.failure(capture,
            List.of(new KivCapture.FailureReason("eyes_closed", "Eyes closed \uD83D\uDC40")));
        case ERROR -> KivCapture.error(capture, KivCapture.Error.network, "The connection was lost");
        case CANCEL, HANG -> KivCapture.canceled(capture, KivCapture.Canceler.user);
      }
      check(KivCapture.success(capture) == KivStatus.INVALID_STATE, "a late status refused");
      check(KivCapture.requestDismissal(capture) == KivStatus.OK, "dismissal accepted");
    }

    @Override
    public synchronized void cancel(long capture) {
      cancels.add(capture);
    }
  }

  /** Asks once, and the person grants from another thread. */
  static final class Camera implements KivCamera {
    volatile boolean asked = false;

    @Override
    public Status status() {
      return asked ? Status.authorized : Status.notDetermined;
    }

    @Override
    public void requestAccess(long request) {
      asked = true;
      new Thread(() -> {
        check(KivCamera.answer(request, true) == KivStatus.OK, "the answer accepted");
        check(KivCamera.answer(request, true) == KivStatus.INVALID_ARGUMENT, "a second answer refused");
      }).start();
    }
  }

  /** What one attempt's delegate heard. */
  static final class Heard implements KivFaceLivenessLiteDelegate {
    final CompletableFuture<String> outcome = new CompletableFuture<>();
    KivFaceLivenessLiteSDK sdk;
    boolean closeWhenLoaded;
    String signedResponse, description;
    int offMainCalls = 0, finishingCalls = 0;

    private void finish(String what) {
      ++finishingCalls;
      if (Thread.currentThread() != mainThread) ++offMainCalls;
      sdk.close(); // allowed inside a delegate call
      outcome.complete(what);
    }

    @Override
    public void didFinishWithSuccess(KivFaceLivenessLiteResult result) {
      signedResponse = result.signedResponse();
      finish("success");
    }

    @Override
    public void didFinishWithFailure(KivFailureType type, String text, String signed) {
      description = text;
      signedResponse = signed;
      finish("failure " + type);
    }

    @Override
    public void didFinishWithError(KivErrorType type, String text) {
      description = text;
      finish("error " + type);
    }

    @Override
    public void cancelled() {
      finish("cancelled");
    }

    @Override
    public void loaded() {
      if (Thread.currentThread() != mainThread) ++offMainCalls;
      if (closeWhenLoaded && sdk != null) {
        sdk.close(); // the host walks away mid-run
        sdk = null;
        outcome.complete("released");
      }
    }
  }

  private static Vendor vendor;

  // The play is set on the main thread: the launch of an attempt released
  // mid-run may still be ahead there.
  private static Heard attempt(Play play, String token, String person, boolean prewarm, boolean closeWhenLoaded)
      throws Exception {
    Heard heard = new Heard();
    heard.closeWhenLoaded = closeWhenLoaded;
    main.execute(() -> {
      vendor.play = play;
      heard.sdk = new KivFaceLivenessLiteSDK();
      heard.sdk.setDelegate(heard);
      heard.sdk.setup(token, person, null, null, null, KivEnvironment.dev, true);
      if (prewarm) heard.sdk.prewarm();
      heard.sdk.startSDK();
    });
    heard.outcome.get(60, TimeUnit.SECONDS);
    return heard;
  }

  private static String run(String... command) throws Exception {
    Process process = new ProcessBuilder(command).redirectErrorStream(true).start();
    String out = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8).trim();
    process.waitFor();
    return out;
  }

  private static int sessionRequests(String root) throws Exception {
    var answer = HttpClient.newHttpClient().send(
        HttpRequest.newBuilder(URI.create(root + "_sandbox/requests?path=bff/sessions")).build(),
        HttpResponse.BodyHandlers.ofString());
    return answer.body().split("\"path\"", -1).length - 1;
  }

  public static void main(String[] args) {
    try {
      attempts(args[0]);
    } catch (Throwable thrown) {
      thrown.printStackTrace();
      ++failures;
    }
    if (failures != 0) System.err.println(failures + " checks failed");
    System.exit(failures == 0 ? 0 : 1);
  }

  private static void attempts(String kivfll) throws Exception {
    Process sandbox = new ProcessBuilder(kivfll, "sandbox", "--port", "0").start();
    var lines = new BufferedReader(new InputStreamReader(sandbox.getInputStream(), StandardCharsets.UTF_8));
    String first = lines.readLine();
    String root = first.substring(first.lastIndexOf(' ') + 1);
    Thread drain = new Thread(() -> {
      try {
        while (lines.readLine() != null) {
          // the sandbox's request lines
        }
      } catch (java.io.IOException closed) {
        // the sandbox is gone
      }
    });
    drain.setDaemon(true);
    drain.start();
    String token = run(kivfll, "token", "--iss", "java-client", "--service-location", "eu.capture.example");

    mainThread = main.submit(Thread::currentThread).get();
    vendor = new Vendor();
    KivFaceLivenessLite.useMainThread(main);
    KivFaceLivenessLite.useCaptureVendor(vendor);
    KivFaceLivenessLite.useCamera(new Camera());
    KivFaceLivenessLite.setDataDirectory(Files.createTempDirectory("kiv-java").toString());
    KivFaceLivenessLite.setLogHandler(null); // makes the platform: lending is over
    try {
      KivFaceLivenessLite.useCaptureVendor(vendor);
      check(false, "a vendor lent too late is refused");
    } catch (KivException refused) {
      check(refused.status() == KivStatus.INVALID_STATE, "too late: " + refused.status());
    }
    KivFaceLivenessLite.setBackendRootURL(KivEnvironment.dev, root);

    // Success, with a person id outside the BMP that must come back signed.
    String person = "person-\uD83D\uDE00";
    Heard success = attempt(Play.SUCCESS, token, person, false, false);
    check(success.outcome.get().equals("success"), "success: " + success.outcome.get());
    String payload = new String(Base64.getUrlDecoder().decode(success.signedResponse.split("\\.")[1]),
        StandardCharsets.UTF_8);
    check(payload.contains("\"personId\":\"" + person + "\""), "the person id survives both ways: " + payload);

    Heard failure = attempt(Play.FAILURE, token, "person-1", false, false);
    check(failure.outcome.get().equals("failure eyesClosed"), "failure: " + failure.outcome.get());
    check("Eyes closed \uD83D\uDC40".equals(failure.description), "description: " + failure.description);
    check(failure.signedResponse != null && !failure.signedResponse.isEmpty(), "failure carries the verdict");

    Heard error = attempt(Play.ERROR, token, "person-1", false, false);
    check(error.outcome.get().equals("error networkException"), "error: " + error.outcome.get());
    check("The connection was lost".equals(error.description), "error description: " + error.description);

    check(attempt(Play.CANCEL, token, "person-1", false, false).outcome.get().equals("cancelled"), "cancelled");

    // Prewarm: the start takes the prewarmed session, no second request.
    int before = sessionRequests(root);
    Heard prewarmed = attempt(Play.SUCCESS, token, "person-1", true, false);
    check(prewarmed.outcome.get().equals("success"), "prewarmed: " + prewarmed.outcome.get());
    check(sessionRequests(root) == before + 1, "one session for prewarm and start");

    // The facade released mid-run: its capture is cancelled, nothing more
    // reaches the delegate, and the next attempt runs. (The other captures
    // reported their end, so no cancel reached them.)
    Heard released = attempt(Play.HANG, token, "person-1", false, true);
    check(attempt(Play.SUCCESS, token, "person-1", false, false).outcome.get().equals("success"), "after a release");
    check(released.finishingCalls == 0, "no outcome after the release");
    synchronized (vendor) {
      check(vendor.cancels.equals(List.of(vendor.hung)), "only the abandoned capture cancelled: " + vendor.cancels);
    }

    for (Heard heard : List.of(success, failure, error, prewarmed, released)) {
      check(heard.offMainCalls == 0, "every delegate call on the main thread");
      check(heard.finishingCalls <= 1, "at most one outcome");
    }
    check(KivCapture.success(123456789L) == KivStatus.INVALID_ARGUMENT, "an unknown capture refused");

    CompletableFuture<Void> settled = new CompletableFuture<>();
    main.execute(() -> KivFaceLivenessLite.onBackgroundWorkDone(() -> settled.complete(null)));
    settled.get(60, TimeUnit.SECONDS);
    main.shutdown();
    sandbox.destroy();
  }
}
