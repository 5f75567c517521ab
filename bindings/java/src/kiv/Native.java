package kiv;

/** The JNI entry points (bindings/java/native/kivfll_jni.cpp); texts as UTF-8 bytes. */
final class Native {
  static {
    System.loadLibrary("kivfll_jni");
    Runtime.getRuntime().addShutdownHook(new Thread(Native::vmExiting, "kivfll-exit"));
  }

  private Native() {}

  static native void vmExiting();
  static native int useMainThread(KivFaceLivenessLite.MainQueueBridge bridge);
  static native void bindMainThread();
  static native void runTask(long task, long data);
  static native int useCaptureVendor(KivFaceLivenessLite.VendorBridge bridge);
  static native int useCamera(KivFaceLivenessLite.CameraBridge bridge);
  static native int cameraAnswer(long request, boolean granted);
  static native int setDataDirectory(byte[] path);
  static native int setBackendRootURL(int environment, byte[] url);
  static native int setLogHandler(KivFaceLivenessLite.LogBridge bridge);
  static native int onBackgroundWorkDone(Runnable then);

  static native int create(long[] handle);
  static native int destroy(long handle);
  static native int setDelegate(long handle, KivFaceLivenessLiteSDK target);
  static native int setup(long handle, byte[] mobileToken, byte[] personId, byte[] customLocalization,
      byte[] bundleDirectory, byte[] uiCustomizationJson, int environment, boolean loading);
  static native int prewarm(long handle);
  static native int start(long handle);

  static native int reportConnecting(long capture);
  static native int reportConnected(long capture);
  static native int reportProcessing(long capture, double progress, byte[] message);
  static native int reportSuccess(long capture);
  static native int reportFailure(long capture, byte[][] codes, byte[][] descriptions);
  static native int reportCanceled(long capture, int canceler);
  static native int reportError(long capture, int error, byte[] description);
  static native int requestDismissal(long capture);
}
