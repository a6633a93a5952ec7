// Runs of the program itself.
#ifndef ZORSTAT_PROGRAM_H_
#define ZORSTAT_PROGRAM_H_

#include <sys/wait.h>

#include <cstdlib>
#include <string>

#include "temporary_directory.h"

namespace zorstat {

struct Outcome {
  int status;
  std::string out;
  std::string error;
};

class ProgramTest : public InTemporaryDirectory {
 protected:
  // Runs a shell command in which $Z is the program.
  static Outcome Run(const std::string &command) {
    Write("command.sh", "Z='" ZORSTAT "'\n" + command);
    const int status = std::system("timeout 250 sh command.sh >out.txt 2>error.txt");
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read("out.txt"), Read("error.txt")};
  }

  // Polls of two columns and two keys, 10 seconds apart, whose values rise with the poll.
  static std::string Polls(int count) {
    std::string text = "time,port,rx,level:i32\n";
    for (int i = 0; i < count; ++i) {
      const std::string time = std::to_string(1700000000 + 10 * i);
      text += time + ",p1," + std::to_string(100 * i) + "," + std::to_string(-i) + "\n";
      text += time + ",p2," + std::to_string(i * i) + ",\n";
    }
    return text;
  }
};

}  // namespace zorstat

#endif  // ZORSTAT_PROGRAM_H_
