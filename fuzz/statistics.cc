// The statistics of all four types on random streams, held against the samples themselves: sums in 128 bits, sorted
// samples for ranks, counts by bucket.

#include <map>
#include <vector>

#include "input.h"
#include "tests/api.h"

namespace zor_fuzz {
namespace {

__extension__ using Wide = __int128;

template <class V>
constexpr Wide kMin = std::numeric_limits<V>::min();
template <class V>
constexpr Wide kMax = std::numeric_limits<V>::max();

// The running counts of the bucket model as it is told: the samples of a run of values with the weights 1 to
// `size`, rising, or the other way round.
void Run(std::vector<std::uint64_t> &counts, std::uint64_t size, std::uint64_t samples, bool rising) {
  const std::uint64_t all = size * (size + 1) / 2, before = counts.empty() ? 0 : counts.back();
  std::uint64_t weights = 0;
  for (std::uint64_t j = 1; j <= size; ++j) {
    weights += rising ? j : size - j + 1;
    counts.push_back(before + (weights * samples + (rising ? 0 : all - 1)) / all);
  }
}

// One bucket: where its k-th sample and the next one lie.
template <class V>
void Bucket(Input &in) {
  using U = typename Api<V>::Unsigned;
  const V lowest = in.Value<V>();
  const U distance = in.OneIn(3) ? in.Value<U>() : in.OneIn(2) ? in.Below(5) : in.Take<std::uint16_t>() % 3000;
  const V highest = static_cast<V>(static_cast<U>(lowest) + distance);
  const auto samples = in.Value<std::uint32_t>() >> in.Below(32);
  const auto below = in.Value<std::uint32_t>() >> in.Below(32);
  const auto total = in.OneIn(2) ? in.Value<std::uint32_t>() : below + samples;
  const auto k = in.OneIn(4) ? in.Value<std::uint32_t>() : samples ? in.Take<std::uint32_t>() % samples + 1 : 0;
  V vk = 7, vk1 = 7;
  const std::uint32_t code = Api<V>::GetVkVk1(below, total, lowest, highest, k, samples, &vk, &vk1);
  const Wide width = Wide{highest} - lowest + 1;
  if (width < 1 || k > samples) return ZOR_REQUIRE(code == 2 && vk == 0 && vk1 == 0);
  ZOR_REQUIRE(code <= 1 && vk >= lowest && vk <= highest);
  ZOR_REQUIRE(code == 1 ? vk1 == 0 : vk1 == vk || Wide{vk1} == Wide{vk} + 1);
  if (width > 4000) return;

  std::vector<std::uint64_t> counts;  // of the samples up to a value
  const auto size = static_cast<std::uint64_t>(width);
  const bool rising = below + samples < total / 2, falling = !rising && below > total / 2;
  if (size == 1 || rising || falling) {
    Run(counts, size, samples, !falling);
  } else {
    Run(counts, size / 2, samples / 2, true);
    Run(counts, size - size / 2, samples - samples / 2, false);
  }
  const auto at = std::lower_bound(counts.begin(), counts.end(), k) - counts.begin();
  ZOR_REQUIRE(Wide{vk} - lowest == at);
  const bool ends = counts[static_cast<std::size_t>(at)] == k;
  const bool followed = samples > k && (rising || falling) && at + 1 < width;
  ZOR_REQUIRE(code == (ends && !followed ? 1u : 0u));
  ZOR_REQUIRE(code == 1 || Wide{vk1} - vk == (ends ? 1 : 0));
}

template <class V>
void Summary(Input &in) {
  using Total = typename Api<V>::Total;
  typename Api<V>::Summary summary = {};
  if (in.OneIn(2)) summary = {0, 0, in.Value<Total>(), 1 + in.Take<std::uint32_t>() / 2};  // in a long life
  Wide total = summary.Vtotal, min = summary.Vmin, max = summary.Vmax;
  std::uint32_t count = summary.u32_no_of_samples;
  while (!in.empty()) {
    const V value = in.Value<V>();
    const bool fits = total + value >= kMin<Total> && total + value <= kMax<Total>;
    ZOR_REQUIRE(Api<V>::SummaryEval(&summary, value) == (fits ? 0u : 1u));
    if (fits) {
      total += value;
      min = count == 0 ? Wide{value} : std::min(min, Wide{value});
      max = count == 0 ? Wide{value} : std::max(max, Wide{value});
      ++count;
    }
    ZOR_REQUIRE(summary.Vtotal == total && summary.u32_no_of_samples == count);
    ZOR_REQUIRE(summary.Vmin == min && summary.Vmax == max);
  }
  Api<V>::SummaryPrint(&summary);
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
    const U value =
        static_cast<U>(pick == 6 ? end : middle) + (pick == 7 ? 0 : static_cast<U>(in.Take<std::int8_t>()));
    std::uint32_t repeat = in.OneIn(16) ? in.Take<std::uint16_t>() % 2000 : 1;
    const U spread = repeat > 1 ? static_cast<U>(in.Take<std::uint32_t>()) >> in.Below(32) : 0;
    std::uint64_t random = spread;
    for (; repeat > 0 && left > 0; --repeat, --left) {
      random = random * 6364136223846793005 + 1442695040888963407;
      function(static_cast<V>(value + (spread == 0 ? 0 : static_cast<U>(random >> 33) % spread)));
    }
  }
}

// A learner keeps the tails of its samples, and cuts off 0.13 % at each end.
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
    const bool complete = sorted.size() == expected;
    ZOR_REQUIRE(A::LearnerLearn(&learner, value) == complete && learner.got == sorted.size());
    V min = 0, max = 0, low = 0, high = 0;
    ZOR_REQUIRE(A::LearnerRange(&learner, &min, &max, &low, &high) == complete);
    std::uint32_t cursor = 0, rank = 1;
    V vk, vk1;
    const auto find = [&] {
      return A::LearnerFind(&learner, &rank, expected, min, max, &vk, &vk1, nullptr, 1, &cursor);
    };
    if (!complete) return ZOR_REQUIRE(find() == 2);
    ZOR_REQUIRE(min == sorted.front() && max == sorted.back() && low <= high && min <= low && high <= max);
    if (expected < 4) return;
    ZOR_REQUIRE(low == sorted[cut] && high == sorted[expected - 1 - cut]);
    for (std::uint32_t i = 0; i < 20; ++i) {
      rank = i < 10 ? i : expected - std::min(rest.Below(9), expected);
      const bool in_a_tail = rank <= 1 || rank == expected || rank < size || expected - rank < size;
      ZOR_REQUIRE(find() == (in_a_tail ? 0u : 2u) && cursor == in_a_tail);
      cursor = 0;
      if (!in_a_tail || rank > expected) continue;
      ZOR_REQUIRE(vk == sorted[std::max(rank, 1u) - 1]);
      ZOR_REQUIRE(vk1 == (rank <= 1 ? min : rank == expected ? max : sorted[rank]));
    }
  });
  A::LearnerPrint(&learner);
  A::LearnerUninit(&learner);
  ZOR_REQUIRE(learner.expected == 0 && learner.got == 0 && learner.lowest.p_values == nullptr);
}

