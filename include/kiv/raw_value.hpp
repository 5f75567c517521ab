// Raw values of the SDK's enumerations.
//
// Every raw-representable enumeration has the same three operations:
//
//   kiv::rawValue(KivErrorType::cameraPermission)        == "cameraPermission"
//   kiv::fromRawValue<KivErrorType>("cameraPermission")   -> cameraPermission
//   kiv::fromRawValue<KivErrorType>("CameraPermission")   -> std::nullopt
//   kiv::allCases<KivErrorType>()                         -> every case, in declaration order
//
// An enumeration opts in by specialising RawValueTraits with its raw type and
// a table of (case, raw value) in declaration order.
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

namespace kiv {

template <typename E>
struct RawValueTraits;  // specialised per enumeration

template <typename E>
concept RawRepresentable = requires {
  typename RawValueTraits<E>::Raw;
  RawValueTraits<E>::table;
};

template <RawRepresentable E>
using RawValueOf = typename RawValueTraits<E>::Raw;

template <RawRepresentable E>
constexpr RawValueOf<E> rawValue(E value) {
  for (const auto& [item, raw] : RawValueTraits<E>::table) {
    if (item == value) return raw;
  }
  return RawValueTraits<E>::table.front().second;  // unreachable for a valid case
}

// Exact, case-sensitive match; absent for anything else.
template <RawRepresentable E>
constexpr std::optional<E> fromRawValue(const RawValueOf<E>& raw) {
  for (const auto& [item, value] : RawValueTraits<E>::table) {
    if (value == raw) return item;
  }
  return std::nullopt;
}

template <RawRepresentable E>
constexpr auto allCases() {
  constexpr auto& table = RawValueTraits<E>::table;
  std::array<E, table.size()> cases{};
  for (std::size_t i = 0; i < table.size(); ++i) cases[i] = table[i].first;
  return cases;
}

}  // namespace kiv

#pragma GCC visibility pop
