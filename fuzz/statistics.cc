// The statistics families of all four types, called directly. Each result is held against a naive model: the
// samples themselves, sorted, with arithmetic that cannot overflow, and the bucket model walked value by value.

#include <map>
#include <optional>
#include <vector>

#include "input.h"
#include "tests/api.h"
#include "tests/bucket_walk.h"

namespace zor_fuzz {
namespace {

__extension__ using Wide = __int128;
__extension__ using UnsignedWide = unsigned __int128;

template <class V>
constexpr Wide kMin = std::numeric_limits<V>::min();
template <class V>
constexpr Wide kMax = std::numeric_limits<V>::max();

constexpr std::uint32_t kFull = 65535;
constexpr Wide kWidestBucket = Wide{1} << 47;  // whose sums of weights, times a count, fit 128 bits

Wide DivideUp(Wide dividend, Wide divisor) { return (dividend + divisor - 1) / divisor; }

// The first of a run's values at which its running count reaches k, bisected in the closed form of that count.
struct Run {
  bool rising;
  std::uint64_t size;
  std::uint64_t samples;

  bool Reaches(std::uint64_t j, std::uint64_t k) const {
    const auto twice_weights = [](std::uint64_t n) { return UnsignedWide{n} * (n + 1); };
    const UnsignedWide all = twice_weights(size);
    return rising ? twice_weights(j) * samples >= all * k
                  : (all - twice_weights(size - j)) * samples + all > all * k;
  }
  std::uint64_t First(std::uint64_t k) const {
    std::uint64_t low = 1, high = size;
    while (low < high) {
      const std::uint64_t middle = low + (high - low) / 2;
      if (Reaches(middle, k)) {
        high = middle;
      } else {
        low = middle + 1;
      }
    }
    return low;
  }
};

// The bucket model for buckets that are too wide to walk.
WalkResult Bisect(std::uint32_t below, std::uint32_t total, std::uint64_t width, std::uint32_t k,
                  std::uint32_t samples) {
  if (k > samples) return {2, 0, 0};
  const bool rising = below + samples < total / 2;
  const bool peaked = !rising && below <= total / 2 && width > 1;
  std::uint64_t before = 0;
  Run run = {rising || width == 1, width, samples};
  std::uint64_t rank = k;
  if (peaked && k <= samples / 2) {
    run = {true, width / 2, samples / 2};
  } else if (peaked) {
    before = width / 2;
    run = {false, width - width / 2, samples - samples / 2};
    rank -= samples / 2;
  }
  const std::uint64_t j = run.First(rank);
  const std::uint64_t vk = before + j - 1;
  if (run.Reaches(j, rank + 1)) return {0, vk, vk};
  if (samples > k && !peaked && vk + 1 < width) return {0, vk, vk + 1};
  return {1, vk, 0};
}

template <class V>
void BucketModel(Input &in) {
  using U = typename Api<V>::Unsigned;
  const V lowest = in.Value<V>();
  const V highest = in.OneIn(3)
                        ? in.Value<V>()
                        : static_cast<V>(static_cast<U>(lowest) + static_cast<U>(in.Take<std::uint16_t>() % 3000));
  const auto samples = in.Value<std::uint32_t>();
  const auto below = in.Value<std::uint32_t>();
  const auto total = in.OneIn(2) ? in.Value<std::uint32_t>() : below + samples;
  const auto k = in.OneIn(2) ? in.Value<std::uint32_t>() : samples ? in.Take<std::uint32_t>() % samples + 1 : 0;
  V vk = 7, vk1 = 7;
  const std::uint32_t code = Api<V>::GetVkVk1(below, total, lowest, highest, k, samples, &vk, &vk1);
  const Wide width = Wide{highest} - lowest + 1;
  if (width < 1 || k > samples) {
    ZOR_REQUIRE(code == 2 && vk == 0 && vk1 == 0);
    return;
  }
  ZOR_REQUIRE(code <= 1 && vk >= lowest && vk <= highest);
  ZOR_REQUIRE(code == 1 ? vk1 == 0 : vk1 == vk || Wide{vk1} == Wide{vk} + 1);
  if (width > kWidestBucket) return;
  const auto same_as = [&](const WalkResult &expected) {
    return code == expected.code && vk - Wide{lowest} == expected.vk &&
           (code == 1 || vk1 - Wide{lowest} == expected.vk1);
  };
  ZOR_REQUIRE(same_as(Bisect(below, total, static_cast<std::uint64_t>(width), k, samples)));
  if (width > 4000) return;
  ZOR_REQUIRE(same_as(Walk(below, total, static_cast<std::uint64_t>(width), k, samples)));
}

template <class V>
void SummaryOf(Input &in) {
  using A = Api<V>;
  using Total = typename A::Total;
  typename A::Summary summary = {};
  // A record may come to this in a long life.
  if (in.OneIn(2)) summary = {0, 0, in.Value<Total>(), 1 + in.Take<std::uint32_t>() / 2};
  Wide total = summary.Vtotal, min = summary.Vmin, max = summary.Vmax;
  std::uint32_t count = summary.u32_no_of_samples;
  while (!in.empty()) {
    const V value = in.Value<V>();
    const bool fits = total + value >= kMin<Total> && total + value <= kMax<Total>;
    ZOR_REQUIRE(A::SummaryEval(&summary, value) == (fits ? 0u : 1u));
    if (fits) {
      total += value;
      min = count == 0 ? Wide{value} : std::min(min, Wide{value});
      max = count == 0 ? Wide{value} : std::max(max, Wide{value});
      ++count;
    }
    ZOR_REQUIRE(summary.Vtotal == total && summary.u32_no_of_samples == count);
    ZOR_REQUIRE(summary.Vmin == min && summary.Vmax == max);
  }
  A::SummaryPrint(&summary);
}

template <class V>
void SortedArray(Input &in) {
  using A = Api<V>;
  typename A::SortedArray array = {};
  const std::uint32_t size = in.Below(40);
  ZOR_REQUIRE(A::ArrayInit(&array, size) == (size == 0 ? 1u : 0u));
  if (size == 0) return;
  std::vector<V> held;
  while (!in.empty()) {
    const V value = in.Value<V>();
    const auto mode = static_cast<std::int32_t>(in.Below(4));
    std::uint32_t was_full = 9;
    V out = 9;
    const std::uint32_t code = A::ArrayInsert(&array, value, mode, &was_full, &out);
    const bool full = held.size() == size;
    const bool hands_out = full && (mode == 1 || mode == 2);
    ZOR_REQUIRE(was_full == (hands_out ? 1u : 0u));
    if (!full || hands_out) held.insert(std::upper_bound(held.begin(), held.end(), value), value);
    if (hands_out) {
      const auto leaves = mode == 1 ? held.end() - 1 : held.begin();
      ZOR_REQUIRE(out == *leaves);
      held.erase(leaves);
    } else {
      ZOR_REQUIRE(out == 9);
    }
    ZOR_REQUIRE(code == (full && (mode == 0 || (hands_out && out == value)) ? 1u : 0u));
    ZOR_REQUIRE(array.Size == size && array.Valid_Length == held.size());
    ZOR_REQUIRE(std::equal(held.begin(), held.end(), array.p_values));
  }
  A::ArrayPrint(&array);
  A::ArrayUninit(&array);
  ZOR_REQUIRE(array.p_values == nullptr && array.Size == 0 && array.Valid_Length == 0);
}

// A rank lookup in plain samples that may leave values out, as the lookups of the library do.
template <class V>
struct Samples {
  std::vector<V> sorted;
  std::uint32_t code;
};

template <class V>
std::uint32_t LookUp(void *context, const std::uint32_t *ranks, std::uint32_t total, V, V, V *vk, V *vk1,
                     std::uint32_t *below, std::uint32_t count, std::uint32_t *cursor) {
  const auto &samples = *static_cast<const Samples<V> *>(context);
  ZOR_REQUIRE(*below == 0 && *cursor == 0);
  for (std::uint32_t i = 0; i < count; ++i) {
    ZOR_REQUIRE(ranks[i] >= 1 && ranks[i] <= total);
    vk[i] = samples.sorted[ranks[i] - 1];
    vk1[i] = ranks[i] == total ? V{0} : samples.sorted[ranks[i]];
  }
  return samples.code;
}

// The percentile at a point, between two neighbours, in thousandths.
Wide Interpolate(std::uint32_t point, std::uint32_t total, Wide vk, Wide vk1) {
  const Wide fraction = Wide{point} * (total - 1) % 100000 / 100;
  return vk * 1000 + fraction * std::max(vk1 - vk, Wide{0});
}

template <class V>
void PercentileValues(Input &in) {
  using A = Api<V>;
  Samples<V> samples = {{}, in.Below(3)};
  std::vector<std::uint32_t> points(in.Below(12));
  for (auto &point : points) point = in.OneIn(8) ? in.Value<std::uint32_t>() : in.Take<std::uint32_t>() % 100001;
  std::sort(points.begin(), points.end());
  const bool sorted = !in.OneIn(4);  // a next value below its own counts as equal
  while (!in.empty()) samples.sorted.push_back(in.Value<V>());
  if (sorted) std::sort(samples.sorted.begin(), samples.sorted.end());
  const auto total = static_cast<std::uint32_t>(samples.sorted.size());
  const V min = total ? samples.sorted.front() : V{3}, max = total ? samples.sorted.back() : V{4};
  std::vector<typename A::FixedPoint> results(points.size(), {1, 1});
  const auto count = static_cast<std::uint32_t>(points.size());
  const std::uint32_t code =
      A::GetValues(points.data(), results.data(), count, min, max, total, LookUp<V>, &samples);
  const auto refused = std::find_if(points.begin(), points.end(), [](auto point) { return point > 100000; });
  ZOR_REQUIRE(code == (total == 0 ? 4u : refused != points.end() ? 3u : samples.code == 2 ? 4u : 0u));
  for (std::size_t i = 0; i < points.size(); ++i) {
    Wide expected = 0;
    if (code == 3 && points.begin() + static_cast<std::ptrdiff_t>(i) > refused) {
      expected = 1001;
    } else if (code == 0) {
      const std::uint64_t rank = std::uint64_t{points[i]} * (total - 1) / 100000 + 1;
      expected = points[i] == 0  ? Wide{min} * 1000
                 : rank == total ? Wide{max} * 1000
                                 : Interpolate(points[i], total, samples.sorted[rank - 1], samples.sorted[rank]);
    }
    ZOR_REQUIRE(results[i].thousandths < 1000);
    ZOR_REQUIRE(Wide{results[i].int_part} * 1000 + results[i].thousandths == expected);
  }
  A::PercentilePrint(points.data(), results.data(), count);
}

// A stretch of values in which some samples lie, as a lookup sees it.
struct Bucket {
  Wide low;
  Wide high;
  std::uint32_t count;
  std::optional<Wide> next;  // the value after its last sample; without it, that of the next rank is looked up
  bool inside = false;       // the range: only its owner knows what follows its last sample
};

struct Neighbours {
  Wide vk;
  std::optional<Wide> vk1;  // nothing: not promised
};

// Ranks looked up from scratch in a list of buckets.
class Distribution {
 public:
  Distribution(Wide min, Wide max) : min_(min), max_(max) {}

  void Add(const Bucket &bucket) {
    buckets_.push_back(bucket);
    total_ += bucket.count;
  }

  // A sub-range, cut to the extremes. Rounding may turn it over a little.
  void AddNarrowed(Bucket bucket) {
    bucket.inside = true;
    bucket.low = std::max(bucket.low, min_);
    bucket.high = std::min(bucket.high, max_);
    if (bucket.low > bucket.high && bucket.low - bucket.high < 3) bucket.low = bucket.high;
    Add(bucket);
  }

  // What follows the last sample inside the range.
  void EndInside(std::uint32_t rank, std::optional<Wide> next) {
    last_inside_ = rank;
    after_inside_ = next;
  }

  std::uint32_t total() const { return total_; }

  std::optional<Neighbours> Find(std::uint32_t rank) const {
    if (rank <= 1) return Neighbours{min_, min_};
    if (rank == total_) return Neighbours{max_, max_};
    std::uint32_t below = 0;
    for (const Bucket &bucket : buckets_) {
      if (rank > below + bucket.count) {
        below += bucket.count;
        continue;
      }
      const auto found = Locate(bucket, below, rank - below);
      if (found && bucket.inside && rank == last_inside_) {
        return Neighbours{found->vk, after_inside_ ? after_inside_ : found->vk + 1};
      }
      if (!found || found->vk1) return found;
      if (bucket.next) return Neighbours{found->vk, bucket.next};
      const auto next = FindInBucket(rank + 1);
      return Neighbours{found->vk, next ? std::optional<Wide>(next->vk) : std::nullopt};
    }
    return std::nullopt;
  }

