#include "entry/render.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>

#include "entry/console.h"
#include "entry/print.h"
#include "stats/analyzer.h"
#include "stats/percentile.h"
#include "stats/range_counters.h"
#include "stats/summary.h"
#include "stats/text.h"
#include "zor/platform.h"

namespace zor {
namespace {

constexpr char kSummaryHeader[] =
    "Schema-def %s-summary \"%%u, %%s, %%s, %%u, %%u, %%u, %%f\"\r\n"
    "       Epochtime Object Instance No-Of-Samples Min Max Average\r\n";
constexpr char kPercentileHeader[] =
    "Schema-def %s-percentile \"%%u, %%s, %%s, %%u, %%f, %%f, %%f, %%f, %%f, %%f, %%f, %%f, %%f,\"\r\n"
    "       Epochtime Object Instance No-Of-Samples <0.000> <0.013> <2.280> <15.870> <50.000> <84.130> <97.720> "
    "<99.870> <100.000>\r\n";
constexpr char kBaselineHeader[] =
    "Schema-def %s-baseline \"%%u, %%s, %%s, %%u, %%f, %%f, %%f, %%f, %%f, %%f, %%f, %%f, %%f\"\r\n"
    "       Epochtime Object Instance No-Of-Samples <0.000> <0.013> <2.280> <15.870> <50.000> <84.130> <97.720> "
    "<99.870> <100.000>\r\n";

// A text that is written in two passes over the same pieces: the first only measures, so that the text is allocated
// once in its exact size.
struct TextBuilder {
  char *position = nullptr;  // null in the measuring pass
  std::uint32_t room = 0;
  std::uint32_t total = 0;
};

__attribute__((format(printf, 2, 3))) void Append(TextBuilder &text, const char *format, ...) {
  std::va_list args;
  va_start(args, format);
  const auto length = static_cast<std::uint32_t>(std::vsnprintf(text.position, text.room, format, args));
  va_end(args);
  text.total += length;
  if (text.position) {
    text.position += length;
    text.room -= length;
  }
}

// One value for each of the standard points.
template <class V>
using PointValues = std::array<FixedPoint<V>, std::size(g_stats_percentile_1000)>;

template <class V>
struct Rendering {
  std::uint16_t mode;
  const char *dg_name;
  const char *object_name;
  std::uint16_t flags;
  const std::uint32_t *percentile;
  const Entry<V> &entry;
  std::time_t seconds;

  bool Wants(std::uint16_t output) const { return (mode & output) != 0; }
  bool Selects(std::uint16_t section) const { return (flags & section) != 0; }
};

// What follows a section: the next one, the end of this pass, or the end of the call with null.
enum class Then { kNextSection, kEndPass, kEndCall };

template <class V>
void AppendRecordHead(TextBuilder &text, const Rendering<V> &r, const char *kind, std::uint32_t samples) {
  Append(text, "%s-%s: %ld, %s, %s, %u", r.dg_name, kind, r.seconds, r.object_name, r.entry.name, samples);
}

template <class V>
void AppendValues(TextBuilder &text, const PointValues<V> &values) {
  for (const FixedPoint<V> &value : values) Append(text, ", %s", ToText(value).chars);
  Append(text, "\r\n");
}

template <class V>
Then RenderSummary(TextBuilder &text, const Rendering<V> &r) {
  const Summary<V> *summary = r.entry.summary;
  if (!summary) {
    if (r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) EmitLine("Not configured\n");
    return Then::kEndCall;
  }
  if (r.Wants(ZOR_PROCESS_OUTPUT_SCHEMA_DEF)) Append(text, kSummaryHeader, r.dg_name);
  if (r.Wants(ZOR_PROCESS_OUTPUT_RECORD)) {
    AppendRecordHead(text, r, "summary", summary->u32_no_of_samples);
    if (summary->u32_no_of_samples != 0) {
      Append(text, ", %s, %s, %s", ToText(summary->Vmin).chars, ToText(summary->Vmax).chars,
             ToText(Average<V>(*summary)).chars);
    }
    Append(text, "\r\n");
  }
  if (r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) PrintSummaryRow<V>(r.entry);
  return Then::kNextSection;
}

template <class V>
Then RenderDistribution(const Rendering<V> &r) {
  if (!r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE) || PrintDistribution<V>(r.entry)) return Then::kNextSection;
  return Then::kEndCall;
}

template <class V>
Then RenderPercentiles(TextBuilder &text, const Rendering<V> &r) {
  const Summary<V> *summary = r.entry.summary;
  if (!summary || !r.entry.range_counters) {
    if (r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) EmitLine("Not configured\n");
    return Then::kEndCall;
  }
  const std::uint32_t samples = summary->u32_no_of_samples;
  if (r.Wants(ZOR_PROCESS_OUTPUT_SCHEMA_DEF)) Append(text, kPercentileHeader, r.dg_name);
  if (r.Wants(ZOR_PROCESS_OUTPUT_RECORD)) {
    AppendRecordHead(text, r, "percentile", samples);
    if (samples == 0) {
      Append(text, "\r\n");
      return Then::kEndPass;
    }
    PointValues<V> values = {};
    const Estimate estimate =
        EstimatePercentiles<V>(g_stats_percentile_1000, values.data(), values.size(), summary->Vmin, summary->Vmax,
                               samples, FindInRange<V>, r.entry.range_counters);
    if (IsOutOfMemory(estimate)) return Then::kEndCall;
    AppendValues<V>(text, values);
  }
  if (r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE) && !PrintPercentileList<V>(r.entry, r.percentile)) return Then::kEndCall;
  return Then::kNextSection;
}

