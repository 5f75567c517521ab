package kiv;

import java.lang.ref.WeakReference;

/**
 * The facade. Make it, call it and close it on the main thread (see
 * KivFaceLivenessLite.useMainThread). It holds its delegate weakly: the host
 * keeps the delegate alive. close() ends a run in progress without another
 * delegate call, even from inside one.
 */
public final class KivFaceLivenessLiteSDK implements AutoCloseable {
  private long handle;
  private WeakReference<KivFaceLivenessLiteDelegate> delegate = new WeakReference<>(null);

  public KivFaceLivenessLiteSDK() {
    long[] made = new long[1];
    KivStatus.of(Native.create(made)).check();
    handle = made[0];
    KivStatus.of(Native.setDelegate(handle, this)).check();
  }

  public void setDelegate(KivFaceLivenessLiteDelegate delegate) {
    this.delegate = new WeakReference<>(delegate);
  }

  public KivFaceLivenessLiteDelegate delegate() {
    return delegate.get();
  }

  /** customLocalization, localizationBundleDirectory and uiCustomizationJson may be null. */
  public void setup(String mobileToken, String personId, String customLocalization,
      String localizationBundleDirectory, String uiCustomizationJson, KivEnvironment environment,
      boolean loading) {
    KivStatus.of(Native.setup(live(), Text.bytes(mobileToken), Text.bytes(personId),
        Text.bytes(customLocalization), Text.bytes(localizationBundleDirectory),
        Text.bytes(uiCustomizationJson), environment.rawValue(), loading)).check();
  }

  public void prewarm() {
    KivStatus.of(Native.prewarm(live())).check();
  }

  public void startSDK() {
    KivStatus.of(Native.start(live())).check();
  }

  @Override
  public void close() {
    if (handle == 0) return;
    KivStatus.of(Native.destroy(handle)).check();
    handle = 0;
  }

  private long live() {
    if (handle == 0) throw new KivException(KivStatus.NULL_ARGUMENT);
    return handle;
  }

  // Called from native code, on the main thread.
  private void onSuccess(byte[] signedResponse) {
    var d = delegate.get();
    if (d != null) d.didFinishWithSuccess(new KivFaceLivenessLiteResult(Text.string(signedResponse)));
  }

  private void onFailure(byte[] type, byte[] description, byte[] signedResponse) {
    var d = delegate.get();
    if (d != null) {
      d.didFinishWithFailure(KivFailureType.fromRawValue(Text.string(type)), Text.string(description),
          Text.string(signedResponse));
    }
  }

  private void onError(byte[] type, byte[] description) {
    var d = delegate.get();
    if (d != null) d.didFinishWithError(KivErrorType.fromRawValue(Text.string(type)), Text.string(description));
  }

  private void onCancelled() {
    var d = delegate.get();
    if (d != null) d.cancelled();
  }

  private void onLoading(boolean on) {
    var d = delegate.get();
    if (d == null) return;
    if (on) {
      d.loading();
    } else {
      d.loaded();
    }
  }
}
