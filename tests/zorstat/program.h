// Runs of the program itself, each test in a directory of its own.
#ifndef ZORSTAT_PROGRAM_H_
#define ZORSTAT_PROGRAM_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace zorstat {

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kPreloads = false;  // the sanitizer's runtime has to come first
#else
inline constexpr bool kPreloads = true;
#endif

struct Case {
  const char *name;
  const char *command;
  const char *out;
  const char *error;  // all of it, or its start if that ends no line
};

struct Outcome {
  int status;
  std::string out, error;
};

class ProgramTest : public testing::Test {
 protected:
  ProgramTest() {
    std::string name = std::filesystem::temp_directory_path() / "zorstat_test_XXXXXX";
    std::filesystem::current_path(directory_ = mkdtemp(name.data()));
  }
  ~ProgramTest() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(directory_);
  }

  static void Write(const std::filesystem::path &path, const std::string &text) {
    if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string Read(const std::string &name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // Runs a shell command in which $Z is the program, and $F, before it in LD_PRELOAD, makes it faulty.
  static Outcome Run(const std::string &command) {
    Write("command.sh", "Z='" ZORSTAT "' F='" ZORSTAT_FAULTS "'\n" + command);
    const int status = std::system("timeout 100 sh command.sh >out.txt 2>error.txt");
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Read("out.txt"), Read("error.txt")};
  }

  static void Check(const Case &expected) {
    const Outcome outcome = Run(expected.command);
    const std::string error = expected.error;
    EXPECT_EQ(outcome.out, expected.out) << expected.name;
    const bool is_start = !error.empty() && error.back() != '\n';
    EXPECT_EQ(is_start ? outcome.error.substr(0, error.size()) : outcome.error, error) << expected.name;
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

 private:
  std::filesystem::path directory_;
};

}  // namespace zorstat

#endif  // ZORSTAT_PROGRAM_H_
