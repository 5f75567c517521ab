package kiv;

import java.util.List;

/** What a host vendor reports about one capture. Any thread; a late status is refused with INVALID_STATE. */
public final class KivCapture {
  /** One reason for a failure: a snake_case code and its text for the person. */
  public record FailureReason(String feedbackCode, String localizedDescription) {}

  public enum Canceler { user, integration }

  /** The vendor's error cases, in the C interface's order. */
  public enum Error {
    network,
    server,
    unexpected,
    captureAlreadyActive,
    cameraPermissionDenied,
    userTimeout,
    notSupported,
    invalidOptions,
    cameraUnavailable
  }

  private KivCapture() {}

  public static KivStatus connecting(long capture) {
    return KivStatus.of(Native.reportConnecting(capture));
  }

  public static KivStatus connected(long capture) {
    return KivStatus.of(Native.reportConnected(capture));
  }

  public static KivStatus processing(long capture, double progress, String message) {
    return KivStatus.of(Native.reportProcessing(capture, progress, Text.bytes(message)));
  }

  public static KivStatus success(long capture) {
    return KivStatus.of(Native.reportSuccess(capture));
  }

  public static KivStatus failure(long capture, List<FailureReason> reasons) {
    byte[][] codes = new byte[reasons.size()][];
    byte[][] texts = new byte[reasons.size()][];
    for (int i = 0; i < codes.length; ++i) {
      codes[i] = Text.bytes(reasons.get(i).feedbackCode());
      texts[i] = Text.bytes(reasons.get(i).localizedDescription());
    }
    return KivStatus.of(Native.reportFailure(capture, codes, texts));
  }

  public static KivStatus canceled(long capture, Canceler canceler) {
    return KivStatus.of(Native.reportCanceled(capture, canceler.ordinal()));
  }

  /** description may be null. */
  public static KivStatus error(long capture, Error error, String description) {
    return KivStatus.of(Native.reportError(capture, error.ordinal(), Text.bytes(description)));
  }

  /** The vendor is done with its screen; once per capture. */
  public static KivStatus requestDismissal(long capture) {
    return KivStatus.of(Native.requestDismissal(capture));
  }
}