template <class V>
Then RenderBaseline(TextBuilder &text, const Rendering<V> &r) {
  Analyzer<V> *analyzer = r.entry.analyzer;
  if (!analyzer) return Then::kEndCall;
  const std::uint32_t samples = analyzer->summary.u32_no_of_samples;
  if (r.Wants(ZOR_PROCESS_OUTPUT_SCHEMA_DEF)) Append(text, kBaselineHeader, r.dg_name);
  if (r.Wants(ZOR_PROCESS_OUTPUT_RECORD)) {
    AppendRecordHead(text, r, "baseline", samples);
    if (samples == 0) {
      Append(text, "\r\n");
      return Then::kEndPass;
    }
    PointValues<V> values = {};
    if (IsOutOfMemory(EstimateBaseline<V>(*analyzer, g_stats_percentile_1000, values.data(), values.size()))) {
      return Then::kEndCall;
    }
    AppendValues<V>(text, values);
  }
  if (r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) PrintBaseline<V>(r.object_name, r.entry);
  return Then::kNextSection;
}

template <class V>
Then RenderPass(TextBuilder &text, const Rendering<V> &r) {
  Then then = Then::kNextSection;
  if (r.Selects(ZOR_PROCESS_FLAG_SUMMARY)) then = RenderSummary(text, r);
  if (then == Then::kNextSection && r.Selects(ZOR_PROCESS_FLAG_DISTRIBUTION)) then = RenderDistribution(r);
  if (then == Then::kNextSection && r.Selects(ZOR_PROCESS_FLAG_PERCENTILE)) then = RenderPercentiles(text, r);
  if (then == Then::kNextSection && r.Selects(ZOR_PROCESS_FLAG_BASELINE)) then = RenderBaseline(text, r);
  return then;
}

}  // namespace

template <class V>
char *RenderEntry(std::uint16_t output_mode, const char *dg_name, const char *object_name, std::uint16_t flags,
                  const std::uint32_t *percentile, const Entry<V> &entry) {
  struct timespec now = {};
  kel_time_get_timespec_realtime(&now);
  const Rendering<V> rendering = {output_mode, dg_name, object_name, flags, percentile, entry, now.tv_sec};

  TextBuilder measured;
  if (RenderPass(measured, rendering) == Then::kEndCall) return nullptr;
  const std::size_t size = std::size_t{measured.total} + 1;
  auto *text = static_cast<char *>(std::malloc(size));
  if (!text) return nullptr;
  *text = '\0';
  if (rendering.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) return text;

  TextBuilder written = {text, static_cast<std::uint32_t>(size), 0};
  if (RenderPass(written, rendering) == Then::kEndCall) {
    std::free(text);
    return nullptr;
  }
  return text;
}

#define ZOR_INSTANTIATE(type, value, unsigned_value, total)                                   \
  template char *RenderEntry<value>(std::uint16_t, const char *, const char *, std::uint16_t, \
                                    const std::uint32_t *, const Entry<value> &);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor
