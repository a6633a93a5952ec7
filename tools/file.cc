#include "file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <system_error>
#include <utility>

#include "error.h"
#include "stop.h"
#include "text.h"

namespace zorstat {

namespace {

constexpr int kAlways = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr int kReaderWait = 50;  // ms

// A file that is not complete has the name of its target, this and six random characters.
constexpr std::string_view kMark = ".zorstat-";
constexpr std::string_view kRandom = "XXXXXX";

bool Lock(int fd) { return flock(fd, LOCK_EX | LOCK_NB) == 0; }

// Nobody is known to write it, and it is this user's and has no other name.
void RemoveUnlessLocked(const std::string &path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | kAlways);
  if (fd < 0) return;
  struct stat status;
  const bool is_ours = fstat(fd, &status) == 0 && status.st_uid == geteuid() && status.st_nlink == 1;
  if (is_ours && Lock(fd) && IsSameFile(path, fd)) unlink(path.c_str());
  close(fd);
}

// What killed runs have left beside the target.
void RemoveLeftOvers(const std::filesystem::path &target) {
  const std::string start = target.filename().string().append(kMark);
  const std::filesystem::path directory = target.has_parent_path() ? target.parent_path() : ".";
  std::error_code error;
  for (std::filesystem::directory_iterator file(directory, error), end; file != end; file.increment(error)) {
    const std::string name = file->path().filename();
    if (name.starts_with(start) && name.size() == start.size() + kRandom.size()) RemoveUnlessLocked(file->path());
  }
}

[[noreturn]] void FailToRead(const std::string &name, const char *action) {
  const int error = errno;
  const std::string message = fmt::format("{}: cannot {}: {}", name, action, ErrnoText(error));
  for (const int absent : {ENOENT, ESRCH, EACCES, EPERM}) {
    if (error == absent) throw AbsentError(message);
  }
  throw Error(message);
}

}  // namespace

int OpenForReading(const std::string &path) {
  const int fd = open(path.c_str(), O_RDONLY | kAlways);
  if (fd < 0) FailToRead(path, "open");
  return fd;
}

size_t ReadSome(int fd, const std::string &name, char *buffer, size_t size) {
  const ssize_t got = WhenReady(WaitForInput, fd, [&] { return read(fd, buffer, size); });
  if (got < 0) FailToRead(name, "read");
  return static_cast<size_t>(got);
}

void ReadFile(const std::string &path, size_t limit, std::string *text) {
  // Files of the proc file system do not tell their size.
  constexpr size_t kPiece = size_t{64} * 1024;
  struct Close {
    void operator()(const int *fd) const { close(*fd); }
  };
  const int fd = OpenForReading(path);
  const std::unique_ptr<const int, Close> closer(&fd);
  size_t length = 0;
  for (size_t got = kPiece; got > 0; length += got) {
    if (length > limit) throw Error(fmt::format("{}: expected at most {} bytes", path, limit));
    text->resize(length + kPiece);
    got = ReadSome(fd, path, text->data() + length, kPiece);
  }
  text->resize(length);
}

bool ReadFileIfThere(const std::string &path, size_t limit, std::string *text) {
  try {
    ReadFile(path, limit, text);
    return true;
  } catch (const AbsentError &) {
    return false;
  }
}

bool IsSameFile(const std::string &path, int fd) {
  struct stat named;
  struct stat opened;
  return stat(path.c_str(), &named) == 0 && fstat(fd, &opened) == 0 && S_ISREG(named.st_mode) &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

bool IsFileOutput(const std::string &path) {
  struct stat status;
  return path != "-" && (stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode));
}

Output::Output(const std::string &path, std::string header, bool append) : Output() {
  name_ = path == "-" ? "standard output" : path;
  path_ = target_ = path;
  header_.swap(header);
  if (append && !IsFileOutput(path)) throw SettingsError(Refusal("--append", name_, "a file as --output"));
  append ? OpenToAppend() : OpenAnew();
  // Only so much is sure not to wait in a pipe that has place. It is shared with other processes if it is standard
  // output, so that it cannot be told not to wait.
  struct stat status;
  const bool is_regular = fstat(fd_, &status) == 0 && S_ISREG(status.st_mode);
  piece_ = is_regular ? std::numeric_limits<ssize_t>::max() : PIPE_BUF;
  is_file_ = is_regular && fd_ != STDOUT_FILENO;
}

void Output::OpenAnew() {
  struct stat status;
  if (path_ == "-") {
    fd_ = STDOUT_FILENO;
  } else if (stat(path_.c_str(), &status) == 0) {
    if (!S_ISREG(status.st_mode)) return OpenDirectly();
    if (access(path_.c_str(), W_OK) != 0) Fail("open");
    target_ = std::filesystem::canonical(path_);
    CreateBeside();
  } else if (errno != ENOENT) {
    Fail("open");
  } else if (lstat(path_.c_str(), &status) == 0) {
    errno = ENOENT;
    Fail("follow the link");
  } else {
    CreateBeside();
  }
}

void Output::OpenToAppend() {
  constexpr int kFlags = O_RDWR | O_APPEND | kAlways;
  do {
    if (fd_ >= 0) close(fd_);
    fd_ = open(path_.c_str(), kFlags);
    // Exclusively: a link that leads nowhere is not followed.
    if (fd_ < 0 && errno == ENOENT) fd_ = open(path_.c_str(), kFlags | O_CREAT | O_EXCL, 0666);
    if (fd_ < 0) Fail("open");
    if (!Lock(fd_) && errno == EWOULDBLOCK) throw OutputError(name_ + ": another run writes to it", false);
  } while (!IsSameFile(path_, fd_));
  CheckLines();
}

