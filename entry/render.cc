#include "entry/render.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <optional>
#include <string_view>

#include "base/print.h"
#include "base/text.h"
#include "entry/console.h"
#include "stats/analyzer.h"
#include "stats/percentile.h"
#include "stats/summary.h"
#include "zor/platform.h"

namespace zor {
namespace {

using std::string_view;

constexpr string_view kSummaryHeader =
    "-summary \"%u, %s, %s, %u, %u, %u, %f\"\r\n"
    "       Epochtime Object Instance No-Of-Samples Min Max Average\r\n";
constexpr string_view kPercentileHeader =
    "-percentile \"%u, %s, %s, %u, %f, %f, %f, %f, %f, %f, %f, %f, %f,\"\r\n"
    "       Epochtime Object Instance No-Of-Samples <0.000> <0.013> <2.280> <15.870> <50.000> <84.130> <97.720> "
    "<99.870> <100.000>\r\n";
constexpr string_view kBaselineHeader =
    "-baseline \"%u, %s, %s, %u, %f, %f, %f, %f, %f, %f, %f, %f, %f\"\r\n"
    "       Epochtime Object Instance No-Of-Samples <0.000> <0.013> <2.280> <15.870> <50.000> <84.130> <97.720> "
    "<99.870> <100.000>\r\n";
constexpr string_view kLineEnd = "\r\n";

// A text that is written in two passes over the same pieces: the first only measures, so that the text is allocated
// once in its exact size.
struct TextBuilder {
  char *position = nullptr;  // null in the measuring pass
  std::size_t total = 0;
};

void Append(TextBuilder &text, string_view piece) {
  text.total += piece.size();
  if (!text.position) return;
  std::memcpy(text.position, piece.data(), piece.size());
  text.position += piece.size();
}

template <class... Pieces>
void Append(TextBuilder &text, string_view first, Pieces... rest) {
  Append(text, first);
  (Append(text, string_view(rest)), ...);
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
  // Estimated in the first pass, written in the second.
  std::optional<PointValues<V>> percentiles = std::nullopt;
  std::optional<PointValues<V>> baseline = std::nullopt;

  bool Wants(std::uint16_t output) const { return (mode & output) != 0; }
  bool Selects(std::uint16_t section) const { return (flags & section) != 0; }
};

// What follows a section: the next one, the end of this pass, or the end of the call with null.
enum class Then { kNextSection, kEndPass, kEndCall };

template <class V>
void AppendHeader(TextBuilder &text, const Rendering<V> &r, string_view fields) {
  Append(text, "Schema-def ", r.dg_name, fields);
}

template <class V>
void AppendRecordHead(TextBuilder &text, const Rendering<V> &r, string_view kind, std::uint32_t samples) {
  Append(text, r.dg_name, kind, ToText(r.seconds).view(), ", ", r.object_name, ", ", r.entry.name, ", ",
         ToText(samples).view());
}

// Appends the header and the record of a section of nine values, estimating these when they are not yet.
template <class V, class EstimateValues>
Then RenderValues(TextBuilder &text, const Rendering<V> &r, string_view header, string_view kind,
                  std::uint32_t samples, std::optional<PointValues<V>> &values, EstimateValues estimate) {
  if (r.Wants(ZOR_PROCESS_OUTPUT_SCHEMA_DEF)) AppendHeader(text, r, header);
  if (!r.Wants(ZOR_PROCESS_OUTPUT_RECORD)) return Then::kNextSection;
  AppendRecordHead(text, r, kind, samples);
  if (samples == 0) {
    Append(text, kLineEnd);
    return Then::kEndPass;
  }
  if (!values) {
    values.emplace();
    if (IsOutOfMemory(estimate(*values))) return Then::kEndCall;
  }
  for (const FixedPoint<V> &value : *values) Append(text, ", ", ToText(value).view());
  Append(text, kLineEnd);
  return Then::kNextSection;
}

template <class V>
Then RenderSummary(TextBuilder &text, Rendering<V> &r) {
  const Summary<V> *summary = r.entry.summary;
  if (!summary) {
    if (r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) EmitLine("Not configured\n");
    return Then::kEndCall;
  }
  if (r.Wants(ZOR_PROCESS_OUTPUT_SCHEMA_DEF)) AppendHeader(text, r, kSummaryHeader);
  if (r.Wants(ZOR_PROCESS_OUTPUT_RECORD)) {
    AppendRecordHead(text, r, "-summary: ", summary->u32_no_of_samples);
    if (summary->u32_no_of_samples != 0) {
      Append(text, ", ", ToText(summary->Vmin).view(), ", ", ToText(summary->Vmax).view(), ", ",
             ToText(Average<V>(*summary)).view());
    }
    Append(text, kLineEnd);
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
Then RenderPercentiles(TextBuilder &text, Rendering<V> &r) {
  const Summary<V> *summary = r.entry.summary;
  if (!summary || !r.entry.range_counters) {
    if (r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) EmitLine("Not configured\n");
    return Then::kEndCall;
  }
  const auto estimate = [&](PointValues<V> &values) {
    return EstimateDistribution<V>(r.entry, g_stats_percentile_1000, values.data(), g_stats_percentile_size);
  };
  const Then then = RenderValues<V>(text, r, kPercentileHeader, "-percentile: ", summary->u32_no_of_samples,
                                    r.percentiles, estimate);
  if (then != Then::kNextSection || !r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) return then;
  return PrintPercentileList<V>(r.entry, r.percentile) ? Then::kNextSection : Then::kEndCall;
}

template <class V>
Then RenderBaseline(TextBuilder &text, Rendering<V> &r) {
  Analyzer<V> *analyzer = r.entry.analyzer;
  if (!analyzer) return Then::kEndCall;
  const auto estimate = [&](PointValues<V> &values) {
    return EstimateBaseline<V>(*analyzer, g_stats_percentile_1000, values.data(), g_stats_percentile_size);
  };
  const Then then = RenderValues<V>(text, r, kBaselineHeader, "-baseline: ", analyzer->summary.u32_no_of_samples,
                                    r.baseline, estimate);
  if (then == Then::kNextSection && r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) PrintBaseline<V>(r.object_name, r.entry);
  return then;
}

template <class V>
Then RenderPass(TextBuilder &text, Rendering<V> &r) {
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
  Rendering<V> rendering = {output_mode, dg_name, object_name, flags, percentile, entry, now.tv_sec};

  TextBuilder measured;
  if (RenderPass(measured, rendering) == Then::kEndCall) return nullptr;
  auto *text = static_cast<char *>(std::malloc(measured.total + 1));
  if (!text) return nullptr;
  if (rendering.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) {
    *text = '\0';
    return text;
  }
  TextBuilder written = {text};
  RenderPass(written, rendering);  // the same pieces again: it cannot end otherwise
  *written.position = '\0';
  return text;
}

#define ZOR_INSTANTIATE(type, value, unsigned_value, total)                                   \
  template char *RenderEntry<value>(std::uint16_t, const char *, const char *, std::uint16_t, \
                                    const std::uint32_t *, const Entry<value> &);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor
