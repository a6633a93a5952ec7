// The scenarios: each function registers its benchmarks.
#ifndef ZOR_BENCH_SCENARIOS_H_
#define ZOR_BENCH_SCENARIOS_H_

namespace bench {

struct Options {
  bool quick = false;  // leave out what is large, and do fewer rounds

  int Rounds(int full) const { return quick ? (full + 1) / 2 : full; }
};

void RegisterMemory(const Options &options);  // needs the heap as it is at the start
void RegisterRows(const Options &options);
void RegisterAllocations(const Options &options);
void RegisterThreads(const Options &options);
void RegisterScaling(const Options &options);
void RegisterInserts(const Options &options);
void RegisterPercentiles(const Options &options);
void RegisterClear(const Options &options);
void RegisterScrape(const Options &options);

}  // namespace bench

#endif  // ZOR_BENCH_SCENARIOS_H_
