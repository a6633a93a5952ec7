// In the place of the view, where ncurses is not to be had.
#include "error.h"
#include "top/top.h"

namespace zorstat {

void Top(const std::string &, const Settings &) {
  throw SettingsError("top: this zorstat is built without ncurses (CMake option ZOR_TOP)");
}

}  // namespace zorstat
