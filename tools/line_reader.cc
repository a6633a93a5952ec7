#include "line_reader.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "error.h"
#include "file.h"
#include "stop.h"

namespace zorstat {
namespace {

constexpr size_t kBufferSize = size_t{256} * 1024;
constexpr size_t kLongestLine = size_t{16} * 1024 * 1024;

// Whether a regular file ends before the position that was reached in it.
bool IsBehindEnd(int fd) {
  struct stat status;
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && lseek(fd, 0, SEEK_CUR) > status.st_size;
}

}  // namespace

LineReader::LineReader(const std::string &path)
    : name_(path == "-" ? "standard input" : path),
      fd_(path == "-" ? STDIN_FILENO : OpenForReading(path)),
      buffer_(kBufferSize) {}

LineReader::LineReader(std::string name, std::string_view text)
    : name_(std::move(name)), fd_(-1), buffer_(text.size() + 1), end_(text.size()), at_end_(true) {
  std::copy(text.begin(), text.end(), buffer_.begin());
}

LineReader::~LineReader() {
  if (fd_ > STDIN_FILENO) close(fd_);
}

std::string_view LineReader::Head(size_t size) {
  while (end_ - begin_ < size && Fill()) {
  }
  return {buffer_.data() + begin_, std::min(size, end_ - begin_)};
}

bool LineReader::Next(std::string_view *line) {
  size_t searched = 0;
  for (;;) {
    const char *start = buffer_.data() + begin_;
    const void *found = std::memchr(start + searched, '\n', end_ - begin_ - searched);
    if (found == nullptr) {
      searched = end_ - begin_;
      if (Fill()) continue;
      if (begin_ == end_) return false;
      last_line_is_open_ = true;
    }
    start = buffer_.data() + begin_;
    const char *stop = found != nullptr ? static_cast<const char *>(found) : buffer_.data() + end_;
    begin_ = static_cast<size_t>(stop - buffer_.data()) + (found != nullptr ? 1 : 0);
    if (stop != start && stop[-1] == '\r') --stop;
    *line = {start, static_cast<size_t>(stop - start)};
    ++line_number_;
    return true;
  }
}

// Gets more bytes behind the line that has begun; false at the end of the file.
bool LineReader::Fill() {
  if (at_end_) return false;
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ >= kLongestLine) {
    throw Error(fmt::format("{}:{}: line is longer than {} bytes", name_, line_number_ + 1, kLongestLine));
  }
  if (end_ == buffer_.size()) buffer_.resize(buffer_.size() * 2);
  if (!WaitUnlessStopped(fd_, -1)) throw Error(fmt::format("{}:{}: interrupted", name_, line_number_ + 1));
  const size_t got = ReadSome(fd_, name_, buffer_.data() + end_, buffer_.size() - end_);
  at_end_ = got == 0;
  if (at_end_ && IsBehindEnd(fd_)) {
    throw Error(fmt::format("{}:{}: the file has become shorter while it was read", name_, line_number_ + 1));
  }
  end_ += got;
  bytes_read_ += got;
  return !at_end_;
}

}  // namespace zorstat
