package kiv;

import java.nio.charset.StandardCharsets;

/**
 * Texts cross JNI as UTF-8 bytes converted here, never through JNI's own
 * string calls: those speak modified UTF-8, which writes a character outside
 * the BMP as two surrogates that the SDK refuses as malformed.
 */
final class Text {
  private Text() {}

  static byte[] bytes(String text) {
    return text == null ? null : text.getBytes(StandardCharsets.UTF_8);
  }

  static String string(byte[] bytes) {
    return bytes == null ? null : new String(bytes, StandardCharsets.UTF_8);
  }
}