 private:
  std::optional<Neighbours> Locate(const Bucket &bucket, std::uint32_t below, std::uint32_t k) const {
    if (bucket.low > bucket.high || bucket.high - bucket.low >= kWidestBucket) return std::nullopt;
    const auto width = static_cast<std::uint64_t>(bucket.high - bucket.low + 1);
    const WalkResult result = Bisect(below, total_, width, k, bucket.count);
    if (result.code == 2) return std::nullopt;
    const Wide vk1 = bucket.low + result.vk1;
    return Neighbours{bucket.low + result.vk, result.code == 0 ? std::optional<Wide>(vk1) : std::nullopt};
  }

  std::optional<Neighbours> FindInBucket(std::uint32_t rank) const {
    std::uint32_t below = 0;
    for (const Bucket &bucket : buckets_) {
      // The largest sample of all stands where there is nothing but the extremes to go by.
      if (&bucket == &buckets_.back() && bucket.next && rank == total_) return Neighbours{max_, max_};
      if (rank <= below + bucket.count) return Locate(bucket, below, rank - below);
      below += bucket.count;
    }
    return std::nullopt;
  }

  Wide min_;
  Wide max_;
  std::uint32_t total_ = 0;
  std::uint32_t last_inside_ = 0;
  std::optional<Wide> after_inside_;
  std::vector<Bucket> buckets_;
};

// What range counters are to count, in a plain way.
template <class V>
struct RangeModel {
  using U = typename Api<V>::Unsigned;

  RangeModel(V first, V last, std::uint32_t buckets)
      : start(first),
        end(last == std::numeric_limits<V>::max() ? Wide{last} : Wide{last} + 1),
        nsc(buckets),
        exact_end(std::min(start + kMax<U> / nsc, kMax<V>)),
        counts(nsc) {}

  std::uint32_t &CounterOf(Wide value) {
    if (value < start) return below;
    if (value >= end) return above;
    const Wide offset = value - start, width = end - start;
    const Wide index = value < exact_end ? offset * nsc / width : width / nsc ? offset / (width / nsc) : 0;
    return counts[static_cast<std::size_t>(std::min(index, Wide{nsc} - 1))];
  }

  // The sub-ranges, each with the values that it stands for in a lookup.
  void AddTo(Distribution &distribution) const {
    const Wide width = end - start;
    for (Wide b = 0; b < nsc; ++b) {
      Bucket bucket = {start, start, counts[static_cast<std::size_t>(b)], {}};
      if (width != 0 && b < kMax<U> / width - 1) {
        bucket.low = start + DivideUp(b * width, nsc);
        bucket.high = start + DivideUp((b + 1) * width, nsc) - 1;
      } else if (width != 0) {
        bucket.low = start + b * (width / nsc);
        bucket.high = bucket.low + width / nsc - 1;
      }
      distribution.AddNarrowed(bucket);
    }
  }

