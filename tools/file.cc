#include "file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <memory>

#include "error.h"
#include "text.h"

namespace zorstat {

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
  struct Close {
    void operator()(const int *fd) const { close(*fd); }
  };
  const int fd = OpenForReading(path);
  const std::unique_ptr<const int, Close> closer(&fd);
  size_t length = 0;
  for (size_t got = kPiece; got > 0; length += got) {
    text->resize(length + kPiece);
    got = ReadSome(fd, path, text->data() + length, kPiece);
  }
  text->resize(length);
}

bool IsSameFile(const std::string &path, int fd) {
  struct stat named;
  struct stat opened;
  return stat(path.c_str(), &named) == 0 && fstat(fd, &opened) == 0 && S_ISREG(named.st_mode) &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

Output::Output(const std::string &path) : name_(path == "-" ? "standard output" : path), target_(path) {
  if (path == "-") {
    fd_ = STDOUT_FILENO;
    return;
  }
  struct stat old;
  const bool exists = stat(path.c_str(), &old) == 0;
  if (exists && !S_ISREG(old.st_mode)) {
    fd_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);  // a device or a pipe
    if (fd_ < 0) Fail("open");
    return;
  }
  if (exists) {
    if (access(path.c_str(), W_OK) != 0) Fail("open");
    target_ = std::filesystem::canonical(path);  // a link stays
  }
  beside_ = fmt::format("{}.{}.part", target_, getpid());
  fd_ = open(beside_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666);
  if (fd_ < 0) Fail("create a file beside it");
  if (exists) fchmod(fd_, old.st_mode);
}

Output::~Output() {
  if (fd_ >= 0 && fd_ != STDOUT_FILENO) close(fd_);
  if (!beside_.empty()) unlink(beside_.c_str());
}

void Output::Fail(const char *action) const {
  const int error = errno;
  throw OutputError(fmt::format("{}: cannot {}: {}", name_, action, ErrnoText(error)), error == EPIPE);
}

void Output::Write(std::string_view lines) {
  size_t done = 0;
  while (done < lines.size()) {
    const ssize_t written = write(fd_, lines.data() + done, lines.size() - done);
    if (written >= 0) {
      done += static_cast<size_t>(written);
    } else if (errno != EINTR) {
      const int error = errno;
      TakeBack(done);
      errno = error;
      Fail("write");
    }
  }
}

// Only where the bytes are the last ones of the file: others may write to standard output as well.
void Output::TakeBack(size_t bytes) const {
  struct stat status;
  const off_t end = lseek(fd_, 0, SEEK_CUR);
  if (bytes == 0 || end < 0 || fstat(fd_, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size != end)
    return;
  const off_t start = end - static_cast<off_t>(bytes);
  if (ftruncate(fd_, start) == 0) lseek(fd_, start, SEEK_SET);
}

void Output::Publish() {
  if (beside_.empty()) return;
  // Some file systems find out only now that there is no space; what takes the old file's place is to be there.
  if (fsync(fd_) != 0 && errno != EINVAL) Fail("write");
  if (rename(beside_.c_str(), target_.c_str()) != 0) Fail("rename what was written beside it");
  beside_.clear();
}

void Output::Close() {
  Publish();
  const int fd = fd_;
  fd_ = -1;
  if (close(fd) != 0) Fail("close");
}

}  // namespace zorstat
