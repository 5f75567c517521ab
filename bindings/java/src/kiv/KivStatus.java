package kiv;

/** What a call through the C interface answered; anything but OK changed nothing. */
public enum KivStatus {
  OK,
  NULL_ARGUMENT,
  INVALID_UTF8,
  INVALID_ARGUMENT,
  WRONG_THREAD,
  INVALID_STATE,
  INTERNAL;

  static KivStatus of(int code) {
    return code >= 0 && code < values().length ? values()[code] : INTERNAL;
  }

  /** Throws KivException unless this is OK. */
  void check() {
    if (this != OK) throw new KivException(this);
  }
}