  Wide start, end;
  std::uint32_t nsc;
  Wide exact_end;
  std::vector<std::uint32_t> counts;
  std::uint32_t below = 0, above = 0;
};

// Ranks to be looked up once the samples, which take the rest of the input, are counted.
struct Wanted {
  explicit Wanted(Input &in) : picks(1 + in.Below(12)), total(in.OneIn(8) ? in.Value<std::uint32_t>() : 0) {
    for (auto &pick : picks) pick = in.Take<std::uint16_t>();
    repeated = in.OneIn(8);
  }
  std::vector<std::uint32_t> picks;
  std::uint32_t total;  // 0: the number of samples, as it should be
  bool repeated;
};

// Looks ranks up in a record of the library and in the model of its distribution.
template <class V, class Find>
void CompareLookups(const Wanted &wanted, Find find, void *record, V min, V max, const Distribution &model,
                    std::uint32_t skipped) {
  const std::uint32_t total = wanted.total != 0 ? wanted.total : model.total();
  std::vector<std::uint32_t> ranks = wanted.picks;
  for (auto &rank : ranks) rank = rank % (std::min(total, 65535u) + 1);
  std::sort(ranks.begin(), ranks.end());
  if (!wanted.repeated) ranks.erase(std::unique(ranks.begin(), ranks.end()), ranks.end());
  std::vector<V> vk(ranks.size()), vk1(ranks.size());
  const auto count = static_cast<std::uint32_t>(ranks.size());
  std::uint32_t below = 0, cursor = 0;
  const std::uint32_t code =
      find(record, ranks.data(), total, min, max, vk.data(), vk1.data(), &below, count, &cursor);
  ZOR_REQUIRE(code == 0 || code == 2);
  ZOR_REQUIRE(cursor <= count && (code == 2 || cursor == count));
  if (wanted.total != 0 || wanted.repeated) return;
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto expected = model.Find(ranks[i]);
    if (!expected) return;  // where it stops is told by the codes above
    const bool compared = ranks[i] != skipped || ranks[i] <= 1 || ranks[i] == total;
    if (!compared && cursor <= i) return;
    ZOR_REQUIRE(cursor > i && (!compared || vk[i] == expected->vk));
    ZOR_REQUIRE(!compared || !expected->vk1 || vk1[i] == *expected->vk1);
    if (i + 1 == count) ZOR_REQUIRE(!compared || !expected->vk1 || code == 0);
  }
}

// A stream of samples, long ones from few bytes: stretches that spread over a range of values, and single ones
// around two values where something begins and ends.
template <class V, class Function>
void ForEachSample(Input &in, V begin, V end, Function function) {
  using U = typename Api<V>::Unsigned;
  V middle = begin;
  for (std::uint32_t left = 6000; !in.empty() && left > 0;) {
    const std::uint32_t pick = in.Below(8);
    if (pick == 7) middle = in.Value<V>();
    const V value =
        pick == 7
            ? middle
            : static_cast<V>(static_cast<U>(pick == 6 ? end : middle) + static_cast<U>(in.Take<std::int8_t>()));
    std::uint32_t repeat = in.OneIn(16) ? in.Take<std::uint16_t>() % 2000 : 1;
    const U spread = repeat > 1 ? static_cast<U>(in.Take<std::uint32_t>()) >> in.Below(32) : 0;
    std::uint64_t random = spread;
    for (; repeat > 0 && left > 0; --repeat, --left) {
      random = random * 6364136223846793005 + 1442695040888963407;
      const U step = spread == 0 ? 0 : static_cast<U>(random >> 33) % spread;
      function(static_cast<V>(static_cast<U>(value) + step));
    }
  }
}

template <class V>
void RangeCounters(Input &in) {
  using A = Api<V>;
  typename A::RangeCounters record = {};
  const V start = in.Value<V>(), last = in.Value<V>();
  const auto nsc = static_cast<std::uint16_t>(in.OneIn(8) ? in.Value<std::uint16_t>() : in.Below(100));
  const std::uint32_t code = A::RangeInit(&record, start, last, nsc);
  ZOR_REQUIRE(code == (nsc == 0 ? 1u : last < start ? 2u : 0u));
  if (code != 0) return;
  const Wanted wanted(in);
  RangeModel<V> model(start, last, nsc);
  ZOR_REQUIRE(record.Start == start && record.End == model.end && record.Vexact_end == model.exact_end);
  if (in.OneIn(8)) {  // as after very many samples
    record.pu16_counters[0] = record.u16_min_exception_counter = record.u16_max_exception_counter = kFull - 2;
    model.counts[0] = model.below = model.above = kFull - 2;
  }
  std::vector<V> samples;
  const auto samples_before = static_cast<std::uint32_t>(model.counts[0] + model.below + model.above);
  ForEachSample<V>(in, start, model.exact_end < model.end ? record.Vexact_end : last, [&](V value) {
    std::uint32_t &counter = model.CounterOf(value);
    const int expected = counter == kFull ? 3 : value < start ? -1 : value >= model.end ? 1 : 0;
    ZOR_REQUIRE(A::RangeInsert(&record, value) == expected);
    if (expected == 3) return;
    ++counter;
    samples.push_back(value);
  });
  ZOR_REQUIRE(record.u16_no_of_samples == samples.size() % 65536);
  ZOR_REQUIRE(record.u16_min_exception_counter == model.below && record.u16_max_exception_counter == model.above);
  ZOR_REQUIRE(std::equal(model.counts.begin(), model.counts.end(), record.pu16_counters));
  if (!samples.empty()) {
    const auto [min, max] = std::minmax_element(samples.begin(), samples.end());
    Distribution distribution(*min, *max);
    if (samples_before == 0) {
      distribution.Add({*min, std::min(model.start - 1, Wide{*max}), model.below, model.start});
      model.AddTo(distribution);
      distribution.Add({std::max(model.end, Wide{*min}), *max, model.above, *max});
    }
    // The last rank below Start is looked for in the first sub-range.
    CompareLookups<V>(wanted, A::RangeFind, &record, *min, *max, distribution,
                      samples_before == 0 ? model.below : model.below + 1);
  }
  A::RangePrint(&record);
  std::free(record.pu16_counters);
}

template <class V>
void Learner(Input &in) {
  using A = Api<V>;
  typename A::Learner learner = {};
  const std::uint32_t expected = in.OneIn(2) ? in.Take<std::uint16_t>() % 4000 : in.Below(20);
  ZOR_REQUIRE(A::LearnerInit(&learner, expected) == (expected == 0 ? 1u : 0u));
  if (expected == 0) return;
  const std::uint32_t size = (13 * expected - 13) / 10000 + 2, cut = 13 * expected / 10000;
  std::vector<V> sorted;
  Input rest = in;
  ForEachSample<V>(in, 0, 0, [&](V value) {
    if (sorted.size() == expected) sorted.clear();
    sorted.insert(std::upper_bound(sorted.begin(), sorted.end(), value), value);
    ZOR_REQUIRE(A::LearnerLearn(&learner, value) == (sorted.size() == expected ? 1u : 0u));
    ZOR_REQUIRE(learner.got == sorted.size());
    V min, max, low, high;
    const std::uint32_t known = A::LearnerRange(&learner, &min, &max, &low, &high);
    ZOR_REQUIRE(known == (sorted.size() == expected ? 1u : 0u));
    if (known == 0) return;
    ZOR_REQUIRE(min == sorted.front() && max == sorted.back() && low <= high && min <= low && high <= max);
    if (expected < 4) return;
    ZOR_REQUIRE(low == sorted[cut] && high == sorted[expected - 1 - cut]);
    std::vector<std::uint32_t> ranks(1 + rest.Below(10));
    for (auto &rank : ranks) rank = rest.OneIn(2) ? rest.Below(9) : expected - std::min(rest.Below(9), expected);
    std::vector<V> vk(ranks.size()), vk1(ranks.size());
    const auto count = static_cast<std::uint32_t>(ranks.size());
    std::uint32_t cursor = 0;
    const std::uint32_t code =
        A::LearnerFind(&learner, ranks.data(), expected, min, max, vk.data(), vk1.data(), nullptr, count, &cursor);
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t rank = ranks[i];
      const bool tail = rank <= 1 || rank == expected || rank < size || expected - rank < size;
      ZOR_REQUIRE(tail == (cursor > i));
      if (!tail) break;
      ZOR_REQUIRE(vk[i] == sorted[std::max(rank, 1u) - 1]);
      ZOR_REQUIRE(vk1[i] == (rank <= 1 ? min : rank == expected ? max : sorted[rank]));
    }
    ZOR_REQUIRE(code == (cursor == count ? 0u : 2u));
  });
  A::LearnerPrint(&learner);
  A::LearnerUninit(&learner);
  ZOR_REQUIRE(learner.expected == 0 && learner.got == 0 && learner.lowest.p_values == nullptr);
}

