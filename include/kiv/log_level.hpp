// How much a diagnostic matters to the host.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <array>
#include <string_view>
#include <utility>

#include "kiv/raw_value.hpp"

namespace kiv {

// Raw values equal the case names; any other text builds no level.
enum class KivLogLevel { debug, usage, info };

template <>
struct RawValueTraits<KivLogLevel> {
  using Raw = std::string_view;
  static constexpr std::array<std::pair<KivLogLevel, std::string_view>, 3> table{{
      {KivLogLevel::debug, "debug"},
      {KivLogLevel::usage, "usage"},
      {KivLogLevel::info, "info"},
  }};
};

}  // namespace kiv

#pragma GCC visibility pop
