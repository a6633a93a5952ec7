// A directory of its own for each test, which is the current one while the test runs.
#ifndef ZORSTAT_TEMPORARY_DIRECTORY_H_
#define ZORSTAT_TEMPORARY_DIRECTORY_H_

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace zorstat {

class InTemporaryDirectory : public testing::Test {
 protected:
  InTemporaryDirectory() : before_(std::filesystem::current_path()) {
    std::string name = std::filesystem::temp_directory_path() / "zorstat_test_XXXXXX";
    directory_ = mkdtemp(name.data());
    std::filesystem::current_path(directory_);
  }
  ~InTemporaryDirectory() override {
    std::filesystem::current_path(before_);
    std::filesystem::remove_all(directory_);
  }

  static std::string Write(const std::string &name, const std::string &text) {
    const std::filesystem::path path(name);
    if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return name;
  }
  static std::string Read(const std::string &name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // The message of the error that the call throws; empty if it throws none.
  template <typename Call>
  static std::string ErrorOf(Call call) {
    try {
      call();
    } catch (const std::exception &error) {
      return error.what();
    }
    return "";
  }

 private:
  std::filesystem::path before_;
  std::filesystem::path directory_;
};

}  // namespace zorstat

#endif  // ZORSTAT_TEMPORARY_DIRECTORY_H_