// Range counters with buckets outside, in a plain way.
template <class V>
struct WholeModel {
  WholeModel(V start, V last, std::uint32_t nsc, std::uint32_t max_nodes)
      : range(start, last, nsc), step(std::max(DivideUp(range.end - range.start, nsc), Wide{1})), cap(max_nodes) {}

  // What the insertion of a value returns, which is then counted.
  std::int32_t Insert(V value) {
    if (value >= range.start && value < range.end) {
      std::uint32_t &counter = range.CounterOf(value);
      if (counter == kFull) return 3;
      ++counter;
      Count(value);
      return 0;
    }
    const bool under = value < range.start;
    Side &side = under ? below : above;
    const Wide first = under ? std::max(range.start - DivideUp(range.start - value, step) * step, kMin<V>)
                             : range.end + (value - range.end) / step * step;
    std::uint32_t *counter = &side.exceptions;
    if (side.nodes.count(first)) {
      counter = &side.nodes[first];
    } else if (below.nodes.size() + above.nodes.size() < cap) {
      counter = &side.nodes.emplace(first, 0).first->second;
    }
    if (*counter == kFull) return 3;
    ++*counter;
    Count(value);
    return counter == &side.exceptions ? 2 : 0;
  }

  void Count(V value) {
    min = total == 0 ? value : std::min(min, value);
    max = total == 0 ? value : std::max(max, value);
    ++total;
  }

  Distribution Lookup() const {
    Distribution distribution(min, max);
    const Wide first = below.nodes.empty() ? range.start : below.nodes.begin()->first;
    // Nothing lies below the type's first value.
    distribution.Add({first == kMin<V> ? Wide{max} + 1 : Wide{min}, first - 1, below.exceptions, first});
    const auto last_of = [&](Wide node) { return std::min(node + step - 1, kMax<V>); };
    const auto after = [&](Wide node) { return std::min(node + step, kMax<V>); };
    for (auto node = below.nodes.begin(); node != below.nodes.end(); ++node) {
      const auto next = std::next(node);
      distribution.Add(
          {node->first, last_of(node->first), node->second, next == below.nodes.end() ? range.start : next->first});
    }
    range.AddTo(distribution);
    Wide outer = range.end;
    for (auto node = above.nodes.begin(); node != above.nodes.end(); ++node) {
      const auto next = std::next(node);
      outer = after(node->first);
      distribution.Add(
          {node->first, last_of(node->first), node->second, next == above.nodes.end() ? outer : next->first});
    }
    distribution.Add({outer, max, above.exceptions, max});
    distribution.EndInside(LastRankInside(),
                           above.nodes.empty() ? std::nullopt : std::optional<Wide>(above.nodes.begin()->first));
    return distribution;
  }

  std::uint32_t LastRankInside() const {
    std::uint32_t rank = below.exceptions;
    for (const auto &node : below.nodes) rank += node.second;
    for (const std::uint32_t count : range.counts) rank += count;
    return rank;
  }

  struct Side {
    std::map<Wide, std::uint32_t> nodes;
    std::uint32_t exceptions = 0;
  };
  RangeModel<V> range;
  Wide step;
  std::uint32_t cap;
  Side below, above;
  std::uint32_t total = 0;
  V min = 0, max = 0;
};

template <class V>
void CompareSide(const auto &list, const auto &side) {
  ZOR_REQUIRE(list.length == side.nodes.size() && list.exceptions == side.exceptions);
  const auto *node = list.head;
  for (const auto &[first, count] : side.nodes) {
    ZOR_REQUIRE(node != nullptr && node->Vstart == first && node->Count == count);
    node = node->next;
  }
  ZOR_REQUIRE(node == nullptr);
}

