#include "file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "error.h"
#include "text.h"

namespace zorstat {
namespace {

constexpr size_t kBufferSize = size_t{256} * 1024;

}  // namespace

int OpenForReading(const std::string &path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) throw Error(fmt::format("{}: cannot open: {}", path, ErrnoText(errno)));
  return fd;
}

size_t ReadSome(int fd, const std::string &name, char *buffer, size_t size) {
  for (;;) {
    const ssize_t got = read(fd, buffer, size);
    if (got >= 0) return static_cast<size_t>(got);
    if (errno != EINTR) throw Error(fmt::format("{}: cannot read: {}", name, ErrnoText(errno)));
  }
}

void ReadFile(const std::string &path, std::string *text) {
  // Files of the proc file system do not tell their size.
  constexpr size_t kPiece = size_t{64} * 1024;
  const struct Descriptor {
    ~Descriptor() { close(fd); }
    int fd;
  } file{OpenForReading(path)};
  size_t length = 0;
  for (size_t got = kPiece; got > 0; length += got) {
    text->resize(length + kPiece);
    got = ReadSome(file.fd, path, text->data() + length, kPiece);
  }
  text->resize(length);
}

bool IsSameFile(const std::string &path, int fd) {
  struct stat named;
  struct stat opened;
  return stat(path.c_str(), &named) == 0 && fstat(fd, &opened) == 0 && S_ISREG(named.st_mode) &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

Output::Output(const std::string &path)
    : name_(path == "-" ? "standard output" : path),
      fd_(path == "-" ? STDOUT_FILENO : open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
  if (fd_ < 0) Fail("open");
}

Output::~Output() {
  if (fd_ >= 0 && fd_ != STDOUT_FILENO) close(fd_);
}

void Output::Fail(const char *action) const {
  const int error = errno;
  throw OutputError(fmt::format("{}: cannot {}: {}", name_, action, ErrnoText(error)), error == EPIPE);
}

void Output::Write(std::string_view lines) {
  buffer_.append(lines);
  if (buffer_.size() >= kBufferSize) Flush();
}

void Output::Flush() {
  std::string_view rest = buffer_;
  while (!rest.empty()) {
    const ssize_t written = write(fd_, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<size_t>(written));
    } else if (errno != EINTR) {
      Fail("write");
    }
  }
  buffer_.clear();
}

void Output::Close() {
  Flush();
  const int fd = fd_;
  fd_ = -1;
  if (close(fd) != 0) Fail("close");
}

}  // namespace zorstat
