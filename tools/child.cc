#include "child.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "error.h"
#include "text.h"

namespace zorstat {
namespace {

// A file without a name, read from its start. Closed when the child has it.
class Input {
 public:
  explicit Input(std::string_view text) : fd_(memfd_create("zorstat", MFD_CLOEXEC)) {
    while (fd_ >= 0 && !text.empty()) {
      const ssize_t written = write(fd_, text.data(), text.size());
      if (written < 0 && errno == EINTR) continue;
      if (written < 0) Fail();
      text.remove_prefix(static_cast<std::size_t>(written));
    }
    if (fd_ < 0 || lseek(fd_, 0, SEEK_SET) < 0) Fail();
  }
  ~Input() { close(fd_); }
  Input(const Input &) = delete;
  Input &operator=(const Input &) = delete;

  int fd() const { return fd_; }

 private:
  [[noreturn]] void Fail() const {
    const int error = errno;
    if (fd_ >= 0) close(fd_);
    throw Error(fmt::format("cannot write its input: {}", ErrnoText(error)));
  }

  int fd_;
};

}  // namespace

std::string FindProgram(const std::string &name) {
  const char *path = std::getenv("PATH");
  const bool is_path = name.find('/') != std::string::npos;
  for (const std::string &directory : is_path ? std::vector<std::string>{""} : Split(path ? path : "", ':')) {
    std::string file = is_path ? name : fmt::format("{}/{}", directory.empty() ? "." : directory, name);
    std::error_code none;
    if (access(file.c_str(), X_OK) == 0 && std::filesystem::is_regular_file(file, none)) return file;
  }
  return {};
}

// What this process ignores or blocks is its own affair; what it catches is reset anyway.
int Spawn(const std::string &program, const std::vector<std::string> &command, int in, int out, pid_t *id) {
  sigset_t ignored;
  sigset_t none;
  sigemptyset(&none);
  sigemptyset(&ignored);
  for (const int signal : {SIGPIPE, SIGXFSZ}) sigaddset(&ignored, signal);
  posix_spawnattr_t how;
  posix_spawnattr_init(&how);
  posix_spawnattr_setflags(&how, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  posix_spawnattr_setsigdefault(&how, &ignored);
  posix_spawnattr_setsigmask(&how, &none);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  int error = posix_spawn_file_actions_adddup2(&files, in, STDIN_FILENO);
  if (error == 0) error = posix_spawn_file_actions_adddup2(&files, out, STDOUT_FILENO);
  if (error == 0) error = posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);
  std::vector<std::string> copy = command;
  std::vector<char *> words;
  words.reserve(copy.size() + 1);
  for (std::string &word : copy) words.push_back(word.data());
  words.push_back(nullptr);
  if (error == 0) error = posix_spawnp(id, program.c_str(), &files, &how, words.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  posix_spawnattr_destroy(&how);
  return error;
}

Child::Child(const std::string &program, const std::vector<std::string> &command, std::string_view input) {
  const Input file(input);
  const int error = Spawn(program, command, file.fd(), STDERR_FILENO, &id_);
  if (error == 0) return;
  id_ = -1;
  throw Error(fmt::format("cannot start: {}", ErrnoText(error)));
}

Child::~Child() { Kill(); }

bool Child::HasEnded() {
  if (id_ < 0) return true;
  const pid_t ended = waitpid(id_, &status_, WNOHANG);
  if (ended > 0 || (ended < 0 && errno != EINTR)) id_ = -1;  // or it was nobody's to wait for
  return id_ < 0;
}

void Child::Kill() {
  if (id_ < 0) return;
  kill(-id_, SIGKILL);
  while (waitpid(id_, &status_, 0) < 0 && errno == EINTR) {
  }
  id_ = -1;
}

std::string Child::Failure() const {
  if (WIFSIGNALED(status_)) return fmt::format("signal {}", WTERMSIG(status_));
  return WEXITSTATUS(status_) == 0 ? "" : fmt::format("exit status {}", WEXITSTATUS(status_));
}

}  // namespace zorstat
