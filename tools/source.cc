#include "source.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <utility>

#include "error.h"
#include "settings.h"
#include "stop.h"

namespace zorstat {
namespace {

constexpr std::chrono::milliseconds kLongestWait{std::numeric_limits<int>::max()};
constexpr std::chrono::seconds kLate{1};

// 0 for what is no regular file.
std::uint64_t SizeOf(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
}

}  // namespace

FileSource::FileSource(const std::string &path, bool show_progress)
    : reader_(path), size_(SizeOf(fd())), progress_(size_, show_progress) {}

bool FileSource::Next(Poll *poll) {
  const bool is_first = !any_poll_;
  ReadAhead();
  if (!has_ahead_) {
    progress_.Clear();
    failure_.Rethrow();
    if (is_first) throw Error(fmt::format("{}: has no rows", reader_.lines().name()));
    if (reader_.lines().last_line_is_open()) {
      Complain(fmt::format("{}:{}: the last line has no end; the file may have been cut", reader_.lines().name(),
                           reader_.lines().line_number()));
    }
    return false;
  }
  std::swap(*poll, ahead_);
  any_poll_ = true;
  is_read_ahead_ = false;
  progress_.Update(reader_.lines().bytes_read());
  return true;
}

void FileSource::ReadAhead() {
  if (is_read_ahead_) return;
  is_read_ahead_ = true;
  has_ahead_ = false;
  failure_.Try([&] {
    if (IsStopped()) {
      throw Error(fmt::format("{}:{}: interrupted", reader_.lines().name(), reader_.lines().line_number()));
    }
    has_ahead_ = reader_.Next(&ahead_);
  });
}

bool FileSource::IsLast() {
  ReadAhead();
  return !has_ahead_;
}

uint32_t FileSource::Interval(const Poll &poll) {
  ReadAhead();
  const int64_t seconds = has_ahead_ ? ahead_.time - poll.time : 0;
  return static_cast<uint32_t>(
      std::clamp<int64_t>(seconds, kShortestInterval, std::numeric_limits<uint32_t>::max()));
}

std::string FileSource::Place(const Poll &poll) const {
  return fmt::format("{}:{}: poll of {}", reader_.lines().name(), poll.first_line, poll.time);
}

LiveSource::LiveSource(std::unique_ptr<PolledTable> polled, uint32_t interval, std::optional<uint32_t> polls)
    : polled_(std::move(polled)), interval_(interval), polls_(polls) {}

bool LiveSource::Next(Poll *poll) {
  while (!IsLast() && WaitForTurn()) {
    if (!TakePoll(poll)) continue;
    any_row_ = any_row_ || poll->rows() != 0;
    return true;
  }
  if (taken_ != 0 && !any_row_) Complain(fmt::format("{}: had no rows", polled_->name()));
  return false;
}

bool LiveSource::Wait(std::chrono::milliseconds longest) {
  using std::chrono::milliseconds;
  const milliseconds left = UntilNext();
  if (IsLast() || left == milliseconds(0)) return true;
  WaitForRequest(static_cast<int>(std::min({left, longest, kLongestWait}).count()));
  return IsStopped() || UntilNext() == milliseconds(0);
}

std::chrono::milliseconds LiveSource::UntilNext() const {
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now()), {});
}

// False when a signal asks to stop.
bool LiveSource::WaitForTurn() {
  if (taken_ == 0) next_ = Clock::now();
  return WaitUntil(next_);
}

// False for a poll that is left out.
bool LiveSource::TakePoll(Poll *poll) {
  const Clock::time_point start = Clock::now();
  poll->time = time(nullptr);
  const bool is_taken = polled_->Read(poll);
  // Polls that were missed while the process stood still are not made up for: the next one is an interval away.
  if (start - next_ > kLate) next_ = start;
  next_ += interval_;
  ++taken_;
  return is_taken;
}

// False when a signal asks to stop.
bool LiveSource::WaitUntil(Clock::time_point when) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now());
    const auto wait = std::clamp(left, std::chrono::milliseconds(0), kLongestWait);
    if (!WaitUnlessStopped(-1, static_cast<int>(wait.count()))) return false;
    if (left <= kLongestWait) return true;
  }
}

std::string LiveSource::Place(const Poll &poll) const { return fmt::format("poll of {}", poll.time); }

}  // namespace zorstat
