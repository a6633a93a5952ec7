#include "entry/sections.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "base/print.h"
#include "base/text.h"
#include "entry/console.h"
#include "stats/analyzer.h"
#include "stats/percentile.h"
#include "stats/summary.h"

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
constexpr string_view kComma = ", ";
constexpr string_view kLineEnd = "\r\n";

// One value for each of the standard points.
template <class V>
using PointValues = std::array<FixedPoint<V>, std::size(g_stats_percentile_1000)>;

// A text that grows as it is written: of texts, numbers, and arrays of numbers, each behind a comma. It lies on the
// stack until it is too long for that, which takes long names.
class TextBuilder {
 public:
  TextBuilder() = default;
  TextBuilder(const TextBuilder &) = delete;
  TextBuilder &operator=(const TextBuilder &) = delete;
  ~TextBuilder() {
    if (chars_ != short_) std::free(chars_);
  }

  template <class... Pieces>
  void Append(const Pieces &...pieces) {
    if ((SizeOf(pieces) + ...) > capacity_ - size_ && !Grow((SizeOf(pieces) + ...))) return;
    char *end = chars_ + size_;
    ((end = Put(end, pieces)), ...);
    size_ = static_cast<std::size_t>(end - chars_);
  }

  // What append() appends, which is always the same: later times copy it from the first.
  template <class AppendFirst>
  void AppendRepeated(AppendFirst append) {
    if (repeated_size_ != 0 && repeated_size_ <= capacity_ - size_) {
      std::memcpy(chars_ + size_, chars_ + repeated_, repeated_size_);
      size_ += repeated_size_;
      return;
    }
    repeated_ = size_;
    append();
    repeated_size_ = size_ - repeated_;
  }

  void Clear() { size_ = 0; }

  // A copy from malloc in its exact size, ended by NUL; null without memory, for it or while the text grew.
  char *Copy() const {
    auto *copy = is_cut_ ? nullptr : static_cast<char *>(std::malloc(size_ + 1));
    if (!copy) return nullptr;
    std::memcpy(copy, chars_, size_);
    copy[size_] = '\0';
    return copy;
  }

 private:
  // Of a number at most.
  static std::size_t SizeOf(string_view piece) { return piece.size(); }
  template <class Number>
  static std::size_t SizeOf(const Number &) {
    return kNumberSize;
  }
  template <class Value, std::size_t kCount>
  static std::size_t SizeOf(const std::array<Value, kCount> &) {
    return kCount * (kComma.size() + kNumberSize);
  }
  static char *Put(char *end, string_view piece) {
    std::memcpy(end, piece.data(), piece.size());
    return end + piece.size();
  }
  template <class Number>
  static char *Put(char *end, const Number &number) {
    return WriteNumber(end, number);
  }
  template <class Value, std::size_t kCount>
  static char *Put(char *end, const std::array<Value, kCount> &values) {
    for (const Value &value : values) end = WriteNumber(Put(end, kComma), value);
    return end;
  }

  [[gnu::cold]] bool Grow(std::size_t more) {
    const std::size_t capacity = 2 * (size_ + more);
    const bool was_short = chars_ == short_;
    auto *grown = is_cut_ ? nullptr : static_cast<char *>(std::realloc(was_short ? nullptr : chars_, capacity));
    is_cut_ = !grown;
    if (is_cut_) return false;
    if (was_short) std::memcpy(grown, short_, size_);
    chars_ = grown;
    capacity_ = capacity;
    return true;
  }

  char short_[1024];
  char *chars_ = short_;
  std::size_t size_ = 0;
  std::size_t repeated_ = 0;  // where it begins
  std::size_t repeated_size_ = 0;
  std::size_t capacity_ = sizeof short_;
  bool is_cut_ = false;  // without memory for a piece
};

// What follows a section: the next one, or the end of the text, or that of the call with null.
enum class Then { kNextSection, kEndText, kFail };

// All records of a text have the same time and names.
template <class V>
void AppendRecordHead(TextBuilder &text, const Rendering<V> &r, string_view kind, std::uint32_t samples) {
  text.Append(string_view(r.dg_name), kind);
  text.AppendRepeated([&] {
    text.Append(r.seconds, kComma, string_view(r.object_name), kComma, string_view(r.entry.name), kComma);
  });
  text.Append(samples);
}

// Appends the record of a section of nine values, which estimate(values) works out.
template <class V, class EstimateValues>
Then WriteValues(TextBuilder &text, const Rendering<V> &r, string_view kind, std::uint32_t samples,
                 EstimateValues estimate) {
  AppendRecordHead(text, r, kind, samples);
  PointValues<V> values;
  if (samples != 0) {
    if (IsOutOfMemory(estimate(values.data()))) return Then::kFail;
    text.Append(values);
  }
  text.Append(kLineEnd);
  return samples != 0 ? Then::kNextSection : Then::kEndText;
}

template <class V>
bool KeepsSummary(const Rendering<V> &r) {
  return r.entry.summary;
}

template <class V>
Then WriteSummary(TextBuilder &text, const Rendering<V> &r) {
  const Summary<V> &summary = *r.entry.summary;
  AppendRecordHead(text, r, "-summary: ", summary.u32_no_of_samples);
  if (summary.u32_no_of_samples != 0) {
    text.Append(kComma, summary.Vmin, kComma, summary.Vmax, kComma, Average<V>(summary));
  }
  text.Append(kLineEnd);
  return Then::kNextSection;
}

template <class V>
void ClearSummary(Entry<V> &entry) {
  if (entry.summary) *entry.summary = {};
}

