#include "stats/bucket_model.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace zor {
namespace {

// A product of up to 192 bits: the weights of 2^64 values add up to 2^127 + 2^63, and a count takes 33 more bits.
struct Product {
  Wide high;
  std::uint64_t low;
};

bool operator<(const Product &a, const Product &b) { return a.high != b.high ? a.high < b.high : a.low < b.low; }

// Runs of up to 2^20 values with up to 2^23 samples, which is nearly all of them, have sizes of 32 bits, and do
// with products of 64; those of up to 2^47 values have sizes of 64 bits, and do with 128. Others have sizes of 128
// bits.
constexpr std::uint64_t kLongestShortRun = std::uint64_t{1} << 20;
constexpr std::uint64_t kShortRunSamples = std::uint64_t{1} << 23;
constexpr std::uint64_t kLongestNarrowRun = std::uint64_t{1} << 47;

template <class Size>
constexpr bool kWide = sizeof(Size) == sizeof(Wide);

// 1 + 2 + ... + n. The wide one halves the even one of n and n + 1, without a branch that no one could predict.
std::uint64_t Triangle(std::uint32_t n) { return std::uint64_t{n} * (std::uint64_t{n} + 1) / 2; }
Wide Triangle(std::uint64_t n) { return static_cast<Wide>(n) * (n + 1) / 2; }
Wide Triangle(Wide n) { return (n | 1) * ((n + 1) / 2); }

template <class Size>
using Weights = decltype(Triangle(Size{}));

template <class Size>
std::conditional_t<kWide<Size>, Product, Weights<Size>> Multiply(Weights<Size> weights, std::uint64_t count) {
  if constexpr (!kWide<Size>) {
    return weights * count;
  } else {
    const Wide low = static_cast<Wide>(static_cast<std::uint64_t>(weights)) * count;
    return {(weights >> 64) * count + (low >> 64), static_cast<std::uint64_t>(low)};
  }
}

// A run of values over which samples spread with the weights 1, 2, ..., size. One whose weights fall is this one
// seen from its other end.
template <class Size>
struct Run {
  Size size;
  std::uint64_t samples;
  Weights<Size> weights = Triangle(size);

  // Whether the running count of the first j values, which is the share of the samples that their weights have,
  // comes to k: compared without the division.
  bool Reaches(Size j, std::uint64_t k) const {
    return !(Multiply<Size>(Triangle(j), samples) < Multiply<Size>(weights, k));
  }
};

// Where the running count reaches k, as the root of j(j + 1) / (size(size + 1)) = k / samples, rounded up: exact,
// or next to it.
template <class Size>
Size EstimateFirstHolding(const Run<Size> &run, std::uint64_t k) {
  using Real = std::conditional_t<kWide<Size>, long double, double>;              // 53 or 64 bits of precision
  const Real last = static_cast<Real>(static_cast<std::uint64_t>(run.size - 1));  // counted from 0, to fit 64 bits
  const Real share = static_cast<Real>(k) / static_cast<Real>(run.samples);
  const Real estimate = std::sqrt(share * (last + 1) * (last + 2) + Real{0.25}) - Real{0.5};  // up, as it is cut
  if (!(estimate < last)) return run.size;
  return static_cast<Size>(static_cast<std::uint64_t>(estimate)) + 1;
}

// The first j whose running count reaches k; the run holds at least k samples, and k is not 0. Searched for in
// steps that double, from the estimate on: two comparisons when it is exact, and few whatever precision the
// processor works with.
template <class Size>
Size FirstHolding(const Run<Size> &run, std::uint64_t k) {
  if (k == run.samples) return run.size;  // as in every bucket of one sample
  const Size estimate = EstimateFirstHolding(run, k);
  Size low = 0;  // does not reach k
  Size high = run.size;
  if (run.Reaches(estimate, k)) {
    high = estimate;
    for (Size step = 1; step < high; step *= 2) {
      if (!run.Reaches(static_cast<Size>(high - step), k)) {
        low = high - step;
        break;
      }
      high -= step;
    }
  } else {
    low = estimate;
    for (Size step = 1; step < high - low; step *= 2) {
      if (run.Reaches(static_cast<Size>(low + step), k)) {
        high = low + step;
        break;
      }
      low += step;
    }
  }
  while (high - low > 1) {
    const Size middle = low + (high - low) / 2;
    (run.Reaches(middle, k) ? high : low) = middle;
  }
  return high;
}

template <class Size>
Place LocateRising(const Run<Size> &run, std::uint64_t k) {
  const Size j = k == 0 ? 1 : FirstHolding(run, k);
  return {static_cast<std::uint64_t>(j - 1), run.Reaches(j, k + 1)};
}

// Seen from the other end, the k-th sample is the one that the last `from_end` samples begin with; the next one
// lies at the same value unless the values behind it hold all of these but the first.
template <class Size>
Place LocateFalling(const Run<Size> &run, std::uint64_t k) {
  if (k == 0) return {0, run.samples != 0};
  const std::uint64_t from_end = run.samples - k + 1;
  const Size j = FirstHolding(run, from_end);
  return {static_cast<std::uint64_t>(run.size - j), !run.Reaches(static_cast<Size>(j - 1), from_end - 1)};
}

template <class Size>
Place LocateInShape(Shape shape, Size size, std::uint64_t samples, std::uint64_t k) {
  if (shape == Shape::kRising) return LocateRising(Run<Size>{size, samples}, k);
  if (shape == Shape::kFalling) return LocateFalling(Run<Size>{size, samples}, k);
  const Size half = size / 2;
  const std::uint64_t rising_samples = samples / 2;
  if (k <= rising_samples) return LocateRising(Run<Size>{half, rising_samples}, k);
  Place place =
      LocateFalling(Run<Size>{static_cast<Size>(size - half), samples - rising_samples}, k - rising_samples);
  place.offset += static_cast<std::uint64_t>(half);
  return place;
}

}  // namespace

Place LocateInRun(Shape shape, std::uint64_t last, std::uint64_t samples, std::uint64_t k) {
  if (last < kLongestShortRun && samples <= kShortRunSamples) {
    return LocateInShape(shape, static_cast<std::uint32_t>(last + 1), samples, k);
  }
  if (last < kLongestNarrowRun) return LocateInShape(shape, last + 1, samples, k);
  return LocateInShape(shape, Wide{last} + 1, samples, k);
}

}  // namespace zor
