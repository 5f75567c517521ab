package kiv;

/** The system camera prompt, written by the host in Java. */
public interface KivCamera {
  enum Status { notDetermined, restricted, denied, authorized }

  /** Any thread. */
  Status status();

  /** Ask the person; answer once with KivCamera.answer, from any thread. Any thread. */
  void requestAccess(long request);

  /** The person's answer to {@code request}; INVALID_ARGUMENT for one already answered. */
  static KivStatus answer(long request, boolean granted) {
    return KivStatus.of(Native.cameraAnswer(request, granted));
  }
}
