#include "base/unicode_text.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>

namespace kiv {
namespace {

std::span<const std::uint8_t> asBytes(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// U+FFFD once per maximal ill-formed subpart, as Unicode recommends.
struct LossyCase {
  const char* name;
  std::string bytes;
  std::string text;
  friend void PrintTo(const LossyCase& c, std::ostream* out) { *out << c.name; }
};

class LossyUtf8Test : public ::testing::TestWithParam<LossyCase> {};

TEST_P(LossyUtf8Test, DecodesWithReplacement) {
  const auto& c = GetParam();
  EXPECT_EQ(unicode::decodeUtf8Lossy(asBytes(c.bytes)), c.text);
}

constexpr const char* R = "\xEF\xBF\xBD";

INSTANTIATE_TEST_SUITE_P(Sequences, LossyUtf8Test,
                         ::testing::Values(LossyCase{"wellFormedWithNul", std::string("a\0\xC3\xA9\xF0\x9F\x98\x80", 8),
                                                     std::string("a\0\xC3\xA9\xF0\x9F\x98\x80", 8)},
                                           // Truncated sequences and stray continuation bytes.
                                           LossyCase{"unicodeExample",
                                                     "\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
                                                     std::string("a") + R + R + R + "b" + R + "c" + R + R + "d"},
                                           // A lead byte whose second byte is out of its range starts no sequence.
                                           LossyCase{"surrogate", "\xED\xA0\x80", std::string(R) + R + R}),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace kiv
