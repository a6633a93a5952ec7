// In the place of the view where it is not built.
#include "error.h"
#include "top/top.h"

namespace zorstat {

void Top(const std::string &, Settings) {
  throw SettingsError("top: is not in this build: the CMake option ZOR_TOP, which needs ncurses, was off");
}

}  // namespace zorstat
