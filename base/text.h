// Numbers as text: one way to write a value and one to write a fixed-point value, wherever they appear.
#ifndef ZOR_BASE_TEXT_H_
#define ZOR_BASE_TEXT_H_

#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/value_types.h"

namespace zor {

// The longest number: a sign, 20 digits, a point and three decimals.
inline constexpr std::size_t kNumberSize = 25;

// Both write at most kNumberSize characters, and return the end of the number.
template <std::integral V>
char *WriteNumber(char *text, V value) {
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
  *text++ = '.';
  for (unsigned unit = 100; unit > 0; unit /= 10) *text++ = static_cast<char>('0' + thousandths / unit % 10);
  return text;
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
