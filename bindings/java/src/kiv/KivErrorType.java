package kiv;

/** Why an attempt could not complete (didFinishWithError). Raw values in camelCase. */
public enum KivErrorType {
  unsupportedDevice("unsupportedDevice"),
  cameraPermission("cameraPermission"),
  networkException("networkException"),
  serverException("serverException"),
  tokenException("tokenException"),
  captureAlreadyActiveException("captureAlreadyActiveException"),
  unexpectedErrorException("unexpectedErrorException"),
  userTimeoutException("userTimeoutException"),
  imageNotFoundException("imageNotFoundException"),
  tooManyRequestsException("tooManyRequestsException"),
  unknownException("unknownException"),
  libraryException("libraryException"),
  permissionException("permissionException"),
  invalidResponseException("invalidResponseException"),
  cameraException("cameraException"),
  certificateException("certificateException"),
  invalidOptionsException("invalidOptionsException"),
  securityException("securityException"),
  faceAuthentication("faceAuthentication");

  private final String rawValue;

  KivErrorType(String rawValue) {
    this.rawValue = rawValue;
  }

  /** The value that never changes, as the backend and the analytics see it. */
  public String rawValue() {
    return rawValue;
  }

  /** The case whose raw value is {@code raw}; unknownException for any other text. */
  public static KivErrorType fromRawValue(String raw) {
    for (KivErrorType value : values()) {
      if (value.rawValue.equals(raw)) return value;
    }
    return unknownException;
  }
}
