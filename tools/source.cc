#include "source.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <limits>
#include <utility>

#include "error.h"
#include "file.h"
#include "settings.h"
#include "stop.h"

namespace zorstat {
namespace {

constexpr std::chrono::milliseconds kLongestWait{std::numeric_limits<int>::max()};
constexpr std::chrono::seconds kLate{1};
constexpr size_t kLargestBootId = 100;

}  // namespace

FileSource::FileSource(const std::string &path, bool show_progress)
    : reader_(path), progress_(reader_.lines().fd(), show_progress) {}

bool FileSource::Next(Poll *poll) {
  if (!started_) {
    started_ = true;
    has_ahead_ = reader_.Next(&ahead_);
    if (!has_ahead_) throw Error(fmt::format("{}: has no rows", reader_.lines().name()));
  }
  if (!has_ahead_) {
    progress_.Clear();
    failure_.Rethrow();
    if (reader_.lines().last_line_is_open()) {
      Complain(fmt::format("{}:{}: the last line has no end; the file may have been cut", reader_.lines().name(),
                           reader_.lines().line_number()));
    }
    return false;
  }
  std::swap(*poll, ahead_);
  progress_.Update(reader_.lines().bytes_read());
  has_ahead_ = false;
  failure_.Try([&] {
    if (IsStopped()) {
      throw Error(fmt::format("{}:{}: interrupted", reader_.lines().name(), reader_.lines().line_number()));
    }
    has_ahead_ = reader_.Next(&ahead_);
  });
  return true;
}

uint32_t FileSource::Interval(const Poll &poll) const {
  const int64_t seconds = has_ahead_ ? ahead_.time - poll.time : 0;
  return static_cast<uint32_t>(
      std::clamp<int64_t>(seconds, kShortestInterval, std::numeric_limits<uint32_t>::max()));
}

std::string FileSource::Place(const Poll &poll) const {
  return fmt::format("{}:{}: poll of {}", reader_.lines().name(), poll.first_line, poll.time);
}

LiveSource::LiveSource(std::string_view kind, const std::string &proc_root, uint32_t interval,
                       std::optional<uint32_t> polls)
    : proc_root_(proc_root), counters_(kind, proc_root), interval_(interval), polls_(polls) {}

bool LiveSource::Next(Poll *poll) {
  if (IsLast() || !TakePoll(poll)) {
    if (taken_ != 0 && !any_row_) Complain(fmt::format("{}: had no rows", counters_.path()));
    return false;
  }
  any_row_ = any_row_ || poll->rows() != 0;
  return true;
}

bool LiveSource::Wait(std::chrono::milliseconds longest) {
  const auto left = UntilNext();
  if (IsLast() || left <= left.zero()) return true;
  WaitForRequest(static_cast<int>(std::min({left, longest, kLongestWait}).count()));
  return IsStopped() || UntilNext() <= left.zero();
}

std::chrono::milliseconds LiveSource::UntilNext() const {
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(next_ - Clock::now()), {});
}

// False when a signal asks to stop.
bool LiveSource::TakePoll(Poll *poll) {
  if (taken_ == 0) next_ = Clock::now();
  if (!WaitUntil(next_)) return false;
  const Clock::time_point start = Clock::now();
  poll->time = time(nullptr);
  counters_.Read(poll);
  // Polls that were missed while the process stood still are not made up for: the next one is an interval away.
  if (start - next_ > kLate) next_ = start;
  next_ += interval_;
  ++taken_;
  return true;
}

// Likewise.
bool LiveSource::WaitUntil(Clock::time_point when) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now());
    const auto wait = std::clamp(left, std::chrono::milliseconds(0), kLongestWait);
    if (!WaitUnlessStopped(-1, static_cast<int>(wait.count()))) return false;
    if (left <= kLongestWait) return true;
  }
}

std::string LiveSource::Boot() const {
  std::string id;
  try {
    ReadFile(proc_root_ + "/sys/kernel/random/boot_id", kLargestBootId, &id);
  } catch (const Error &) {
    return "";
  }
  return id;
}

std::string LiveSource::Place(const Poll &poll) const { return fmt::format("poll of {}", poll.time); }

}  // namespace zorstat
