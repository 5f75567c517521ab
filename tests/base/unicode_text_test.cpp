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
TEST(LossyUtf8Test, DecodesWithReplacement) {
  const std::string r = "\xEF\xBF\xBD", wellFormed("a\0\xC3\xA9\xF0\x9F\x98\x80", 8);
  EXPECT_EQ(unicode::decodeUtf8Lossy(asBytes(wellFormed)), wellFormed);
  // Truncated sequences and stray continuation bytes: the example Unicode gives.
  EXPECT_EQ(unicode::decodeUtf8Lossy(asBytes("\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64")),
            "a" + r + r + r + "b" + r + "c" + r + r + "d");
  // A lead byte whose second byte is out of its range starts no sequence.
  EXPECT_EQ(unicode::decodeUtf8Lossy(asBytes("\xED\xA0\x80")), r + r + r);
}

// The validator reads 16 to 64 bytes at a time (NEON on Arm, SSE or AVX2 on
// x86) and carries an unfinished sequence into the next block: a bad sequence
// is found and a good one passes at every place in and across the first
// blocks and at the very end, and the text repaired around a bad one is valid.
TEST(Utf8Validation, HoldsAtEveryOffsetInAndAcrossVectorBlocks) {
  // overlong, surrogate, above U+10FFFF, truncated, stray continuation, never valid
  const std::string bad[] = {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82", "\x80", "\xFF"};
  const std::string good[] = {"\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};
  for (std::size_t offset = 0; offset < 130; ++offset) {
    for (std::size_t tail : {0, 70}) {
      const auto at = [&](const std::string& sequence) {
        return std::string(offset, 'a') + sequence + std::string(tail, 'z');
      };
      for (const auto& sequence : good) EXPECT_TRUE(unicode::isValidUtf8(at(sequence))) << offset << "+" << tail;
      for (const auto& sequence : bad) {
        EXPECT_FALSE(unicode::isValidUtf8(at(sequence))) << offset << "+" << tail;
        const auto repaired = unicode::repairedUtf8(at(sequence));
        EXPECT_TRUE(repaired && unicode::isValidUtf8(*repaired)) << offset << "+" << tail;
      }
    }
  }
}

}  // namespace
}  // namespace kiv
