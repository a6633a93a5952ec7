#ifndef ZOR_STATS_SORTED_ARRAY_H_
#define ZOR_STATS_SORTED_ARRAY_H_

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "base/text.h"
#include "base/value_types.h"

namespace zor {

template <class V>
void MoveLastDown(SortedArray<V> &array) {
  V *values = array.p_values;
  for (std::uint32_t i = array.Valid_Length - 1; i > 0 && values[i - 1] > values[i]; --i) {
    std::swap(values[i - 1], values[i]);
  }
}

template <class V>
void MoveFirstUp(SortedArray<V> &array) {
  V *values = array.p_values;
  for (std::uint32_t i = 1; i < array.Valid_Length && values[i - 1] > values[i]; ++i) {
    std::swap(values[i - 1], values[i]);
  }
}

template <class V>
std::uint32_t InitSortedArray(SortedArray<V> &array, std::uint32_t size) {
  if (size == 0) return 1;
  array.p_values = static_cast<V *>(std::malloc(size * sizeof(V)));
  if (!array.p_values) return 2;
  array.Size = size;
  array.Valid_Length = 0;
  return 0;
}

template <class V>
void UninitSortedArray(SortedArray<V> &array) {
  std::free(array.p_values);
  array = {};
}

// See stats_sorted_array_adv_insert_<type> in zor/sorted_array.h.
template <class V>
std::uint32_t InsertSorted(SortedArray<V> &array, V value, std::int32_t mode, std::uint32_t *was_full,
                           V *out_value) {
  const auto hand_out = [&](V out) {
    if (was_full) *was_full = 1;
    if (out_value) *out_value = out;
  };
  if (was_full) *was_full = 0;
  if (array.Valid_Length < array.Size) {
    array.p_values[array.Valid_Length++] = value;
    MoveLastDown<V>(array);
    return 0;
  }
  V &smallest = array.p_values[0];
  V &largest = array.p_values[array.Valid_Length - 1];
  switch (mode) {
    case STATS_SORTED_ARRAY_REFUSE:
      return 1;
    case STATS_SORTED_ARRAY_KEEP_SMALLEST:
      if (value < largest) {
        hand_out(std::exchange(largest, value));
        MoveLastDown<V>(array);
        return 0;
      }
      break;
    case STATS_SORTED_ARRAY_KEEP_LARGEST:
      if (value > smallest) {
        hand_out(std::exchange(smallest, value));
        MoveFirstUp<V>(array);
        return 0;
      }
      break;
    default:
      return 0;
  }
  hand_out(value);
  return 1;
}

template <class V>
void PrintSortedArray(const SortedArray<V> &array) {
  std::printf("Sorted-Array => Size = %u, Valid-Length = %u\n", array.Size, array.Valid_Length);
  std::printf("Sorted-Array-Content => ");
  for (std::uint32_t i = 0; i < array.Valid_Length; ++i) std::printf("[%s]", ToText(array.p_values[i]).chars);
  std::printf("\n");
}

}  // namespace zor

#endif  // ZOR_STATS_SORTED_ARRAY_H_
