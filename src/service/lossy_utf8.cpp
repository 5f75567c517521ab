#include "service/lossy_utf8.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <array>

namespace kiv {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

bool decodesWhole(const std::uint8_t* data, std::size_t size) {
  utf8proc_int32_t scalar = 0;
  return utf8proc_iterate(data, static_cast<utf8proc_ssize_t>(size), &scalar) == static_cast<utf8proc_ssize_t>(size);
}

// Whether `prefix` can begin a well-formed sequence: some completion of it
// with continuation bytes decodes. The lowest and highest continuation bytes
// suffice as fillers, since every lead byte's allowed second bytes form one
// range that touches one of the two ends (E0: A0-BF, ED: 80-9F, F0: 90-BF,
// F4: 80-8F). utf8proc judges; this only asks.
bool beginsSequence(std::span<const std::uint8_t> prefix) {
  std::array<std::uint8_t, 4> probe{};
  std::copy(prefix.begin(), prefix.end(), probe.begin());
  for (std::uint8_t filler : {std::uint8_t{0x80}, std::uint8_t{0xBF}}) {
    for (std::size_t total = prefix.size() + 1; total <= probe.size(); ++total) {
      std::fill(probe.begin() + static_cast<std::ptrdiff_t>(prefix.size()), probe.end(), filler);
      if (decodesWhole(probe.data(), total)) return true;
    }
  }
  return false;
}

// Length of the maximal subpart at the start of `rest`, which does not
// begin with a well-formed sequence: its longest prefix that could still
// begin one, and at least one byte.
std::size_t maximalSubpart(std::span<const std::uint8_t> rest) {
  for (std::size_t length = std::min<std::size_t>(3, rest.size()); length > 1; --length) {
    if (beginsSequence(rest.first(length))) return length;
  }
  return 1;
}

}  // namespace

std::string decodeUtf8Lossy(std::span<const std::uint8_t> bytes) {
  std::string text;
  text.reserve(bytes.size());
  std::size_t at = 0;
  while (at < bytes.size()) {
    const auto rest = bytes.subspan(at);
    utf8proc_int32_t scalar = 0;
    const auto length = utf8proc_iterate(rest.data(), static_cast<utf8proc_ssize_t>(rest.size()), &scalar);
    if (length > 0) {
      text.append(reinterpret_cast<const char*>(rest.data()), static_cast<std::size_t>(length));
      at += static_cast<std::size_t>(length);
    } else {
      text += kReplacementCharacter;
      at += maximalSubpart(rest);
    }
  }
  return text;
}

}  // namespace kiv
