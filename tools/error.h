// The errors that end the program; main() turns them into one line on stderr and an exit status.
#ifndef ZORSTAT_ERROR_H_
#define ZORSTAT_ERROR_H_

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace zorstat {

class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Options or a settings file that ask for something impossible.
class SettingsError : public Error {
 public:
  using Error::Error;
};

// What was to be written could not be.
class OutputError : public Error {
 public:
  OutputError(const std::string &message, bool broken_pipe) : Error(message), broken_pipe_(broken_pipe) {}
  bool broken_pipe() const { return broken_pipe_; }

 private:
  bool broken_pipe_;
};

inline std::string Refusal(std::string_view where, std::string_view value, std::string_view expected) {
  return fmt::format("{}: '{}': expected {}", where, value, expected);
}

}  // namespace zorstat

#endif  // ZORSTAT_ERROR_H_
