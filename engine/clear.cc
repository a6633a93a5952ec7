#include "engine/clear.h"

#include "zor/entry.h"

namespace zor {
namespace {

// What a clear of this mask does to a column's instances. Percentiles come with what they are estimated from.
std::uint16_t SelectionOf(const Column &column, std::uint16_t mask) {
  std::uint32_t kept = column.flags;
  if (kept & ZOR_PROCESS_FLAG_PERCENTILE) kept |= ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_DISTRIBUTION;
  return static_cast<std::uint16_t>(mask & kept);
}

std::uint32_t ClearInstance(const Column &column, EntryHead &entry, std::uint16_t selection, std::uint32_t mode) {
  const std::uint32_t type = column.data_type - 1;
  if (g_zor_poi_entry_get_clear_buffer_funcs[type](&entry)) return ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL;
  char *text = g_zor_poi_entry_get_data_funcs[type](ZOR_PROCESS_OUTPUT_RECORD, column.dg_name, column.name,
                                                    selection, nullptr, &entry);
  if (!text) return ZOR_PROCESS_ERROR_NO_MEMORY;
  g_zor_poi_entry_set_clear_buffer_funcs[type](&entry, text);
  g_zor_poi_entry_clear_funcs[type](selection, &entry, mode);
  return ZOR_PROCESS_SUCCESS;
}

// Fetches an entry, which takes as long as rendering the one before it.
void PrefetchEntry(const void *entry) {
  constexpr std::size_t kLine = 64;
  constexpr std::size_t kSize = 6 * kLine;  // of an entry of 100 buckets
  for (std::size_t at = 0; entry && at < kSize; at += kLine) {
    __builtin_prefetch(static_cast<const char *>(entry) + at, 1);
  }
}

std::uint32_t ClearColumn(Column &column, std::uint16_t mask, std::uint32_t mode) {
  const std::uint16_t selection = SelectionOf(column, mask);
  if (selection == 0) return ZOR_PROCESS_SUCCESS;
  for (EntryHead &entry : Records<EntryHead>(column.instances)) {
    PrefetchEntry(kel_hashset_next(&column.instances, &entry));
    const std::uint32_t result = ClearInstance(column, entry, selection, mode);
    if (result != ZOR_PROCESS_SUCCESS) return result;
  }
  return ZOR_PROCESS_SUCCESS;
}

}  // namespace

std::uint32_t ClearDg(Dg &dg, std::uint16_t mask, std::uint32_t mode) {
  dg.status = ZOR_PROCESS_SUCCESS;
  if (!dg.oper_entries) return dg.status;
  for (Column &column : Records<Column>(*dg.oper_entries)) {
    dg.status = ClearColumn(column, mask, mode);
    if (dg.status != ZOR_PROCESS_SUCCESS) break;
  }
  return dg.status;
}

}  // namespace zor

std::uint32_t zor_process_engine_clear_dg_data(zor_process_engine_t *engine, const char *dg_name,
                                               std::uint16_t mask, std::uint32_t mode) {
  zor::Dg *dg = zor::FindDg(engine, dg_name);
  return dg ? zor::ClearDg(*dg, mask, mode) : std::uint32_t{ZOR_PROCESS_MAX_LIMIT};
}

char *zor_process_engine_get_clear_buffer(const zor_process_data_cursor_t *cursor) {
  if (!cursor->entry) return nullptr;
  return g_zor_poi_entry_get_clear_buffer_funcs[cursor->oper_entry->data_type - 1](cursor->entry);
}

void zor_process_engine_set_clear_buffer(const zor_process_data_cursor_t *cursor, char *text) {
  g_zor_poi_entry_set_clear_buffer_funcs[cursor->oper_entry->data_type - 1](cursor->entry, text);
}
