#include "capture.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "error.h"
#include "text.h"

namespace zorstat {

StdoutCapture::StdoutCapture() : file_(memfd_create("report", MFD_CLOEXEC)) {
  std::fflush(stdout);
  if (file_ >= 0) saved_stdout_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  if (saved_stdout_ < 0 || dup2(file_, STDOUT_FILENO) < 0) {
    const int error = errno;
    if (saved_stdout_ >= 0) close(saved_stdout_);
    if (file_ >= 0) close(file_);
    throw Error(fmt::format("cannot take over standard output for the report: {}", ErrnoText(error)));
  }
}

StdoutCapture::~StdoutCapture() {
  std::fflush(stdout);
  dup2(saved_stdout_, STDOUT_FILENO);
  close(saved_stdout_);
  close(file_);
}

std::string StdoutCapture::Take() const {
  const bool flushed = std::fflush(stdout) == 0;
  const off_t size = lseek(file_, 0, SEEK_CUR);
  std::string text(size > 0 ? static_cast<size_t>(size) : 0, '\0');
  if (!flushed || size < 0 || pread(file_, text.data(), text.size(), 0) != size || lseek(file_, 0, SEEK_SET) != 0) {
    throw Error(fmt::format("cannot read back the report: {}", ErrnoText(errno)));
  }
  return text;
}

}  // namespace zorstat
