// The terminal that a view has to itself.
#ifndef ZORSTAT_TOP_SCREEN_H_
#define ZORSTAT_TOP_SCREEN_H_

#include <chrono>
#include <vector>

#include "top/view.h"

struct screen;  // of curses

namespace zorstat::top {

// While there is one, standard input and output are a full-screen terminal, and what is written to standard error
// is held back. Its end, that of the program by any signal that can be caught included, restores both. One at a
// time.
class Screen {
 public:
  Screen();  // throws SettingsError without a terminal
  ~Screen();
  Screen(const Screen &) = delete;
  Screen &operator=(const Screen &) = delete;

  bool utf8() const { return utf8_; }
  static Size size();
  void Show(const std::vector<Line> &lines) const;

  // Waits for a key or a new size, at most so long. False when a signal asked to stop, or the terminal is gone.
  bool Wait(std::chrono::milliseconds longest) const;
  // One that waits, or kNone.
  static Key TakeKey();

 private:
  bool utf8_;
  screen *screen_;
  bool colours_;
  int resized_;  // signalfd of SIGWINCH
  int events_;   // epoll of it and of standard input
};

}  // namespace zorstat::top

#endif  // ZORSTAT_TOP_SCREEN_H_
