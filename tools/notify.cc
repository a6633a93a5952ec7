#include "notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "text.h"

namespace zorstat {
namespace {

std::string_view Environment(const char *name) {
  const char *value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody changes it
  return value == nullptr ? "" : value;
}

}  // namespace

void Notify(const std::string &state) {
  const std::string_view path = Environment("NOTIFY_SOCKET");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) return;
  std::copy(path.begin(), path.end(), address.sun_path);
  if (path[0] == '@') address.sun_path[0] = '\0';  // no file
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  sendto(fd, state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&address),
         size);
  close(fd);
}

std::chrono::milliseconds WatchdogPeriod() {
  const auto time = ParseNumber<std::uint64_t>(Environment("WATCHDOG_USEC"));
  const std::string_view process = Environment("WATCHDOG_PID");
  constexpr std::uint64_t kLongest = 86'400'000;
  const bool is_due = time && (process.empty() || process == std::to_string(getpid()));
  return std::chrono::milliseconds(std::clamp<std::uint64_t>(is_due ? *time / 2000 : kLongest, 1, kLongest));
}

}  // namespace zorstat
