// Programs that this one starts.
#ifndef ZORSTAT_CHILD_H_
#define ZORSTAT_CHILD_H_

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace zorstat {

// The file that a command's first word names, as a path or as a program of PATH; empty where there is none.
std::string FindProgram(const std::string &name);

// Starts a program, as a path or of PATH, with the words of a command, of which the first is its name. It leads a
// process group of its own, and gets `in`, `out` and standard error alone. Returns errno, or 0.
int Spawn(const std::string &program, const std::vector<std::string> &command, int in, int out, pid_t *id);

// A process, which leads a process group of its own. No shell has a part in it.
class Child {
 public:
  // Starts the program with the words of the command, of which the first is its name. It reads `input`, which need
  // not fit into a pipe; what it prints goes to standard error. Throws Error.
  Child(const std::string &program, const std::vector<std::string> &command, std::string_view input);
  // Kills it if it runs.
  ~Child();
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;

  // Does not wait. Nothing is left of a process that has ended.
  bool HasEnded();
  // Its whole group.
  void Kill();
  // "exit status 1" or "signal 9" of one that has ended, or nothing.
  std::string Failure() const;

 private:
  pid_t id_ = -1;  // of one that has not ended
  int status_ = 0;
};

}  // namespace zorstat

#endif  // ZORSTAT_CHILD_H_
