// The backend stage a host selects, and the kind of host.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "kiv/raw_value.hpp"

namespace kiv {

enum class KivEnvironment { dev = 0, beta = 1, prod = 2 };

// "dev", "beta" or "prod".
std::string toString(KivEnvironment environment);

template <>
struct RawValueTraits<KivEnvironment> {
  using Raw = int;
  static constexpr std::array<std::pair<KivEnvironment, int>, 3> table{{
      {KivEnvironment::dev, 0},
      {KivEnvironment::beta, 1},
      {KivEnvironment::prod, 2},
  }};
};

enum class KivSdkPlatform { nativeIos, reactNativeIos, flutterIos };

template <>
struct RawValueTraits<KivSdkPlatform> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivSdkPlatform, std::string_view>, 3> table{{
      {KivSdkPlatform::nativeIos, "nativeIos"},
      {KivSdkPlatform::reactNativeIos, "reactNativeIos"},
      {KivSdkPlatform::flutterIos, "flutterIos"},
  }};
};

}  // namespace kiv

#pragma GCC visibility pop
