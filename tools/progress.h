// A progress bar on a terminal, for inputs that take a while.
#ifndef ZORSTAT_PROGRESS_H_
#define ZORSTAT_PROGRESS_H_

#include <chrono>
#include <cstdint>

namespace zorstat {

class Progress {
 public:
  // fd: the input, whose size is the whole. Nothing is shown when it has none, or stderr is no terminal.
  Progress(int fd, bool wanted);
  ~Progress() { Clear(); }
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  void Update(uint64_t bytes_read);
  // Takes the bar off the screen.
  void Clear();

 private:
  using Clock = std::chrono::steady_clock;

  uint64_t size_ = 0;
  Clock::time_point next_update_;
  bool shown_ = false;
};

}  // namespace zorstat

#endif  // ZORSTAT_PROGRESS_H_
