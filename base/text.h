// Numbers as text: one way to write a value and one to write a fixed-point value, wherever they appear.
#ifndef ZOR_BASE_TEXT_H_
#define ZOR_BASE_TEXT_H_

#include <bit>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/value_types.h"

namespace zor {

// The longest number: a sign, 20 digits, a point and three decimals.
inline constexpr std::size_t kNumberSize = 25;

// Writes a number below 10^8 without a branch: eight digits, halved into lanes of a word, of which the leading
// zeros are shifted out. Up to eight characters are written, whatever its length.
inline char *WriteShortNumber(char *text, std::uint32_t value) {
  constexpr std::uint64_t kTwoDigits = 0x0000007f'0000007f;
  constexpr std::uint64_t kOneDigit = 0x000f000f'000f000f;
  const std::uint64_t fours = value / 10000 | std::uint64_t{value % 10000} << 32;
  const std::uint64_t hundreds = fours * 10486 >> 20 & kTwoDigits;
  const std::uint64_t twos = hundreds | (fours - hundreds * 100) << 16;
  const std::uint64_t tens = twos * 103 >> 10 & kOneDigit;
  const std::uint64_t digits = tens | (twos - tens * 10) << 8;
  const int zeros = digits == 0 ? 7 : std::countr_zero(digits) / 8;
  const std::uint64_t characters = (digits | 0x30303030'30303030) >> 8 * zeros;
  std::memcpy(text, &characters, sizeof characters);
  return text + (8 - zeros);
}

// Both write at most kNumberSize characters, and return the end of the number.
template <std::integral V>
char *WriteNumber(char *text, V value) {
  constexpr bool kFirstByteIsLowest = std::endian::native == std::endian::little;
  if (kFirstByteIsLowest && value >= 0 && static_cast<std::uint64_t>(value) < 100'000'000) {
    return WriteShortNumber(text, static_cast<std::uint32_t>(value));
  }
  return std::to_chars(text, text + kNumberSize, value).ptr;
}

// The decimal value of a fixed-point number in floor form: int_part -11 with 500 thousandths is -10.500.
template <class F>
requires requires(F f) { f.thousandths; }
char *WriteNumber(char *text, const F &fixed) {
  auto magnitude = static_cast<std::uint64_t>(fixed.int_part);
  unsigned thousandths = fixed.thousandths;
  if (fixed.int_part < 0) {
    magnitude = 0 - magnitude;
    if (thousandths > 0) {
      --magnitude;
      thousandths = 1000 - thousandths;
    }
    *text++ = '-';
  }
  text = WriteNumber(text, magnitude);
  const unsigned hundredths = thousandths / 10;
  const char decimals[] = {'.', static_cast<char>('0' + hundredths / 10), static_cast<char>('0' + hundredths % 10),
                           static_cast<char>('0' + thousandths % 10)};
  std::memcpy(text, decimals, sizeof decimals);
  return text + sizeof decimals;
}

// A number as a text of its own, ended by NUL.
struct NumberText {
  char chars[kNumberSize + 1];
  std::uint8_t size;

  std::string_view view() const { return {chars, size}; }
};

template <class Number>
NumberText ToText(const Number &number) {
  NumberText text;
  char *end = WriteNumber(text.chars, number);
  *end = '\0';
  text.size = static_cast<std::uint8_t>(end - text.chars);
  return text;
}

}  // namespace zor

#endif  // ZOR_BASE_TEXT_H_
