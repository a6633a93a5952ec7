// Clearing a data group: every instance's percentiles are computed and rendered, and its statistics reset.

#include "collector.h"
#include "contest.h"
#include "peers.h"
#include "scenarios.h"

namespace bench {
namespace {

void RunClear(benchmark::State &state) {
  constexpr std::uint32_t kPolls = 200;
  constexpr std::uint32_t kHistograms = 100;  // their text stays in the cache
  const Shape shape = {.instances = 1000};
  Collector collector(shape);
  PrometheusText prometheus(kHistograms, kPolls);
  const char *fault = nullptr;
  std::uint64_t text = 0;

  Contest contest;
  contest.Add(kOurs, [&] {
    collector.Time(kPolls);
    if (!fault) fault = collector.Fault();
    return Nanoseconds([&] { collector.Clear(); }) / shape.Samples();
  });
  contest.Add("collect", [&] { return Nanoseconds([&] { text = collector.CollectBuffers(); }) / shape.Samples(); });
  contest.Add("prometheus_text", [&] { return prometheus.Time(); });
  contest.Run(state);
  state.counters["bytes"] = static_cast<double>(text) / shape.Samples();
  if (!fault) fault = collector.Fault();  // nothing is counted any more
  if (!fault) fault = prometheus.Fault();
  if (!fault && static_cast<double>(text) < 100 * shape.Samples()) fault = "records are missing";
  if (fault) state.SkipWithError(fault);
}

}  // namespace

void RegisterClear(const Options &options) { Register("clear", options.Rounds(11), RunClear); }

}  // namespace bench
