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
constexpr Wide kLongestShortRun = Wide{1} << 20;
constexpr std::uint64_t kShortRunSamples = std::uint64_t{1} << 23;
constexpr Wide kLongestNarrowRun = Wide{1} << 47;

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

// A run of values over which samples spread with the weights 1, 2, ..., size (rising) or size, ..., 2, 1.
template <class Size>
struct Run {
  bool rising;
  Size size;
  std::uint64_t samples;
  Weights<Size> weights = Triangle(size);
};

// The running count of the run's first j values is the share of its samples that their weights have, rounded down
// when rising and up when falling. It reaches k when weights(j) * samples stands to weights * k, or to
// weights * (k - 1) when falling, as compared here without the division.
template <class Size>
auto Threshold(const Run<Size> &run, std::uint64_t k) {
  return Multiply<Size>(run.weights, run.rising ? k : k - 1);
}

template <class Size, class Threshold>
bool Reaches(const Run<Size> &run, Size j, const Threshold &threshold) {
  if (run.rising) return !(Multiply<Size>(Triangle(j), run.samples) < threshold);
  return threshold < Multiply<Size>(run.weights - Triangle(static_cast<Size>(run.size - j)), run.samples);
}

// Where the running count reaches k, as the root of j(j + 1) / (size(size + 1)) = share, rounded up: exact, or next
// to it.
template <class Size>
Size EstimateFirstHolding(const Run<Size> &run, std::uint64_t k) {
  using Real = std::conditional_t<kWide<Size>, long double, double>;              // 53 or 64 bits of precision
  const Real last = static_cast<Real>(static_cast<std::uint64_t>(run.size - 1));  // counted from 0, to fit 64 bits
  const Real samples = static_cast<Real>(run.samples);
  const Real rank = static_cast<Real>(k);
  const Real share = (run.rising ? rank : samples + 1 - rank) / samples;
  const Real root =
      std::sqrt(share * (last + 1) * (last + 2) + Real{0.25}) + Real{0.5};  // up, when it is cut below
  const Real estimate = run.rising ? root - 1 : last + 2 - root;
  if (!(estimate < last)) return run.size;
  return static_cast<Size>(static_cast<std::uint64_t>(std::max(estimate, Real{0}))) + 1;
}

// The first j whose running count reaches k; the run holds at least k samples, and k is not 0. Searched for in
// steps that double, from the estimate on: two comparisons when it is exact, and few whatever precision the
// processor works with.
template <class Size>
Size FirstHolding(const Run<Size> &run, std::uint64_t k) {
  const auto threshold = Threshold(run, k);
  const Size estimate = EstimateFirstHolding(run, k);
  Size low = 0;  // does not reach k
  Size high = run.size;
  if (Reaches(run, estimate, threshold)) {
    high = estimate;
    for (Size step = 1; step < high; step *= 2) {
      if (!Reaches(run, static_cast<Size>(high - step), threshold)) {
        low = high - step;
        break;
      }
      high -= step;
    }
  } else {
    low = estimate;
    for (Size step = 1; step < high - low; step *= 2) {
      if (Reaches(run, static_cast<Size>(low + step), threshold)) {
        high = low + step;
        break;
      }
      low += step;
    }
  }
  while (high - low > 1) {
    const Size middle = low + (high - low) / 2;
    (Reaches(run, middle, threshold) ? high : low) = middle;
  }
  return high;
}

template <class Size>
Place LocateInRun(const Run<Size> &run, std::uint64_t k) {
  const Size j = k == 0 ? 1 : FirstHolding(run, k);
  return {static_cast<std::uint64_t>(j - 1), Reaches(run, j, Threshold(run, k + 1))};
}

}  // namespace

Place LocateInRun(bool rising, Wide size, std::uint64_t samples, std::uint64_t k) {
  if (size <= kLongestShortRun && samples <= kShortRunSamples) {
    return LocateInRun(Run<std::uint32_t>{rising, static_cast<std::uint32_t>(size), samples}, k);
  }
  if (size > kLongestNarrowRun) return LocateInRun(Run<Wide>{rising, size, samples}, k);
  return LocateInRun(Run<std::uint64_t>{rising, static_cast<std::uint64_t>(size), samples}, k);
}

}  // namespace zor
