package kiv;

import java.util.concurrent.RejectedExecutionException;
import java.util.concurrent.ScheduledExecutorService;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;

/**
 * Process-wide set-up. The services a host lends (its main thread, its
 * capture vendor) come before the first facade is made; KivException with
 * INVALID_STATE after.
 *
 * <pre>
 *   var main = Executors.newSingleThreadScheduledExecutor();   // Android: the main Looper
 *   KivFaceLivenessLite.useMainThread(main);
 *   KivFaceLivenessLite.useCaptureVendor(myVendor);
 *   main.execute(() -> { var sdk = new KivFaceLivenessLiteSDK(); ... sdk.startSDK(); });
 * </pre>
 */
public final class KivFaceLivenessLite {
  private KivFaceLivenessLite() {}

  /**
   * The SDK's main thread is the one thread of {@code executor}: every
   * delegate call, timer and facade call happens there.
   */
  public static void useMainThread(ScheduledExecutorService executor) {
    KivStatus.of(Native.useMainThread(new MainQueueBridge(executor))).check();
    try {
      executor.submit(Native::bindMainThread).get();
    } catch (Exception e) {
      throw new IllegalStateException("the main thread did not start", e);
    }
  }

  public static void useCaptureVendor(KivCaptureVendor vendor) {
    KivStatus.of(Native.useCaptureVendor(new VendorBridge(vendor))).check();
  }

  public static void useCamera(KivCamera camera) {
    KivStatus.of(Native.useCamera(new CameraBridge(camera))).check();
  }

  /** Where the secure store, defaults and crash records live. */
  public static void setDataDirectory(String path) {
    KivStatus.of(Native.setDataDirectory(Text.bytes(path))).check();
  }

  /** Points an environment at another backend root (a sandbox, a staging backend). */
  public static void setBackendRootURL(KivEnvironment environment, String url) {
    KivStatus.of(Native.setBackendRootURL(environment.rawValue(), Text.bytes(url))).check();
  }

  /** The SDK's diagnostic lines, from any thread; null drops them. */
  public static void setLogHandler(Consumer<String> handler) {
    KivStatus.of(Native.setLogHandler(handler == null ? null : new LogBridge(handler))).check();
  }

  /** Runs {@code then} on the main thread once the attempt's background posts are done (at most 2 s). */
  public static void onBackgroundWorkDone(Runnable then) {
    KivStatus.of(Native.onBackgroundWorkDone(then)).check();
  }

  /** Called from native code only. */
  static final class MainQueueBridge {
    private final ScheduledExecutorService executor;

    MainQueueBridge(ScheduledExecutorService executor) {
      this.executor = executor;
    }

    // Once the host shut its executor down, the SDK's work is dropped, as a
    // quit loop drops it.
    void post(long task, long data) {
      try {
        executor.execute(() -> Native.runTask(task, data));
      } catch (RejectedExecutionException gone) {
        // dropped
      }
    }

    void postAfter(double seconds, long task, long data) {
      try {
        executor.schedule(() -> Native.runTask(task, data), (long) (seconds * 1e6), TimeUnit.MICROSECONDS);
      } catch (RejectedExecutionException gone) {
        // dropped
      }
    }
  }

  static final class VendorBridge {
    private final KivCaptureVendor vendor;

    VendorBridge(KivCaptureVendor vendor) {
      this.vendor = vendor;
    }

    void launch(long capture, byte[] url, byte[] token, byte[] options) {
      vendor.launch(capture, Text.string(url), Text.string(token), Text.string(options));
    }

    void cancel(long capture) {
      vendor.cancel(capture);
    }
  }

  static final class CameraBridge {
    private final KivCamera camera;

    CameraBridge(KivCamera camera) {
      this.camera = camera;
    }

    int status() {
      return camera.status().ordinal();
    }

    void requestAccess(long request) {
      camera.requestAccess(request);
    }
  }

  static final class LogBridge {
    private final Consumer<String> handler;

    LogBridge(Consumer<String> handler) {
      this.handler = handler;
    }

    void line(byte[] text) {
      handler.accept(Text.string(text));
    }
  }
}
