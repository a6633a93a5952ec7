// What goes wrong: the errors that end the program, and how they are told.
#ifndef ZORSTAT_ERROR_H_
#define ZORSTAT_ERROR_H_

#include <fmt/format.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

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

// Nothing went wrong, but what was counted is not as it should be: a line for each thing.
class Verdict : public Error {
 public:
  explicit Verdict(std::vector<std::string> lines) : Error("not as it should be"), lines_(std::move(lines)) {}
  const std::vector<std::string> &lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
};

// What was to be written could not be.
class OutputError : public Error {
 public:
  OutputError(const std::string &message, bool broken_pipe) : Error(message), broken_pipe_(broken_pipe) {}
  bool broken_pipe() const { return broken_pipe_; }

 private:
  bool broken_pipe_;
};

// Keeps the first failure for later, so that the steps after it are still taken. What cannot be written ends the
// run at once.
class FirstFailure {
 public:
  template <typename Step>
  void Try(Step step) {
    try {
      step();
    } catch (const OutputError &) {
      throw;
    } catch (const std::exception &) {  // no memory, too
      if (!failure_) failure_ = std::current_exception();
    }
  }
  void Rethrow() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  std::exception_ptr failure_;
};

inline std::string Refusal(std::string_view where, std::string_view value, std::string_view expected) {
  return fmt::format("{}: '{}': expected {}", where, value, expected);
}

// Writes one line to standard error, whatever the message holds. Needs no memory, and says nothing when standard
// error is gone.
void Complain(std::string_view message) noexcept;

}  // namespace zorstat

#endif  // ZORSTAT_ERROR_H_