template <class V>
void CompareWhole(const typename Api<V>::DynamicCounters &dynamic, const WholeModel<V> &model) {
  CompareSide<V>(dynamic.min_list, model.below);
  CompareSide<V>(dynamic.max_list, model.above);
  const auto &range = *dynamic.range_counters;
  ZOR_REQUIRE(std::equal(model.range.counts.begin(), model.range.counts.end(), range.pu16_counters));
}

template <class V>
void DynamicCounters(Input &in) {
  using A = Api<V>;
  typename A::RangeCounters range = {};
  V start = in.Value<V>(), last = in.Value<V>();
  if (last < start) std::swap(start, last);
  const auto nsc = static_cast<std::uint16_t>(1 + in.Below(60)), cap = static_cast<std::uint16_t>(in.Below(30));
  ZOR_REQUIRE(A::RangeInit(&range, start, last, nsc) == 0);
  typename A::DynamicCounters dynamic;
  A::DynamicInit(&dynamic, &range, cap);
  const Wanted wanted(in);
  WholeModel<V> model(start, last, nsc, cap);
  ZOR_REQUIRE(dynamic.Range == model.step && dynamic.MaxNdc == cap);
  bool bare = true;
  ForEachSample<V>(in, start, last, [&](V value) {
    std::int32_t code = A::DynamicInsert(&dynamic, value);
    ZOR_REQUIRE((code == -2) == (value >= model.range.start && value < model.range.end));
    if (code == -2) code = A::RangeInsert(&range, value);
    ZOR_REQUIRE(code == model.Insert(value));
    if (bare && value < model.range.start && value % 8 == 0) {  // as after very many samples
      bare = false;
      if (dynamic.min_list.head) {
        dynamic.min_list.head->Count = static_cast<std::uint16_t>(model.below.nodes.begin()->second = kFull - 1);
      }
      dynamic.min_list.exceptions = static_cast<std::uint16_t>(model.below.exceptions = kFull - 1);
    }
  });
  CompareWhole<V>(dynamic, model);
  // Buckets wider than half of a signed type cannot be looked into.
  if (model.total != 0 && bare && model.step <= kMax<V>) {
    CompareLookups<V>(wanted, A::DynamicFind, &dynamic, model.min, model.max, model.Lookup(), 0);
  }
  A::DynamicPrint(&dynamic);
  A::DynamicUninit(&dynamic);
  std::free(range.pu16_counters);
}

template <class V>
void Analyzer(Input &in) {
  using A = Api<V>;
  typename A::Analyzer analyzer = {};
  const std::uint32_t expected = in.OneIn(2) ? in.Take<std::uint16_t>() % 3000 : in.Below(20);
  const auto nsc = static_cast<std::uint16_t>(in.Below(60)), cap = static_cast<std::uint16_t>(in.Below(12));
  const bool ends_early = in.OneIn(4);
  ZOR_REQUIRE(A::AnalyzerInit(&analyzer, expected, nsc, cap) == (expected == 0 ? 1u : 0u));
  if (expected == 0) return;
  const Wanted wanted(in);
  std::vector<V> learnt;
  std::optional<WholeModel<V>> model;
  Wide total = 0;
  ForEachSample<V>(in, 0, 0, [&](V value) {
    const std::uint32_t stage = analyzer.stage;
    const std::int32_t code = A::AnalyzerInsert(&analyzer, value);
    if (stage == STATS_ANALYZER_LEARNING) {
      ZOR_REQUIRE(code == 0);
      learnt.push_back(value);
      if (ends_early && learnt.size() == expected / 2) A::AnalyzerClear(&analyzer);
      if (learnt.size() < expected && !(ends_early && learnt.size() == expected / 2)) {
        ZOR_REQUIRE(analyzer.stage == STATS_ANALYZER_LEARNING);
        return;
      }
      ZOR_REQUIRE(analyzer.stage == (nsc == 0 ? STATS_ANALYZER_ERROR : STATS_ANALYZER_ANALYZING));
      if (nsc == 0) return;
      V min, max, low, high;
      ZOR_REQUIRE(A::LearnerRange(&analyzer.learner, &min, &max, &low, &high) == 1);
      model.emplace(low, high, nsc, cap);
      ZOR_REQUIRE(analyzer.range_counters.Start == low && analyzer.range_counters.End == model->range.end);
    } else if (stage == STATS_ANALYZER_ERROR) {
      ZOR_REQUIRE(code == -3);
    } else {
      ZOR_REQUIRE(code == model->Insert(value));
      if (total + value >= kMin<typename A::Total> && total + value <= kMax<typename A::Total>) total += value;
      ZOR_REQUIRE(analyzer.summary.Vtotal == total);
    }
  });
  typename A::FixedPoint values[9];
  const std::uint32_t code = A::AnalyzerValues(&analyzer, g_stats_percentile_1000, values, g_stats_percentile_size);
  ZOR_REQUIRE(code == (analyzer.stage == STATS_ANALYZER_ANALYZING ? 0u : 1u));
  if (model) {
    CompareWhole<V>(analyzer.dynamic_counters, *model);
    // Unless the sum has refused a sample, the extremes and the count are those of the counters.
    if (model->total != 0 && model->step <= kMax<V> && analyzer.summary.u32_no_of_samples == model->total) {
      ZOR_REQUIRE(analyzer.summary.Vmin == model->min && analyzer.summary.Vmax == model->max);
      for (const auto &value : values) ZOR_REQUIRE(value.thousandths < 1000);
      CompareLookups<V>(wanted, A::DynamicFind, &analyzer.dynamic_counters, model->min, model->max, model->Lookup(),
                        0);
    }
  }
  A::AnalyzerPrint(&analyzer);
  A::AnalyzerUninit(&analyzer);
}

