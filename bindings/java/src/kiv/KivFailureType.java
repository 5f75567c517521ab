package kiv;

/** Why a capture was judged a failure (didFinishWithFailure). Raw values in snake_case. */
public enum KivFailureType {
  unknown("unknown"),
  tooMuchMovement("too_much_movement"),
  tooBright("too_bright"),
  tooDark("too_dark"),
  misalignedFace("misaligned_face"),
  eyesClosed("eyes_closed"),
  faceTooFar("face_too_far"),
  faceTooClose("face_too_close"),
  sunglasses("sunglasses"),
  eyewear("eyewear"),
  obscuredFace("obscured_face"),
  multipleFaces("multiple_faces"),
  faceNotFound("face_not_found"),
  framesBlurry("frames_blurry"),
  lightingIssues("lighting_issues"),
  motionIssue("motion_issue"),
  backgroundIssue("background_issue"),
  deviceIssue("device_issue"),
  deviceRestart("device_restart"),
  systemError("system_error"),
  rejected("rejected"),
  timeout("timeout"),
  userNotFound("user_not_found"),
  processingFault("processing_fault");

  private final String rawValue;

  KivFailureType(String rawValue) {
    this.rawValue = rawValue;
  }

  /** The value that never changes, as the backend and the analytics see it. */
  public String rawValue() {
    return rawValue;
  }

  /** The case whose raw value is {@code raw}; unknown for any other text. */
  public static KivFailureType fromRawValue(String raw) {
    for (KivFailureType value : values()) {
      if (value.rawValue.equals(raw)) return value;
    }
    return unknown;
  }
}
