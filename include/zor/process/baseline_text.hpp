/** @file
 * @brief The records of a baseline as text: what the library prints of them to standard output. */
#ifndef ZOR_PROCESS_BASELINE_TEXT_HPP_
#define ZOR_PROCESS_BASELINE_TEXT_HPP_

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "zor/analyzer.h"

namespace zor::process::detail {

/** total / count, truncated towards zero to thousandths. */
template <class Total>
std::string average_text(Total total, std::uint32_t count) {
  auto magnitude = static_cast<std::uint64_t>(total);
  if (total < 0) magnitude = 0 - magnitude;
  const std::uint64_t whole = magnitude / count;
  const std::string decimals = std::to_string(magnitude % count * 1000 / count);
  const bool is_zero = whole == 0 && decimals == "0";
  return (total < 0 && !is_zero ? "-" : "") + std::to_string(whole) + "." + std::string(3 - decimals.size(), '0') +
         decimals;
}

template <class Summary>
std::string summary_text(const Summary &summary) {
  const std::uint32_t count = summary.u32_no_of_samples;
  std::string text = "Vmin = " + std::to_string(summary.Vmin) + ", Vmax = " + std::to_string(summary.Vmax) + "\n" +
                     "Vtotal = " + std::to_string(summary.Vtotal) +
                     ", u32_no_of_samples = " + std::to_string(count) + "\n";
  if (count != 0) text += "Average: " + average_text(summary.Vtotal, count) + "\n";
  return text;
}

template <class SortedArray>
std::string sorted_array_text(const SortedArray &array) {
  std::string text = "Sorted-Array => Size = " + std::to_string(array.Size) +
                     ", Valid-Length = " + std::to_string(array.Valid_Length) + "\nSorted-Array-Content => ";
  for (std::uint32_t i = 0; i < array.Valid_Length; ++i) text += "[" + std::to_string(array.p_values[i]) + "]";
  return text + "\n";
}

template <class Learner>
std::string learner_text(const Learner &learner) {
  return "Learner data:\nSamples: Expected = " + std::to_string(learner.expected) +
         ", Got = " + std::to_string(learner.got) + "\n" + sorted_array_text(learner.lowest) +
         sorted_array_text(learner.highest);
}

template <class RangeCounters>
std::string range_counters_text(const RangeCounters &range) {
  std::string text = "Counters data:\nStart = " + std::to_string(range.Start) +
                     ", End = " + std::to_string(range.End) + ", Nsc = " + std::to_string(range.Nsc) +
                     "\nNo. of Samples = " + std::to_string(range.u16_no_of_samples) + "\n";
  for (std::size_t i = 0; i < range.Nsc; ++i) {
    const unsigned count = range.pu16_counters[i];
    if (count != 0) text += "Counter[" + std::to_string(i) + "] = " + std::to_string(count) + "\n";
  }
  return text + "Min Exception Counter = " + std::to_string(range.u16_min_exception_counter) +
         "\nMax Exception Counter = " + std::to_string(range.u16_max_exception_counter) + "\n";
}

template <class List>
std::string outside_list_text(const char *name, const List &list) {
  std::string text = name + (" List length = " + std::to_string(list.length)) + "\n";
  for (const auto *node = list.head; node; node = node->next) {
    text += "Vstart = " + std::to_string(node->Vstart) + ", Count = " + std::to_string(node->Count) + "\n";
  }
  return text + "List Exceptions count = " + std::to_string(list.exceptions) + "\n";
}

template <class DynamicCounters>
std::string dynamic_counters_text(const DynamicCounters &counters) {
  using Sample = decltype(counters.min_list.head->Vstart);  // of the samples' type, signed where they are
  return "Dynamic Counters data:\nMaxNdc = " + std::to_string(counters.MaxNdc) +
         ", Range = " + std::to_string(static_cast<Sample>(counters.Range)) +
         ", NdnMin = " + std::to_string(static_cast<Sample>(counters.NdnMin)) + "\n" +
         outside_list_text("Min", counters.min_list) + outside_list_text("Max", counters.max_list);
}

template <class Analyzer>
std::string baseline_text(const Analyzer &analyzer) {
  constexpr const char *kStages[] = {"Learning", "Analyzing", "Error"};
  std::string text =
      std::string("Analyzer: Stage = ") + kStages[analyzer.stage] + "\n" + summary_text(analyzer.summary);
  if (analyzer.stage == STATS_ANALYZER_LEARNING) text += learner_text(analyzer.learner);
  if (analyzer.stage == STATS_ANALYZER_ANALYZING) {
    text += range_counters_text(analyzer.range_counters) + dynamic_counters_text(analyzer.dynamic_counters);
  }
  return text;
}

}  // namespace zor::process::detail

#endif /* ZOR_PROCESS_BASELINE_TEXT_HPP_ */
