/** @file
 * @brief Results: a value, or what went wrong in its place. */
#ifndef ZOR_PROCESS_RESULT_HPP_
#define ZOR_PROCESS_RESULT_HPP_

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>
#include <variant>

#include "zor/engine.h"

namespace zor::process {

/** A failure: what was wrong with which record. */
struct Error {
  std::uint32_t code;  /**< ZOR_PROCESS_ERROR_* */
  std::string message; /**< "group 'net', object 'rx': the range is inverted" */
};

/** A value, or the Error in its place. To reach for the one that is not there ends the program with a message. What
 * is taken out of a temporary result is moved out, so that it lives: Poll poll = *group.poll(). */
template <class T>
class Result {
 public:
  /** A success. @param value what it holds */
  Result(T value) : content_(std::move(value)) {}
  /** A failure. @param error what went wrong */
  Result(Error error) : content_(std::move(error)) {}

  /** Whether there is a value. */
  explicit operator bool() const { return std::holds_alternative<T>(content_); }
  /** @return the value */
  T &operator*() & { return *require(std::get_if<T>(&content_)); }
  /** @return the value */
  const T &operator*() const & { return *require(std::get_if<T>(&content_)); }
  /** @return the value */
  T operator*() && { return std::move(**this); }
  T operator*() const && = delete; /**< nothing could be moved out */
  /** @return the value */
  T *operator->() { return require(std::get_if<T>(&content_)); }
  /** @return the value */
  const T *operator->() const { return require(std::get_if<T>(&content_)); }
  /** @return the failure */
  const Error &error() const & { return *require(std::get_if<Error>(&content_)); }
  /** @return the failure */
  Error error() && { return std::move(*require(std::get_if<Error>(&content_))); }

 private:
  template <class Content>
  Content *require(Content *content) const {
    if (content) return content;
    const auto *failure = std::get_if<Error>(&content_);
    std::fprintf(stderr, "zor::process: %s\n", failure ? failure->message.c_str() : "the error of a success");
    std::abort();
  }
  std::variant<T, Error> content_;
};

/** No value. */
struct Done {};
/** A Result without a value. */
using Status = Result<Done>;

namespace detail {

struct Rule {
  bool is_broken;
  const char *message;
  std::uint32_t code = ZOR_PROCESS_ERROR_INVALID_PARAMS;
};

/** The first rule that is broken becomes the error. */
inline Status check(const std::string &place, std::initializer_list<Rule> rules) {
  const Rule *broken = std::find_if(rules.begin(), rules.end(), [](const Rule &rule) { return rule.is_broken; });
  if (broken == rules.end()) return Done{};
  return Error{broken->code, place + ": " + broken->message};
}

/** The code of a call, as a status. */
inline Status check(const std::string &place, std::uint32_t code) {
  return check(place, {{code != ZOR_PROCESS_SUCCESS, zor_proc_get_error_string_list(code), code}});
}

}  // namespace detail
}  // namespace zor::process

#endif /* ZOR_PROCESS_RESULT_HPP_ */
