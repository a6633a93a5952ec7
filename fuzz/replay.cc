// Runs a fuzz target on the files in directories, or on N random inputs that are made of the seeds 0 to N - 1.
//   replay_TARGET [--seeds N] [FILE | DIRECTORY]...

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

std::size_t run = 0;

void Run(const std::string &name, const std::vector<std::uint8_t> &bytes) {
  std::fprintf(stderr, "\r%s", name.c_str());  // stays on the screen only when the target ends the program
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  ++run;
}

void RunSeed(std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<std::uint8_t> bytes(random() % (std::size_t{16} << random() % 9));
  for (std::uint8_t &byte : bytes) byte = static_cast<std::uint8_t>(random());
  Run("seed " + std::to_string(seed), bytes);
}

}  // namespace

int main(int argc, char **argv) {
  std::set<std::filesystem::path> paths;
  for (int i = 1; i < argc; ++i) {
    if (std::string(argv[i]) == "--seeds" && i + 1 < argc) {
      const std::uint64_t seeds = std::strtoull(argv[++i], nullptr, 10);
      for (std::uint64_t seed = 0; seed < seeds; ++seed) RunSeed(seed);
    } else if (std::filesystem::is_directory(argv[i])) {
      for (const auto &entry : std::filesystem::directory_iterator(argv[i])) paths.insert(entry.path());
    } else {
      paths.insert(argv[i]);
    }
  }
  for (const auto &path : paths) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::fprintf(stderr, "%s: cannot be read\n", path.c_str()), 1;
    Run(path, {std::istreambuf_iterator<char>(file), {}});
  }
  std::fprintf(stderr, "\r%zu inputs replayed\n", run);
  return run == 0 ? 1 : 0;
}
