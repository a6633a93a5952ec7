#include "stats/summary.h"

#include <cstdio>

#include "base/text.h"

namespace zor {

template <class V>
void PrintSummary(const Summary<V> &summary) {
  std::printf("Vmin = %s, Vmax = %s\n", ToText(summary.Vmin).chars, ToText(summary.Vmax).chars);
  std::printf("Vtotal = %s, u32_no_of_samples = %u\n", ToText(summary.Vtotal).chars, summary.u32_no_of_samples);
  if (summary.u32_no_of_samples != 0) std::printf("%s: %s\n", "Average", ToText(Average<V>(summary)).chars);
}

#define ZOR_INSTANTIATE(type, value, unsigned_value, total) \
  template void PrintSummary<value>(const Summary<value> &);
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_INSTANTIATE)

}  // namespace zor

#define ZOR_DEFINE_SUMMARY(type, value, unsigned_value, total)                               \
  std::uint32_t stats_summary_eval_##type(stats_summary_##type##_t *summary, value sample) { \
    return zor::CountInSummary<value>(*summary, sample);                                     \
  }                                                                                          \
  void stats_summary_print_##type(const stats_summary_##type##_t *summary) { zor::PrintSummary<value>(*summary); }
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_SUMMARY)