void Output::CheckLines() {
  const off_t size = lseek(fd_, 0, SEEK_END);
  const std::string start = Text(0, std::min(size, static_cast<off_t>(header_.size())));
  if (!header_.starts_with(start)) {
    const std::string first = Printable(start.substr(0, start.find('\n')));
    throw OutputError(Refusal(name_ + ":1: header", first, "that of what is to be appended"), false);
  }
  const off_t whole = LineStart(size);
  if (whole == size) return;
  if (ftruncate(fd_, whole) != 0) Fail("cut off its last line");
  Complain(fmt::format("{}: the last line had no end; its {} bytes were cut off", name_, size - whole));
}

std::string Output::Text(off_t start, off_t end) const {
  std::string text(static_cast<size_t>(end - start), 0);
  const ssize_t got = pread(fd_, text.data(), text.size(), start);
  if (got < 0) Fail("read");
  text.resize(static_cast<size_t>(got));
  return text;
}

// Of the line that the byte before `end` belongs to; the end itself if that byte ends a line.
off_t Output::LineStart(off_t end) const {
  constexpr off_t kPiece = 65536;
  while (end > 0) {
    const off_t start = std::max<off_t>(end - kPiece, 0);
    const size_t found = Text(start, end).rfind('\n');
    if (found != std::string::npos) return start + static_cast<off_t>(found) + 1;
    end = start;
  }
  return 0;
}

std::string Output::LastLine() const {
  const off_t end = lseek(fd_, 0, SEEK_END) - 1;
  return end < 0 ? "" : Text(LineStart(end), end);
}

void Output::Reopen() {
  if (!is_file_ || !beside_.empty()) return;
  if (IsSameFile(path_, fd_)) return CheckLines();
  Output other(path_, header_, true);
  std::swap(fd_, other.fd_);
}

bool Output::IsEmpty() const {
  struct stat status;
  return is_file_ ? fstat(fd_, &status) == 0 && status.st_size == 0 : !is_begun_;
}

void Output::OpenDirectly() {
  for (;;) {
    fd_ = open(target_.c_str(), O_WRONLY | kAlways);
    if (fd_ >= 0) return;
    struct stat status;
    // Nobody has opened the pipe to read from it.
    if (errno != ENXIO || stat(target_.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) Fail("open");
    if (!WaitUnlessStopped(-1, kReaderWait)) {
      errno = EINTR;
      Fail("open");
    }
  }
}

void Output::CreateBeside() {
  RemoveLeftOvers(target_);
  for (;;) {
    std::string beside = target_;
    beside.append(kMark).append(kRandom);
    fd_ = mkostemp(beside.data(), O_APPEND | O_CLOEXEC);
    if (fd_ < 0) Fail("create a file beside it");
    beside_ = std::move(beside);
    // Before the lock another run may take it for a left-over. Not all file systems know locks.
    if ((Lock(fd_) || errno != EWOULDBLOCK) && IsSameFile(beside_, fd_)) return;
    close(fd_);
    unlink(beside_.c_str());
  }
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
  if (IsEmpty()) Put(header_);
  is_begun_ = true;
  Put(lines);
}

void Output::Put(std::string_view lines) {
  size_t done = 0;
  while (done < lines.size()) {
    const std::string_view piece = lines.substr(done, piece_);
    const ssize_t written = WhenReady(WaitForOutput, fd_, [&] { return write(fd_, piece.data(), piece.size()); });
    if (written < 0) {
      const int error = errno;
      TakeBack(done);
      errno = error;
      Fail("write");
    }
    done += static_cast<size_t>(written);
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

// Of the file whose place is taken, or of a new one.
void Output::TakeRights() const {
  struct stat old;
  mode_t mode = 0666;
  if (lstat(target_.c_str(), &old) == 0 && S_ISREG(old.st_mode)) {
    mode = old.st_mode & 0777;
    constexpr auto kSameOwner = static_cast<uid_t>(-1);
    // Who may not give it away may be able to give it to the group.
    [[maybe_unused]] const bool is_given =
        fchown(fd_, old.st_uid, old.st_gid) == 0 || fchown(fd_, kSameOwner, old.st_gid) == 0;
  } else {
    const mode_t mask = umask(0);
    umask(mask);
    mode &= ~mask;
  }
  fchmod(fd_, mode);
}

void Output::Publish() {
  if (beside_.empty()) return;
  TakeRights();
  Sync();  // what takes the old file's place is to be there
  if (rename(beside_.c_str(), target_.c_str()) != 0) Fail("rename what was written beside it");
  beside_.clear();
}

std::optional<FileMark> Output::Mark() const {
  struct stat status;
  if (!is_file_ || fstat(fd_, &status) != 0) return std::nullopt;
  Sync();
  return FileMark{status.st_dev, status.st_ino, static_cast<std::uint64_t>(status.st_size)};
}

std::uint64_t Output::CutBack(const FileMark &mark) const {
  struct stat status;
  if (!is_file_ || fstat(fd_, &status) != 0) return 0;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (status.st_dev != mark.device || status.st_ino != mark.inode || size <= mark.size) return 0;
  if (ftruncate(fd_, static_cast<off_t>(mark.size)) != 0) Fail("cut");
  return size - mark.size;
}

// Some file systems find out only now that there is no space.
void Output::Sync() const {
  if (WhenReady(WaitForOutput, fd_, [&] { return fsync(fd_); }) != 0 && errno != EINVAL) Fail("write");
}

void Output::Close() {
  Publish();
  const int fd = fd_;
  fd_ = -1;
  if (close(fd) != 0 && errno != EINTR) Fail("close");  // it is closed all the same
}

}  // namespace zorstat
