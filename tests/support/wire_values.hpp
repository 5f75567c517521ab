// Helpers for tests that pin an enumeration's wire values in order:
//   EXPECT_EQ(rawValues<KivAnalyticsStage>(), words("prod beta dev"));
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "kiv/raw_value.hpp"

namespace kiv::testing {

// The raw values of every case, in declaration order.
template <typename E>
std::vector<std::string> rawValues() {
  std::vector<std::string> out;
  for (auto item : allCases<E>()) out.emplace_back(rawValue(item));
  return out;
}

// The words of a space-separated list.
inline std::vector<std::string> words(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string word; in >> word;) out.push_back(word);
  return out;
}

}  // namespace kiv::testing
