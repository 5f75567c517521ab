package kiv;

/** The backend stage an attempt runs against. */
public enum KivEnvironment {
  dev,
  beta,
  prod;

  /** 0, 1 or 2, as the C interface numbers them. */
  public int rawValue() {
    return ordinal();
  }
}
