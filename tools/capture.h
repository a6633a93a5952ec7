// Catches what others write to standard output.
#ifndef ZORSTAT_CAPTURE_H_
#define ZORSTAT_CAPTURE_H_

#include <string>

namespace zorstat {

// While it lives, what is printed goes to a file in memory. Throws Error where that cannot be arranged.
class StdoutCapture {
 public:
  StdoutCapture();
  ~StdoutCapture();
  StdoutCapture(const StdoutCapture &) = delete;
  StdoutCapture &operator=(const StdoutCapture &) = delete;

  // What was printed since the last call.
  std::string Take() const;

 private:
  int file_;
  int saved_stdout_ = -1;
};

}  // namespace zorstat

#endif  // ZORSTAT_CAPTURE_H_
