// Runs a fuzz target on the files that are named as arguments, and on those in named directories.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

int main(int argc, char **argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> paths;
  for (int i = 1; i < argc; ++i) {
    if (fs::is_directory(argv[i])) {
      for (const auto &entry : fs::directory_iterator(argv[i])) paths.push_back(entry.path());
    } else {
      paths.emplace_back(argv[i]);
    }
  }
  std::sort(paths.begin(), paths.end());
  std::size_t run = 0;
  for (const fs::path &path : paths) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (!file) {
      std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
      return 1;
    }
    // Stays on the screen only when the target ends the program.
    std::fprintf(stderr, "\r%s", path.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
    ++run;
  }
  std::fprintf(stderr, "\r%zu inputs replayed\n", run);
  return run == 0 ? 1 : 0;
}
