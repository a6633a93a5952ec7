#include "capture.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>

#include "error.h"
#include "text.h"

namespace zorstat {

StdoutCapture::StdoutCapture() : file_(std::tmpfile()) {
  std::fflush(stdout);
  if (file_ != nullptr) saved_stdout_ = dup(STDOUT_FILENO);
  if (saved_stdout_ < 0 || dup2(fileno(file_), STDOUT_FILENO) < 0) {
    const int error = errno;
    if (saved_stdout_ >= 0) close(saved_stdout_);
    if (file_ != nullptr) std::fclose(file_);
    throw Error(fmt::format("cannot take over standard output for the report: {}", ErrnoText(error)));
  }
}

StdoutCapture::~StdoutCapture() {
  std::fflush(stdout);
  dup2(saved_stdout_, STDOUT_FILENO);
  close(saved_stdout_);
  std::fclose(file_);
}

std::string StdoutCapture::Take() {
  const int fd = fileno(file_);
  const bool flushed = std::fflush(stdout) == 0;
  const off_t size = lseek(fd, 0, SEEK_CUR);
  std::string text(size > 0 ? static_cast<size_t>(size) : 0, '\0');
  if (!flushed || size < 0 || pread(fd, text.data(), text.size(), 0) != size || lseek(fd, 0, SEEK_SET) != 0) {
    throw Error(fmt::format("cannot read back the report: {}", ErrnoText(errno)));
  }
  return text;
}

}  // namespace zorstat
