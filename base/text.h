// Numbers as text: one way to write a value and one to write a fixed-point value, wherever they appear.
#ifndef ZOR_BASE_TEXT_H_
#define ZOR_BASE_TEXT_H_

#include <charconv>
#include <concepts>
#include <cstdint>
#include <string_view>

#include "base/value_types.h"

namespace zor {

// Holds a sign, 20 digits, a point, three decimals and a NUL.
struct NumberText {
  char chars[27];
  std::uint8_t size;

  std::string_view view() const { return {chars, size}; }
};

// Ends a text that was written up to `end`.
inline void Finish(NumberText &text, char *end) {
  *end = '\0';
  text.size = static_cast<std::uint8_t>(end - text.chars);
}

template <std::integral V>
NumberText ToText(V value) {
  NumberText text;
  Finish(text, std::to_chars(text.chars, text.chars + sizeof text.chars, value).ptr);
  return text;
}

// The decimal value of a fixed-point number in floor form: int_part -11 with 500 thousandths is -10.500.
template <class F>
requires requires(F f) { f.thousandths; }
NumberText ToText(const F &fixed) {
  auto magnitude = static_cast<std::uint64_t>(fixed.int_part);
  unsigned thousandths = fixed.thousandths;
  char *end;
  NumberText text;
  if (fixed.int_part < 0) {
    magnitude = 0 - magnitude;
    if (thousandths > 0) {
      --magnitude;
      thousandths = 1000 - thousandths;
    }
    text.chars[0] = '-';
    end = text.chars + 1;
  } else {
    end = text.chars;
  }
  end = std::to_chars(end, text.chars + sizeof text.chars, magnitude).ptr;
  *end++ = '.';
  for (unsigned unit = 100; unit > 0; unit /= 10) *end++ = static_cast<char>('0' + thousandths / unit % 10);
  Finish(text, end);
  return text;
}

}  // namespace zor

#endif  // ZOR_BASE_TEXT_H_
