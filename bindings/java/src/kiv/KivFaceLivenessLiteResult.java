package kiv;

/** A successful attempt: the backend's signed verdict (a compact JWS). */
public final class KivFaceLivenessLiteResult {
  private final String signedResponse;

  KivFaceLivenessLiteResult(String signedResponse) {
    this.signedResponse = signedResponse;
  }

  public String signedResponse() {
    return signedResponse;
  }
}
