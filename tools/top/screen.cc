#include "top/screen.h"

#include <langinfo.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "error.h"
#include "stop.h"
#include "text.h"

// Last, for its macros.
#include <curses.h>

namespace zorstat::top {
namespace {

constexpr int kFatal[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGQUIT, SIGSYS, SIGTRAP, SIGXCPU};

// What a signal handler needs to give the terminal back. Nothing here may allocate when it is used.
struct {
  termios modes;           // as they were
  char leave[256];         // what the terminal takes to leave full-screen mode
  std::size_t leave_size;  //
  int error;               // standard error, or -1 when it is in its place
  int held;                // what was written to it
  std::array<char, 65536> stack;
  std::terminate_handler terminate;
} saved;

// Writes what was held back.
void ReleaseErrors() {
  if (saved.error < 0) return;
  dup2(saved.error, STDERR_FILENO);
  close(saved.error);
  saved.error = -1;
  char part[1024];
  lseek(saved.held, 0, SEEK_SET);
  for (ssize_t size; (size = read(saved.held, part, sizeof part)) > 0;) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, part, static_cast<std::size_t>(size));
  }
  close(saved.held);
}

void HoldErrors() {
  saved.held = memfd_create("errors", MFD_CLOEXEC);
  saved.error = dup(STDERR_FILENO);
  dup2(saved.held, STDERR_FILENO);
}

// Without the library, which may be what fails.
void Leave() {
  if (saved.leave_size == 0) return;
  [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, saved.leave, saved.leave_size);
  saved.leave_size = 0;
  tcsetattr(STDIN_FILENO, TCSANOW, &saved.modes);
  ReleaseErrors();
}

void OnFatal(int number) {
  Leave();
  std::signal(number, SIG_DFL);
  std::raise(number);
}

void CatchFatalSignals() {
  stack_t stack{};
  stack.ss_sp = saved.stack.data();
  stack.ss_size = saved.stack.size();
  sigaltstack(&stack, nullptr);
  struct sigaction action {};
  action.sa_handler = OnFatal;
  action.sa_flags = SA_ONSTACK;
  for (const int number : kFatal) sigaction(number, &action, nullptr);
  saved.terminate = std::set_terminate([] {
    Leave();
    saved.terminate();
  });
}

// Appends what the terminal takes, without its pauses, "$<...>".
void AddCapability(const char *name, std::string *sequence) {
  const char *text = tigetstr(name);
  if (text == nullptr) return;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t pause = rest.find("$<");
    sequence->append(rest.substr(0, pause));
    const std::size_t end = pause == std::string_view::npos ? pause : rest.find('>', pause);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
}

void PrepareLeaving() {
  std::string sequence;
  for (const char *name : {"sgr0", "op", "rmkx", "cnorm", "rmcup"}) AddCapability(name, &sequence);
  if (sequence.empty() || sequence.size() > sizeof saved.leave) sequence = "\n";
  sequence.copy(saved.leave, sizeof saved.leave);
  saved.leave_size = sequence.size();
}

constexpr std::pair<int, Key> kKeys[] = {
    {'q', Key::kQuit},
    {'Q', Key::kQuit},
    {'?', Key::kHelp},
    {'h', Key::kHelp},
    {KEY_F(1), Key::kHelp},
    {'\t', Key::kNextObject},
    {KEY_RIGHT, Key::kNextObject},
    {KEY_BTAB, Key::kLastObject},
    {KEY_LEFT, Key::kLastObject},
    {'s', Key::kNextSort},
    {'S', Key::kLastSort},
    {'r', Key::kReverse},
    {KEY_UP, Key::kUp},
    {KEY_DOWN, Key::kDown},
    {'k', Key::kUp},
    {'j', Key::kDown},
    {KEY_PPAGE, Key::kPageUp},
    {KEY_NPAGE, Key::kPageDown},
    {' ', Key::kPageDown},
    {KEY_HOME, Key::kHome},
    {KEY_END, Key::kEnd},
};

