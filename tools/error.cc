#include "error.h"

#include <unistd.h>

#include <algorithm>

#include "stop.h"
#include "text.h"

namespace zorstat {

void Complain(std::string_view message) noexcept {
  constexpr std::string_view kStart = "zorstat: ";
  char line[4096];
  char *end = std::copy(kStart.begin(), kStart.end(), line);
  message = message.substr(0, sizeof line - kStart.size() - 1);
  end = std::replace_copy_if(message.begin(), message.end(), end, IsControl, '?');
  *end++ = '\n';
  // With no place left to complain to, there is nothing to be done about a failure.
  [[maybe_unused]] const ssize_t written = WhenReady(
      WaitForOutput, STDERR_FILENO, [&] { return write(STDERR_FILENO, line, static_cast<size_t>(end - line)); });
}

}  // namespace zorstat
