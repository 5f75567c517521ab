package kiv;

/**
 * Hears how an attempt ended: exactly one of the first four per attempt, and
 * loading()/loaded() around the SDK's preparation. Every call arrives on the
 * host's main thread (the executor lent with KivFaceLivenessLite.useMainThread).
 */
public interface KivFaceLivenessLiteDelegate {
  void didFinishWithSuccess(KivFaceLivenessLiteResult livenessResult);

  /** description and signedResponse may be null (absent). */
  void didFinishWithFailure(KivFailureType type, String description, String signedResponse);

  void didFinishWithError(KivErrorType type, String description);

  void cancelled();

  default void loading() {}

  default void loaded() {}
}
