#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "stop.h"

namespace zorstat {
namespace {

using std::chrono::milliseconds;

constexpr uint64_t kLongInput = 1'000'000;
constexpr milliseconds kPatience{500};
constexpr milliseconds kPeriod{100};
constexpr size_t kWidth = 40;

}  // namespace

Progress::Progress(uint64_t size, bool wanted) : next_update_(Clock::now()) {
  if (!wanted || isatty(STDERR_FILENO) != 1) return;
  size_ = size;
  if (size_ < kLongInput) next_update_ += kPatience;
}

void Progress::Update(uint64_t bytes_read) {
  if (size_ == 0) return;
  const Clock::time_point now = Clock::now();
  if (now < next_update_ || !WaitForOutput(STDERR_FILENO)) return;
  next_update_ = now + kPeriod;
  // The file may have grown since.
  const double share = std::min(1.0, static_cast<double>(bytes_read) / static_cast<double>(size_));
  const auto done = static_cast<size_t>(share * static_cast<double>(kWidth));
  char bar[kWidth + 1] = {};
  std::fill_n(bar, done, '#');
  std::fprintf(stderr, "\r[%-*s] %3.0f%%", static_cast<int>(kWidth), bar, share * 100);
  std::fflush(stderr);
  shown_ = true;
}

void Progress::Clear() {
  if (!shown_ || !WaitForOutput(STDERR_FILENO)) return;
  std::fprintf(stderr, "\r%*s\r", static_cast<int>(kWidth + 7), "");
  std::fflush(stderr);
  shown_ = false;
  size_ = 0;
}

}  // namespace zorstat
