// Measures the library beside its peers and beside what the machine itself allows, and prints a table of ratios.
//
//   zor_bench [--quick] [--json FILE] [options of Google Benchmark, such as --benchmark_filter=REGEX]

#include <cstring>
#include <string>
#include <vector>

#include "scenarios.h"
#include "table.h"

int main(int argc, char **argv) {
  bench::Options options;
  std::string json = "--benchmark_out=bench.json";
  std::vector<char *> arguments = {argv[0]};
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0) {
      options.quick = true;
    } else if (std::strcmp(argv[i], "--json") == 0 && i + 1 < argc) {
      json = std::string("--benchmark_out=") + argv[++i];
    } else {
      arguments.push_back(argv[i]);
    }
  }
  arguments.push_back(json.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 2;
  benchmark::AddCustomContext("compiler", "GCC " __VERSION__);
  benchmark::AddCustomContext("run", options.quick ? "quick" : "full");

  bench::RegisterMemory(options);
  bench::RegisterAllocations(options);
  bench::RegisterInserts(options);
  bench::RegisterPercentiles(options);
  bench::RegisterClear(options);
  bench::RegisterScrape(options);
  bench::RegisterThreads(options);
  bench::RegisterScaling(options);
  bench::RegisterRows(options);

  bench::Collected collected;
  bench::Json file;
  benchmark::RunSpecifiedBenchmarks(&collected, &file);
  collected.PrintTable();
  return collected.failed() ? 1 : 0;
}