constexpr short kRed = 1, kYellow = 2;  // pairs

attr_t AttributesOf(Style style, bool colours) {
  const auto colour = [&](short pair) { return colours ? static_cast<attr_t>(COLOR_PAIR(pair)) : attr_t{0}; };
  switch (style) {
    case Style::kHeading:
      return A_BOLD;
    case Style::kTitle:
    case Style::kKey:
      return A_REVERSE;
    case Style::kDeparted:
      return A_BOLD | colour(kRed);
    case Style::kBeyond:
      return A_BOLD | colour(kYellow);
    default:
      return A_NORMAL;
  }
}

// Whether there are any.
bool StartColours() {
  const char *refused = std::getenv("NO_COLOR");
  if ((refused != nullptr && *refused != '\0') || !has_colors()) return false;
  start_color();
  use_default_colors();
  init_pair(kRed, COLOR_RED, -1);
  init_pair(kYellow, COLOR_YELLOW, -1);
  return true;
}

// Whether it is one of UTF-8.
bool TakeLocale() {
  std::setlocale(LC_CTYPE, "");
  return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

void Close(SCREEN *screen) {
  if (screen == nullptr) return;
  endwin();
  delscreen(screen);
}

SCREEN *Open() {
  if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) {
    throw SettingsError("top: needs a terminal; without one, see 'zorstat live' with --report");
  }
  tcgetattr(STDIN_FILENO, &saved.modes);
  set_escdelay(25);  // ms
  SCREEN *screen = newterm(nullptr, stdout, stdin);
  if (screen != nullptr && tigetstr("cup") != nullptr) return screen;
  Close(screen);
  const char *type = std::getenv("TERM");
  throw SettingsError(Refusal("TERM", Printable(type == nullptr ? "" : type), "a terminal with a cursor to move"));
}

// A change of the size is to end a wait, as a key does.
int CatchResize() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGWINCH);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

}  // namespace

Screen::Screen()
    : utf8_(TakeLocale()),
      screen_(Open()),
      colours_(StartColours()),
      resized_(CatchResize()),
      events_(epoll_create1(EPOLL_CLOEXEC)) {
  PrepareLeaving();
  CatchFatalSignals();
  HoldErrors();

  cbreak();
  noecho();
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
  curs_set(0);

  for (const int fd : {STDIN_FILENO, resized_}) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    epoll_ctl(events_, EPOLL_CTL_ADD, fd, &event);
  }
}

Screen::~Screen() {
  close(events_);
  close(resized_);
  Close(screen_);
  saved.leave_size = 0;
  ReleaseErrors();
}

Size Screen::size() {
  return {static_cast<std::size_t>(getmaxx(stdscr)), static_cast<std::size_t>(getmaxy(stdscr))};
}

void Screen::Show(const std::vector<Line> &lines) const {
  erase();
  for (std::size_t i = 0; i < lines.size(); ++i) {
    move(static_cast<int>(i), 0);
    for (const auto &[text, style] : lines[i]) {
      attrset(static_cast<int>(AttributesOf(style, colours_)));
      addstr(text.c_str());
    }
  }
  attrset(A_NORMAL);
  refresh();
}

bool Screen::Wait(std::chrono::milliseconds longest) const {
  if (!WaitUnlessStopped(events_, static_cast<int>(longest.count()))) return false;
  signalfd_siginfo info;
  if (read(resized_, &info, sizeof info) == sizeof info) {
    winsize now{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &now) == 0 && now.ws_row > 0 && now.ws_col > 0) {
      resizeterm(now.ws_row, now.ws_col);
    }
  }
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return poll(&input, 1, 0) < 0 || (input.revents & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

Key Screen::TakeKey() {
  for (int code; (code = getch()) != ERR;) {
    for (const auto &[known, key] : kKeys) {
      if (known == code) return key;
    }
  }
  return Key::kNone;
}

}  // namespace zorstat::top
