// The values the store_writer program writes, as a pure function of the key
// and the generation, so that a test that killed the writer can tell an old
// value, a new value and anything else apart byte for byte.
//
//   const kiv::Bytes value = kiv::testing::writtenValue(key, generation);
//
// Sizes spread evenly over the powers of two from 1 B to 1 MiB, so small and
// large writes both get interrupted.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::testing {

inline constexpr std::size_t kLargestWrittenValue = std::size_t{1} << 20;
inline constexpr std::string_view kWrittenService = "kiv.reliability";

// splitmix64: one step of a fast, well-mixed sequence.
inline std::uint64_t mixStep(std::uint64_t& state) {
  std::uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

inline std::string writtenAccount(int key) { return "key-" + std::to_string(key); }

inline std::vector<std::uint8_t> writtenValue(int key, std::uint64_t generation) {
  std::uint64_t state = generation * 0x100000001B3ULL ^ static_cast<std::uint64_t>(key) << 56;
  const std::uint64_t shape = mixStep(state);
  const std::size_t power = std::size_t{1} << (shape % 21);
  const std::size_t size = std::min(kLargestWrittenValue, power + (shape >> 8) % power);
  std::vector<std::uint8_t> value(size);
  for (std::size_t at = 0; at < size; at += 8) {
    const std::uint64_t word = mixStep(state);
    for (std::size_t i = 0; i < 8 && at + i < size; ++i) value[at + i] = static_cast<std::uint8_t>(word >> (8 * i));
  }
  return value;
}

}  // namespace kiv::testing
