#ifndef ZOR_STATS_SORTED_ARRAY_H_
#define ZOR_STATS_SORTED_ARRAY_H_

#include <cstdint>

#include "base/value_types.h"

namespace zor {

template <class V>
std::uint32_t InitSortedArray(SortedArray<V> &array, std::uint32_t size);
template <class V>
void UninitSortedArray(SortedArray<V> &array);

// See stats_sorted_array_adv_insert_<type> in zor/sorted_array.h.
template <class V>
std::uint32_t InsertSorted(SortedArray<V> &array, V value, std::int32_t mode, std::uint32_t *was_full,
                           V *out_value);

template <class V>
void PrintSortedArray(const SortedArray<V> &array);

}  // namespace zor

#endif  // ZOR_STATS_SORTED_ARRAY_H_
