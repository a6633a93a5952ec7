// Where polls come from.
#ifndef ZORSTAT_SOURCE_H_
#define ZORSTAT_SOURCE_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "error.h"
#include "poll_file.h"
#include "progress.h"
#include "table.h"

namespace zorstat {

class Source {
 public:
  virtual ~Source() = default;
  virtual const Table &table() const = 0;

  // The next poll; false at the end. Throws Error when it cannot be read.
  virtual bool Next(Poll *poll) = 0;

  // Waits until Next() will not wait, at most so long; false if a request (stop.h) or the time ended that before.
  virtual bool Wait(std::chrono::milliseconds /* longest */) { return true; }

  // Does in advance what the next call has to do. Another thread may, while nothing else is called but Place().
  virtual void ReadAhead() {}

  // Whether the poll that Next() returned is known to be the last one.
  virtual bool IsLast() = 0;

  // Seconds between polls, as far as the poll that Next() returned and what is known of the next one tell.
  virtual uint32_t Interval(const Poll &poll) = 0;

  // Bytes of all polls together; 0 where that cannot be known.
  virtual std::uint64_t size() const { return 0; }

  // For messages: where the poll came from.
  virtual std::string Place(const Poll &poll) const = 0;

  // Changes whenever the counters begin anew all together; empty where that cannot be known.
  virtual std::string Boot() const { return ""; }
};

// A poll file, read one poll ahead.
class FileSource : public Source {
 public:
  FileSource(const std::string &path, bool show_progress);

  const Table &table() const override { return reader_.table(); }
  bool Next(Poll *poll) override;
  void ReadAhead() override;
  bool IsLast() override;
  uint32_t Interval(const Poll &poll) override;
  std::uint64_t size() const override { return size_; }
  std::string Place(const Poll &poll) const override;

  int fd() const { return reader_.lines().fd(); }

 private:
  PollFileReader reader_;
  std::uint64_t size_;  // when it was opened
  Progress progress_;
  Poll ahead_;
  bool any_poll_ = false;
  bool is_read_ahead_ = false;
  bool has_ahead_ = false;
  FirstFailure failure_;  // met while reading ahead; thrown where the poll would have come
};

// A table that is polled at an interval until there are enough polls or a signal asks to stop.
class LiveSource : public Source {
 public:
  LiveSource(std::unique_ptr<PolledTable> polled, uint32_t interval, std::optional<uint32_t> polls);

  const Table &table() const override { return polled_->table(); }
  bool Next(Poll *poll) override;
  bool Wait(std::chrono::milliseconds longest) override;
  bool IsLast() override { return polls_ && taken_ == *polls_; }
  uint32_t Interval(const Poll &) override { return static_cast<uint32_t>(interval_.count()); }
  std::string Place(const Poll &poll) const override;
  std::string Boot() const override { return polled_->Boot(); }

  // Until Next() takes a poll without waiting.
  std::chrono::milliseconds UntilNext() const;

 private:
  using Clock = std::chrono::steady_clock;

  bool WaitForTurn();
  bool TakePoll(Poll *poll);
  static bool WaitUntil(Clock::time_point when);

  std::unique_ptr<PolledTable> polled_;
  std::chrono::seconds interval_;
  std::optional<uint32_t> polls_;
  uint32_t taken_ = 0;  // or left out
  Clock::time_point next_;
  bool any_row_ = false;
};

}  // namespace zorstat

#endif  // ZORSTAT_SOURCE_H_