// All ranks of a distribution are found, in order, each in the bucket that its sample was counted in; the extremes
// are exact. bucket_of gives the bounds of that bucket. One rank is looked for elsewhere: docs/percentiles.md,
// "What surprises". Where it comes to a stop, no later rank is found.
template <class V, class Find, class BucketOf>
void CheckRanks(Find find, void *record, std::vector<V> samples, bool is_dynamic, std::uint32_t elsewhere, bool all,
                BucketOf bucket_of) {
  std::sort(samples.begin(), samples.end());
  const auto n = static_cast<std::uint32_t>(samples.size());
  std::vector<std::uint32_t> ranks;
  for (std::uint32_t rank = 1; rank <= n; rank += 1 + n / 50) ranks.push_back(rank);
  std::vector<V> vk(ranks.size()), vk1(ranks.size());
  std::uint32_t below = 0, cursor = 0;
  const auto count = static_cast<std::uint32_t>(ranks.size());
  const V min = samples.front(), max = samples.back();
  const std::uint32_t code = find(record, ranks.data(), n, min, max, vk.data(), vk1.data(), &below, count, &cursor);
  ZOR_REQUIRE(cursor <= count && code == (cursor == count ? 0u : 2u) && (cursor == count || !all));
  ZOR_REQUIRE(cursor == 0 || (vk[0] == min && vk1[0] == min));
  ZOR_REQUIRE(cursor < count || ranks.back() != n || n == 1 || (vk.back() == max && vk1.back() == max));
  for (std::uint32_t i = 0; i < cursor; ++i) {
    if (ranks[i] == elsewhere) continue;
    const auto [low, high] = bucket_of(samples[ranks[i] - 1]);
    const auto next = bucket_of(samples[std::min(ranks[i], n - 1)]);
    ZOR_REQUIRE(vk[i] >= low && vk[i] <= high && (is_dynamic || vk1[i] <= next.second + 1));
    ZOR_REQUIRE(i == 0 || ranks[i] == n || vk1[i] >= low);
  }
}

// Range counters, with dynamic counters around them or without: what is counted where, then the ranks.
template <class V>
void Distribution(Input &in) {
  using A = Api<V>;
  typename A::RangeCounters range = {};
  typename A::DynamicCounters dynamic = {};
  const V start = in.Value<V>(), last = in.Value<V>();
  const auto nsc = static_cast<std::uint16_t>(in.OneIn(8) ? in.Value<std::uint16_t>() : in.Below(100));
  const bool is_dynamic = in.OneIn(2);
  const std::uint32_t cap = in.Below(30);
  const std::uint32_t code = A::RangeInit(&range, start, last, nsc);
  ZOR_REQUIRE(code == (nsc == 0 ? 1u : last < start ? 2u : 0u));
  if (code != 0) return;
  if (is_dynamic) A::DynamicInit(&dynamic, &range, static_cast<std::uint16_t>(cap));
  const Wide end = last == kMax<V> ? Wide{last} : Wide{last} + 1, width = end - start;
  const Wide step = std::max((width + nsc - 1) / nsc, Wide{1});
  ZOR_REQUIRE(range.Start == start && range.End == end && (!is_dynamic || dynamic.Range == step));
  const auto index = [&](V v) {  // zor/range_counters.h
    const Wide offset = Wide{v} - start;
    const Wide at = v < range.Vexact_end ? offset * nsc / width : width / nsc ? offset / (width / nsc) : 0;
    return static_cast<std::size_t>(std::min(at, Wide{nsc} - 1));
  };
  const auto node = [&](V v) {  // where the bucket of a value outside starts: zor/dynamic_counters.h
    if (v >= end) return end + (v - end) / step * step;
    return std::max(start - (start - Wide{v} + step - 1) / step * step, kMin<V>);
  };
  std::vector<std::uint32_t> counts(nsc);
  std::map<Wide, std::uint32_t> nodes, kept;
  std::uint32_t under = 0, over = 0;
  std::vector<V> samples;
  ForEachSample<V>(in, start, last, [&](V v) {
    const bool inside = v >= start && v < end;
    std::int32_t expected = inside ? 0 : v < start ? -1 : 1;
    if (inside) {
      ++counts[index(v)];
    } else if (is_dynamic && (nodes.count(node(v)) || nodes.size() < cap)) {
      ++nodes[node(v)];
      expected = 0;
    } else {
      ++(v < start ? under : over);
      if (is_dynamic) expected = 2;
    }
    ZOR_REQUIRE((inside || !is_dynamic ? A::RangeInsert(&range, v) : A::DynamicInsert(&dynamic, v)) == expected);
    ZOR_REQUIRE(!is_dynamic || !inside || A::DynamicInsert(&dynamic, v) == -2);
    samples.push_back(v);
  });
  ZOR_REQUIRE(std::equal(counts.begin(), counts.end(), range.pu16_counters));
  for (const auto *list : {&dynamic.min_list, &dynamic.max_list}) {
    for (const auto *at = list->head; at; at = at->next) kept[at->Vstart] = at->Count;
  }
  ZOR_REQUIRE(kept == nodes && dynamic.min_list.length + dynamic.max_list.length == nodes.size());
  ZOR_REQUIRE(under == (is_dynamic ? dynamic.min_list.exceptions : range.u16_min_exception_counter));
  ZOR_REQUIRE(over == (is_dynamic ? dynamic.max_list.exceptions : range.u16_max_exception_counter));
  // Exact bounds need the product of width and buckets; beyond the cap exceptions lie outside all buckets.
  const bool exact = step <= kMax<V> && width * nsc <= kMax<typename A::Unsigned>;
  const bool all = !is_dynamic || under + over == 0;
  if (!samples.empty() && exact) {
    const auto bucket = [&](V v) -> std::pair<Wide, Wide> {
      if (v >= start && v < end) {  // its sub-range, or what rounding leaves beside it
        const auto at = static_cast<Wide>(index(v));
        return {start + at * width / nsc - 4, start + ((at + 1) * width + nsc - 1) / nsc + 1};
      }
      if (!all) return {kMin<V>, kMax<V>};
      if (is_dynamic) return {node(v), std::min(node(v) + step - 1, kMax<V>)};
      return v < start ? std::pair(kMin<V>, Wide{start}) : std::pair(end, kMax<V>);
    };
    if (is_dynamic) {
      CheckRanks<V>(A::DynamicFind, &dynamic, samples, true, 0, all, bucket);
    } else {
      CheckRanks<V>(A::RangeFind, &range, samples, false, under, true, bucket);
    }
  }
  A::RangePrint(&range);
  if (is_dynamic) A::DynamicPrint(&dynamic);
  if (is_dynamic) A::DynamicUninit(&dynamic);
  std::free(range.pu16_counters);
}

template <class V>
void RunOne(Input &in) {
  constexpr void (*kFamilies[])(Input &) = {Bucket<V>,  Bucket<V>,       Summary<V>,
                                            Learner<V>, Distribution<V>, Distribution<V>};
  kFamilies[in.Below(std::size(kFamilies))](in);
}

}  // namespace
}  // namespace zor_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace zor_fuzz;
  SilenceStandardOutput();
  Input in(data, size);
  constexpr void (*kTypes[])(Input &) = {RunOne<std::int32_t>, RunOne<std::uint32_t>, RunOne<std::int64_t>,
                                         RunOne<std::uint64_t>};
  kTypes[in.Below(4)](in);
  return 0;
}
