// A progress bar on a terminal, for inputs that take a while.
#ifndef ZORSTAT_PROGRESS_H_
#define ZORSTAT_PROGRESS_H_

#include <chrono>
#include <cstdint>

namespace zorstat {

class Progress {
 public:
  // size: bytes of the whole. Nothing is shown when that is 0, or stderr is no terminal.
  Progress(uint64_t size, bool wanted);
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