// A distribution has no record, so that it is missed on the console alone.
template <class V>
bool KeepsDistribution(const Rendering<V> &r) {
  return !r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE) || (r.entry.range_counters && r.entry.range_counters->Nsc >= 2);
}

template <class V>
void ClearDistribution(Entry<V> &entry) {
  if (entry.range_counters) ClearRangeCounters<V>(*entry.range_counters);
}

template <class V>
bool KeepsPercentiles(const Rendering<V> &r) {
  return r.entry.summary && r.entry.range_counters;
}

template <class V>
Then WritePercentiles(TextBuilder &text, const Rendering<V> &r) {
  return WriteValues(text, r, "-percentile: ", r.entry.summary->u32_no_of_samples, [&r](FixedPoint<V> *values) {
    return EstimateDistribution<V>(r.entry, g_stats_percentile_1000, values, g_stats_percentile_size);
  });
}

template <class V>
bool KeepsBaseline(const Rendering<V> &r) {
  return r.entry.analyzer;
}

template <class V>
Then WriteBaseline(TextBuilder &text, const Rendering<V> &r) {
  Analyzer<V> &analyzer = *r.entry.analyzer;
  return WriteValues(
      text, r, "-baseline: ", analyzer.summary.u32_no_of_samples, [&analyzer](FixedPoint<V> *values) {
        return EstimateBaseline<V>(analyzer, g_stats_percentile_1000, values, g_stats_percentile_size);
      });
}

template <class V>
struct Section {
  std::uint16_t flag;
  bool (*is_kept)(const Rendering<V> &);
  const char *if_missing;                              // console line where it is not kept, or null
  string_view header;                                  // of its records, behind the data group's name
  Then (*write)(TextBuilder &, const Rendering<V> &);  // its record; null: none
  bool (*print)(const Rendering<V> &);                 // its console lines; false without memory
  void (*clear)(Entry<V> &);                           // null: a clear does nothing of its own to it
};

constexpr const char *kNotConfigured = "Not configured\n";

// In the order of output.
template <class V>
constexpr Section<V> kSections[] = {
    {ZOR_PROCESS_FLAG_SUMMARY, KeepsSummary<V>, kNotConfigured, kSummaryHeader, WriteSummary<V>, PrintSummaryRow<V>,
     ClearSummary<V>},
    {ZOR_PROCESS_FLAG_DISTRIBUTION, KeepsDistribution<V>, nullptr, "", nullptr, PrintDistribution<V>,
     ClearDistribution<V>},
    {ZOR_PROCESS_FLAG_PERCENTILE, KeepsPercentiles<V>, kNotConfigured, kPercentileHeader, WritePercentiles<V>,
     PrintPercentileList<V>, nullptr},
    {ZOR_PROCESS_FLAG_BASELINE, KeepsBaseline<V>, nullptr, kBaselineHeader, WriteBaseline<V>, PrintBaseline<V>,
     nullptr},
};

// The flags of all sections, or of those that a clear does something to.
template <class V>
constexpr std::uint32_t FlagsOfSections(bool only_cleared) {
  std::uint32_t flags = 0;
  for (const Section<V> &section : kSections<V>) flags |= !only_cleared || section.clear ? section.flag : 0u;
  return flags;
}

template <class V>
Then RenderSection(const Section<V> &section, TextBuilder &text, const Rendering<V> &r) {
  const bool on_console = r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE);
  if (!section.is_kept(r)) {
    if (on_console && section.if_missing) EmitLine("%s", section.if_missing);
    return Then::kFail;
  }
  if (section.write && r.Wants(ZOR_PROCESS_OUTPUT_SCHEMA_DEF))
    text.Append(string_view("Schema-def "), string_view(r.dg_name), section.header);
  Then then = Then::kNextSection;
  if (section.write && r.Wants(ZOR_PROCESS_OUTPUT_RECORD)) then = section.write(text, r);
  if (then == Then::kNextSection && on_console && !section.print(r)) return Then::kFail;
  return then;
}

}  // namespace

template <class V>
char *RenderEntry(const Rendering<V> &r) {
  TextBuilder text;
  for (const Section<V> &section : kSections<V>) {
    if (!(r.flags & section.flag)) continue;
    const Then then = RenderSection(section, text, r);
    if (then == Then::kFail) return nullptr;
    if (then == Then::kEndText) break;
  }
  if (r.Wants(ZOR_PROCESS_OUTPUT_CONSOLE)) text.Clear();
  return text.Copy();
}

template <class V>
void ClearStatistics(std::uint32_t selection, Entry<V> &entry) {
  for (const Section<V> &section : kSections<V>) {
    if (section.clear && (selection & section.flag)) section.clear(entry);
  }
}

// What callers select by, the C++ header among them, knows every section.
static_assert(FlagsOfSections<std::int32_t>(false) == ZOR_PROCESS_FLAGS_ALL,
              "ZOR_PROCESS_FLAGS_ALL is not the flags of all sections");
#ifndef __SANITIZE_ADDRESS__  // with which GCC holds that a function may have the address null
static_assert((FlagsOfSections<std::int32_t>(true) & ~std::uint32_t{ZOR_PROCESS_FLAGS_CLEARED}) == 0,
              "ZOR_PROCESS_FLAGS_CLEARED lacks a statistic that a clear resets");
#endif

#define ZOR_INSTANTIATE(type, value, unsigned_value, total)    \
  template char *RenderEntry<value>(const Rendering<value> &); \
  template void ClearStatistics<value>(std::uint32_t, Entry<value> &);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor
