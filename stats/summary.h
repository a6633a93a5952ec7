#ifndef ZOR_STATS_SUMMARY_H_
#define ZOR_STATS_SUMMARY_H_

#include <cstdint>
#include <cstdio>

#include "base/text.h"
#include "base/value_types.h"

namespace zor {

// Counts a sample. Returns 0, or 1 when the sum would overflow; then nothing changes.
template <class V>
inline std::uint32_t CountInSummary(Summary<V> &summary, V value) {
  typename Types<V>::Total total;
  if (__builtin_add_overflow(summary.Vtotal, value, &total)) return 1;
  if (summary.u32_no_of_samples == 0) {
    summary.Vmin = summary.Vmax = value;
  } else if (value < summary.Vmin) {
    summary.Vmin = value;
  } else if (value > summary.Vmax) {
    summary.Vmax = value;
  }
  summary.Vtotal = total;
  ++summary.u32_no_of_samples;
  return 0;
}

// The average, its magnitude truncated to thousandths; 0 without samples.
template <class V>
FixedPoint<V> Average(const Summary<V> &summary) {
  using Total = typename Types<V>::Total;
  if (summary.u32_no_of_samples == 0) return {};
  const auto count = static_cast<Total>(summary.u32_no_of_samples);
  Total whole = summary.Vtotal / count;
  Total thousandths = summary.Vtotal % count * 1000 / count;
  if (thousandths < 0) {
    --whole;
    thousandths += 1000;
  }
  return {static_cast<V>(whole), static_cast<std::uint16_t>(thousandths)};
}

template <class V>
void PrintSummary(const Summary<V> &summary) {
  std::printf("Vmin = %s, Vmax = %s\n", ToText(summary.Vmin).chars, ToText(summary.Vmax).chars);
  std::printf("Vtotal = %s, u32_no_of_samples = %u\n", ToText(summary.Vtotal).chars, summary.u32_no_of_samples);
  if (summary.u32_no_of_samples != 0) std::printf("%s: %s\n", "Average", ToText(Average<V>(summary)).chars);
}

}  // namespace zor

#endif  // ZOR_STATS_SUMMARY_H_
