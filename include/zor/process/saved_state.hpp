/** @file
 * @brief What a group knows, as bytes in the machine's order: written and read field by field. */
#ifndef ZOR_PROCESS_SAVED_STATE_HPP_
#define ZOR_PROCESS_SAVED_STATE_HPP_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>

namespace zor::process::detail {

class StateWriter {
 public:
  template <class T>
  void transfer(const T &number) {
    static_assert(std::is_arithmetic_v<T>);
    bytes_.append(reinterpret_cast<const char *>(&number), sizeof number);
  }
  void transfer(const std::string &text) {
    transfer(text.size());
    bytes_.append(text);
  }
  /** The bytes so far, to be added to. */
  std::string &bytes() { return bytes_; }

 private:
  std::string bytes_;
};

/** From the first thing on that is missing, all is zero. */
class StateReader {
 public:
  explicit StateReader(std::string_view bytes) : left_(bytes) {}

  template <class T>
  void transfer(T &number) {
    static_assert(std::is_arithmetic_v<T>);
    const std::string_view taken = take(sizeof number);
    number = T{};
    if (is_good_) std::memcpy(&number, taken.data(), sizeof number);
  }
  void transfer(std::string &text) {
    std::size_t size = 0;
    transfer(size);
    text = take(size);
  }
  std::string_view take(std::size_t size) {
    is_good_ = is_good_ && size <= left_.size();
    const std::string_view taken = is_good_ ? left_.substr(0, size) : std::string_view();
    left_.remove_prefix(taken.size());
    return taken;
  }
  /** Whether nothing was missing. */
  bool is_good() const { return is_good_; }
  std::string_view left() const { return left_; }

 private:
  std::string_view left_;
  bool is_good_ = true;
};

}  // namespace zor::process::detail

#endif /* ZOR_PROCESS_SAVED_STATE_HPP_ */
