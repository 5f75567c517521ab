package kiv;

/** A call the SDK refused; it changed nothing. */
public final class KivException extends RuntimeException {
  private final KivStatus status;

  KivException(KivStatus status) {
    super("KivFaceLivenessLite refused the call: " + status);
    this.status = status;
  }

  public KivStatus status() {
    return status;
  }
}
