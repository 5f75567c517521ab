// Text written into a caller's buffer without allocating, for code that runs
// in a signal handler. Appends past the end are dropped and remembered.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace kiv {

class FixedText {
 public:
  explicit FixedText(std::span<char> buffer) noexcept : buffer_(buffer) {}

  FixedText& append(std::string_view text) noexcept {
    for (char c : text) push(c);
    return *this;
  }

  FixedText& appendDecimal(std::int64_t value) noexcept {
    // Through the unsigned magnitude so that the minimum value has one.
    std::uint64_t magnitude = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    if (value < 0) push('-');
    return appendUnsigned(magnitude, 10, 1);
  }

  // `value` in decimal, left-padded with zeros to `width` digits.
  FixedText& appendPadded(std::uint64_t value, int width) noexcept { return appendUnsigned(value, 10, width); }

  // "0x" and lower-case hexadecimal digits.
  FixedText& appendHex(std::uintptr_t value) noexcept {
    append("0x");
    return appendUnsigned(value, 16, 1);
  }

  std::string_view view() const noexcept { return {buffer_.data(), size_}; }
  std::size_t size() const noexcept { return size_; }
  bool truncated() const noexcept { return truncated_; }

 private:
  void push(char c) noexcept {
    if (size_ < buffer_.size()) {
      buffer_[size_++] = c;
    } else {
      truncated_ = true;
    }
  }

  FixedText& appendUnsigned(std::uint64_t value, unsigned base, int width) noexcept {
    char digits[32];
    int count = 0;
    do {
      digits[count++] = "0123456789abcdef"[value % base];
      value /= base;
    } while (value != 0 && count < 32);
    for (int pad = count; pad < width && pad < 32; ++pad) push('0');
    while (count > 0) push(digits[--count]);
    return *this;
  }

  std::span<char> buffer_;
  std::size_t size_ = 0;
  bool truncated_ = false;
};

}  // namespace kiv