// An instance entry: what becomes of a value before the statistics see it.
template <class V>
void Entry(Input &in) {
  using A = Api<V>;
  constexpr std::uint32_t kTable = A::kTypeCode - 1;
  const std::uint32_t kind = in.Below(3);
  zor_process_object_oper_entry_t oper = {};
  V range[2] = {in.Value<V>(), in.Value<V>()};
  const std::uint32_t flags = in.Below(16), buckets = in.Below(40);
  const bool ranged = in.OneIn(2);
  void *created =
      g_zor_poi_entry_create_funcs[kTable]("key", kind, flags, ranged ? range : nullptr, buckets, 5, &oper);
  const bool distribution = (flags & 6) != 0;
  const bool possible =
      (flags < 8 || flags == 8) && !(distribution && (buckets == 0 || (ranged && range[1] < range[0])));
  ZOR_REQUIRE((created != nullptr) == possible);
  if (created == nullptr) return;
  auto &entry = *static_cast<typename A::Entry *>(created);
  if ((flags & 8) == 0) {
    Wide total = 0;
    std::optional<V> before;
    std::uint32_t taken = 0, in_buckets = 0, ended = 7;
    while (!in.empty()) {
      std::uint8_t cell[sizeof(V) + 1];  // of any alignment
      const V raw = in.Value<V>();
      std::memcpy(cell + 1, &raw, sizeof raw);
      const std::int32_t code = g_zor_poi_entry_insert_funcs[kTable](created, cell + 1, &ended);
      V sample = raw;
      if (kind == 1) {
        const bool primes = !before;
        const UnsignedWide difference = static_cast<UnsignedWide>(Wide{raw} - before.value_or(0));
        before = raw;
        if (primes) {
          ZOR_REQUIRE(code == 0);
          continue;
        }
        sample = static_cast<V>(static_cast<typename A::Unsigned>(difference));
      }
      ++in_buckets;
      const Wide sum = total + sample;
      const bool fits = sum >= kMin<typename A::Total> && sum <= kMax<typename A::Total>;
      ZOR_REQUIRE(code == (entry.summary && !fits ? 1 : 0));
      if (fits) ++taken, total = sum;
    }
    ZOR_REQUIRE((entry.summary != nullptr) == ((flags & 5) != 0) && ended == 7);
    if (entry.summary) ZOR_REQUIRE(entry.summary->Vtotal == total && entry.summary->u32_no_of_samples == taken);
    if (distribution) ZOR_REQUIRE(entry.range_counters->u16_no_of_samples == in_buckets % 65536);
    g_zor_poi_entry_clear_funcs[kTable](7, created, 0);
    if (entry.summary) ZOR_REQUIRE(entry.summary->u32_no_of_samples == 0 && entry.summary->Vtotal == 0);
  }
  g_zor_poi_entry_destroy_funcs[kTable](created);
}

template <class V>
void RunFamily(Input &in) {
  constexpr void (*kFamilies[])(Input &) = {BucketModel<V>,   SummaryOf<V>, SortedArray<V>, PercentileValues<V>,
                                            RangeCounters<V>, Learner<V>,   Entry<V>,       DynamicCounters<V>,
                                            Analyzer<V>};
  kFamilies[in.Below(std::size(kFamilies))](in);
}

}  // namespace
}  // namespace zor_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace zor_fuzz;
  SilenceStandardOutput();
  Input in(data, size);
  constexpr void (*kTypes[])(Input &) = {RunFamily<std::int32_t>, RunFamily<std::uint32_t>, RunFamily<std::int64_t>,
                                         RunFamily<std::uint64_t>};
  kTypes[in.Below(4)](in);
  return 0;
}
