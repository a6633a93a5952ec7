// Instances as they are first seen: an entry in their column's set, made as the object is configured, and their
// row.
#ifndef ZOR_ENGINE_INSTANCES_H_
#define ZOR_ENGINE_INSTANCES_H_

#include <cstdint>

#include "engine/registry.h"

namespace zor {

inline constexpr std::uint32_t kClearPolls = 1;  // a clear interval's type

// Creates the entry of a key in column i, and its row where this is its first; an instance that the object does not
// watch gets neither. The column has an object. `cells` are those of the row's message, whose values tell which
// other entries the row will have; null: all.
std::uint32_t CreateRowEntry(Dg &dg, const char *key, std::uint32_t i, void *const *cells, Row *&row);

// The value of a cell, null where the cell is empty.
inline const void *ValueOf(const void *cell) {
  const auto *c = static_cast<const zor_process_cell_t *>(cell);
  return c && c->length != 0 ? c->value : nullptr;
}

}  // namespace zor

#endif  // ZOR_ENGINE_INSTANCES_H_
