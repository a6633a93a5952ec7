// The sections of an entry's output, one for each statistic, and what a clear does to each.
#ifndef ZOR_ENTRY_SECTIONS_H_
#define ZOR_ENTRY_SECTIONS_H_

#include <cstdint>
#include <ctime>

#include "entry/instance_entry.h"
#include "zor/platform.h"

namespace zor {

inline std::time_t Now() {
  struct timespec now = {};
  kel_time_get_timespec_realtime(&now);
  return now.tv_sec;
}

// What a call wants rendered: see zor_process_entry_get_data_fn in zor/entry.h.
template <class V>
struct Rendering {
  std::uint16_t mode;
  const char *dg_name;
  const char *object_name;
  std::uint16_t flags;
  const std::uint32_t *percentile;
  const Entry<V> &entry;
  std::time_t seconds = Wants(ZOR_PROCESS_OUTPUT_RECORD) ? Now() : 0;

  bool Wants(std::uint16_t output) const { return (mode & output) != 0; }
};

// A text from malloc; null when the entry does not keep a selected statistic, or without memory.
template <class V>
char *RenderEntry(const Rendering<V> &r);

// Empties the selected statistics.
template <class V>
void ClearStatistics(std::uint32_t selection, Entry<V> &entry);

}  // namespace zor

#endif  // ZOR_ENTRY_SECTIONS_H_
