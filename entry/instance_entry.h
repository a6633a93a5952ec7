// The entry record of each value type.
#ifndef ZOR_ENTRY_INSTANCE_ENTRY_H_
#define ZOR_ENTRY_INSTANCE_ENTRY_H_

#include "stats/value_types.h"
#include "zor/entry.h"

namespace zor {

template <class V>
struct EntryOf;

#define ZOR_DEFINE_ENTRY_OF(type, value, unsigned_value, total)  \
  template <>                                                    \
  struct EntryOf<value> {                                        \
    using Record = zor_process_object_instance_entry_##type##_t; \
  };
ZOR_PROCESS_FOR_EACH_TYPE(ZOR_DEFINE_ENTRY_OF)
#undef ZOR_DEFINE_ENTRY_OF

template <class V>
using Entry = typename EntryOf<V>::Record;

// Bits of an entry's mode.
inline constexpr std::uint16_t kModeCumulative = 1;
inline constexpr std::uint16_t kModePrimed = 2;

}  // namespace zor

#endif  // ZOR_ENTRY_INSTANCE_ENTRY_H_
