#ifndef ZOR_ENTRY_RENDER_H_
#define ZOR_ENTRY_RENDER_H_

#include <cstdint>

#include "entry/instance_entry.h"

namespace zor {

// Renders an entry as records, headers or console lines: see get_data in zor/entry.h.
template <class V>
char *RenderEntry(std::uint16_t output_mode, const char *dg_name, const char *object_name, std::uint16_t flags,
                  const std::uint32_t *percentile, const Entry<V> &entry);

}  // namespace zor

#endif  // ZOR_ENTRY_RENDER_H_
