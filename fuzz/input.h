// What the fuzz targets share: numbers taken from the bytes of an input, and the check that ends a run.
#ifndef ZOR_FUZZ_INPUT_H_
#define ZOR_FUZZ_INPUT_H_

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>
#include <type_traits>

#define ZOR_REQUIRE(condition) ::zor_fuzz::Require(static_cast<bool>(condition), __FILE__, __LINE__, #condition)

namespace zor_fuzz {

inline void Require(bool holds, const char *file, int line, const char *condition) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

// The bytes of an input; zeros follow them.
class Input {
 public:
  Input(const std::uint8_t *data, std::size_t size) : data_(data), size_(size) {}

  bool empty() const { return size_ == 0; }

  template <class T>
  T Take() {
    T value = 0;
    const std::size_t taken = std::min(size_, sizeof value);
    if (taken != 0) std::memcpy(&value, data_, taken);
    data_ += taken;
    size_ -= taken;
    return value;
  }

  // 0 to n - 1, for n up to 256.
  std::uint32_t Below(std::uint32_t n) { return Take<std::uint8_t>() % n; }
  bool OneIn(std::uint32_t n) { return Below(n) == n - 1; }

  // Any value of the type, its ends and the neighbourhood of zero more often than others.
  template <class V>
  V Value() {
    using U = std::make_unsigned_t<V>;
    const auto near = [&](V value, bool above) {
      const U distance = Take<std::uint8_t>();
      return static_cast<V>(above ? static_cast<U>(value) + distance : static_cast<U>(value) - distance);
    };
    const std::uint32_t pick = Below(8);
    if (pick == 1) return static_cast<V>(Take<std::uint16_t>());
    if (pick == 2) return Take<V>();
    if (pick == 3) return near(std::numeric_limits<V>::max(), false);
    if (pick == 4) return near(std::numeric_limits<V>::min(), true);
    if (pick == 5) return static_cast<V>(U{1} << Below(sizeof(V) * 8));
    return near(0, pick != 0);
  }

 private:
  const std::uint8_t *data_;
  std::size_t size_;
};

// Sends what the library prints away. libFuzzer's own lines go to standard error.
inline void SilenceStandardOutput() {
  static const bool silenced = std::freopen("/dev/null", "w", stdout) != nullptr;
  ZOR_REQUIRE(silenced);
}

}  // namespace zor_fuzz

#endif  // ZOR_FUZZ_INPUT_H_
