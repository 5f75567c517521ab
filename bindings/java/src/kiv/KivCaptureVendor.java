package kiv;

/**
 * The capture vendor's framework, written by the host in Java. launch runs on
 * the main thread; the vendor then reports through KivCapture from any
 * thread, even from inside launch.
 */
public interface KivCaptureVendor {
  /** optionsJson: the vendor options, keys as listed in kiv/face_liveness_lite.h. */
  void launch(long capture, String streamingURL, String token, String optionsJson);

  /** Stop the capture and take its screen down; never after its final status. Any thread. */
  void cancel(long capture);
}
