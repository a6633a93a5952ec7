// Clearing a data group: every instance's percentiles are computed and rendered, and its statistics reset.

#include <cstring>
#include <vector>

#include "collector.h"
#include "contest.h"
#include "peers.h"
#include "scenarios.h"

namespace bench {
namespace {

// What the machine itself needs: a block per statistic, as large as the library's, of which the summary and the
// counters are set to zero, and a text copied into a block of its own.
class ClearFloor {
 public:
  explicit ClearFloor(const Shape &shape)
      : rows_(shape.instances),
        columns_(shape.columns),
        state_size_(sizeof(stats_summary_uint64_t) + shape.buckets * sizeof(std::uint16_t)),
        blocks_(std::size_t{rows_} * columns_) {
    const std::size_t size = kHeadSize + state_size_ + sizeof(stats_range_counters_uint64_t) + sizeof(Key);
    for (char *&block : blocks_) block = Allocate(size);
  }
  ~ClearFloor() {
    for (char *block : blocks_) std::free(block);
  }
  ClearFloor(const ClearFloor &) = delete;
  ClearFloor &operator=(const ClearFloor &) = delete;

  // Nanoseconds per statistic, with texts of this length.
  double Time(std::size_t length) {
    const std::vector<char> text(length + 1, 'x');
    for (char *block : blocks_) std::memset(block + kHeadSize, 1, state_size_);
    const double time = Nanoseconds([&] {
      Walk([&](char *block) {
        char *copy = Allocate(text.size());
        std::memcpy(copy, text.data(), text.size());
        std::memcpy(block, &copy, sizeof copy);
        std::memset(block + kHeadSize, 0, state_size_);
      });
    });
    Walk([](const char *block) {
      char *copy = nullptr;
      std::memcpy(&copy, block, sizeof copy);
      std::free(copy);
    });
    return time / static_cast<double>(blocks_.size());
  }

 private:
  static constexpr std::size_t kHeadSize = sizeof(zor_process_object_instance_entry_uint64_t);

  static char *Allocate(std::size_t size) {
    auto *block = static_cast<char *>(std::malloc(size));
    if (!block) std::abort();
    return block;
  }

  // Column by column, as a clear goes; they were allocated row by row.
  template <class Visit>
  void Walk(Visit visit) {
    for (std::uint32_t column = 0; column < columns_; ++column) {
      for (std::size_t row = 0; row < rows_; ++row) visit(blocks_[row * columns_ + column]);
    }
  }

  std::uint32_t rows_;
  std::uint32_t columns_;
  std::size_t state_size_;
  std::vector<char *> blocks_;
};

void RunClear(benchmark::State &state) {
  constexpr std::uint32_t kPolls = 200;
  constexpr std::uint32_t kHistograms = 100;  // their text stays in the cache
  const Shape shape = {.instances = 1000};
  Collector collector(shape);
  ClearFloor floor(shape);
  collector.Time(1);
  collector.Clear();
  // Made now, its blocks lie above the texts of a first clear. So the heap keeps the memory of texts that are
  // freed, which it would otherwise give back to the kernel and fetch again in some runs and not in others.
  PrometheusText prometheus(kHistograms, kPolls);
  collector.CollectBuffers();
  const char *fault = nullptr;
  std::uint64_t text = 0, left = 0;

  Contest contest;
  contest.Add(kOurs, [&] {
    collector.Time(kPolls);
    if (!fault) fault = collector.Fault();
    return Nanoseconds([&] { collector.Clear(); }) / shape.Samples();
  });
  contest.Add("collect", [&] { return Nanoseconds([&] { text = collector.CollectBuffers(); }) / shape.Samples(); });
  contest.Add("floor", [&] { return floor.Time(static_cast<std::size_t>(text / shape.Samples())); });
  contest.Add("prometheus_text", [&] { return prometheus.Time(); });
  contest.Add("idle_walk",
              [&] { return Nanoseconds([&] { left = collector.CollectBuffers(); }) / shape.Samples(); });
  contest.Run(state);
  state.counters["bytes"] = static_cast<double>(text) / shape.Samples();
  if (!fault) fault = collector.Fault();  // nothing is counted any more
  if (!fault) fault = prometheus.Fault();
  if (!fault && static_cast<double>(text) < 100 * shape.Samples()) fault = "records are missing";
  if (!fault && left != 0) fault = "records were not collected";
  if (fault) state.SkipWithError(fault);
}

}  // namespace

void RegisterClear(const Options &options) { Register("clear", options.Rounds(11), RunClear); }

}  // namespace bench
