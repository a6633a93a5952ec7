#include "entry/console.h"

#include "base/memory.h"
#include "base/print.h"
#include "base/text.h"
#include "stats/analyzer.h"
#include "stats/percentile.h"
#include "stats/summary.h"

namespace zor {
namespace {

template <class V>
FixedPoint<V> Sum(const FixedPoint<V> &a, V whole, unsigned thousandths) {
  const unsigned sum = a.thousandths + thousandths;
  const Unsigned<V> carry = sum >= 1000 ? 1 : 0;
  return {Advance(a.int_part, static_cast<Unsigned<V>>(static_cast<Unsigned<V>>(whole) + carry)),
          static_cast<std::uint16_t>(sum % 1000)};
}

}  // namespace

template <class V>
bool PrintSummaryRow(const Rendering<V> &r) {
  const Summary<V> &summary = *r.entry.summary;
  EmitLine("%-8s%-8s%-12s", ToText(summary.Vmin).chars, ToText(summary.Vmax).chars, ToText(summary.Vtotal).chars);
  EmitLine("%s\n", ToText(Average<V>(summary)).chars);
  return true;
}

template <class V>
bool PrintDistribution(const Rendering<V> &r) {
  using U = Unsigned<V>;
  const RangeCounters<V> &record = *r.entry.range_counters;
  const U nsc = record.Nsc;
  const U span = Distance(record.Start, record.End);
  const auto whole = static_cast<V>(span / nsc);
  const auto thousandths = static_cast<unsigned>(span % nsc * 1000 / nsc);

  EmitLine("\nInstance     Number of  Range               Range\n");
  EmitLine("             buckets    start               end\n");
  EmitLine("-------------------------------------------------------\n");
  EmitName(r.entry.name, 13, "", "\n");
  EmitLine("%-9u%-20s%-20s\n", record.Nsc, ToText(record.Start).chars, ToText(record.End).chars);
  EmitLine("\nBucket    Bucket         Bucket         Count\n");
  EmitLine("Index     Start          End\n");
  EmitLine("------------------------------------------------------\n");

  FixedPoint<V> start = {record.Start, 0};
  for (unsigned b = 1; b <= record.Nsc; ++b) {
    const FixedPoint<V> end = Sum<V>(start, whole, thousandths);
    if (const unsigned count = record.pu16_counters[b - 1]; count != 0) {
      EmitLine("%-10u%s        %s        %-u\n", b, ToText(start).chars, ToText(end).chars, count);
    }
    start = end;
  }
  return true;
}

template <class V>
bool PrintPercentileList(const Rendering<V> &r) {
  const std::uint32_t single = r.percentile ? *r.percentile * 1000 : 0;
  const std::uint32_t *points = r.percentile ? &single : g_stats_percentile_1000;
  const std::uint32_t count = r.percentile ? 1 : g_stats_percentile_size;

  if (r.entry.summary->u32_no_of_samples == 0) {
    EmitLine("No samples\n");
  } else {
    const auto values = AllocateArray<FixedPoint<V>>(count);
    if (!values || IsOutOfMemory(EstimateDistribution<V>(r.entry, points, values.get(), count))) return false;
    PrintPercentiles<V>(points, values.get(), count);
  }
  EmitLine("\n");
  return true;
}

template <class V>
bool PrintBaseline(const Rendering<V> &r) {
  EmitLine("Object: %s, Instance: %s\n", r.object_name, r.entry.name);
  PrintAnalyzer<V>(*r.entry.analyzer);
  return true;
}

#define ZOR_INSTANTIATE(type, value, unsigned_value, total)           \
  template bool PrintSummaryRow<value>(const Rendering<value> &);     \
  template bool PrintDistribution<value>(const Rendering<value> &);   \
  template bool PrintPercentileList<value>(const Rendering<value> &); \
  template bool PrintBaseline<value>(const Rendering<value> &);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor
