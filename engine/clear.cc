#include "engine/clear.h"

#include "zor/entry.h"

namespace zor {
namespace {

// What a clear walk carries from instance to instance.
struct clear_context {
  std::uint16_t mask;
  std::uint32_t data_type;
  std::uint32_t mode;
  std::uint32_t status;
  std::uint16_t flags;
  const char *dg_name;
  const char *object_name;
};

std::uint32_t ClearInstance(const clear_context &context, EntryHead &entry) {
  const std::uint32_t type = context.data_type - 1;
  const auto selection = static_cast<std::uint16_t>(context.mask & context.flags);
  if (selection == 0) return ZOR_PROCESS_SUCCESS;
  if (g_zor_poi_entry_get_clear_buffer_funcs[type](&entry)) return ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL;
  char *text = g_zor_poi_entry_get_data_funcs[type](ZOR_PROCESS_OUTPUT_RECORD, context.dg_name, context.object_name,
                                                    selection, nullptr, &entry);
  if (!text) return ZOR_PROCESS_ERROR_NO_MEMORY;
  g_zor_poi_entry_set_clear_buffer_funcs[type](&entry, text);
  g_zor_poi_entry_clear_funcs[type](selection, &entry, context.mode);
  return ZOR_PROCESS_SUCCESS;
}

void ClearInstances(clear_context &context, Column &column) {
  context.dg_name = column.dg_name;
  context.object_name = column.name;
  context.flags = column.flags;
  context.data_type = column.data_type;
  if (context.flags & ZOR_PROCESS_FLAG_PERCENTILE) {
    context.flags |= ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_DISTRIBUTION;
  }
  for (EntryHead &entry : Records<EntryHead>(column.instances)) {
    context.status = ClearInstance(context, entry);
    if (context.status != ZOR_PROCESS_SUCCESS) return;
  }
}

}  // namespace

std::uint32_t ClearDg(Dg &dg, std::uint16_t mask, std::uint32_t mode) {
  clear_context context = {};
  context.mask = mask;
  context.mode = mode;
  if (dg.oper_entries) {
    for (Column &column : Records<Column>(*dg.oper_entries)) {
      ClearInstances(context, column);
      if (context.status != ZOR_PROCESS_SUCCESS) break;
    }
  }
  return dg.status = context.status;
}

}  // namespace zor

std::uint32_t zor_process_engine_clear_dg_data(zor_process_engine_t *engine, const char *dg_name,
                                               std::uint16_t mask, std::uint32_t mode) {
  zor::Dg *dg = zor::FindDg(engine, dg_name);
  return dg ? zor::ClearDg(*dg, mask, mode) : std::uint32_t{ZOR_PROCESS_MAX_LIMIT};
}

char *zor_process_engine_get_clear_buffer(const zor_process_data_cursor_t *cursor) {
  return g_zor_poi_entry_get_clear_buffer_funcs[cursor->oper_entry->data_type - 1](cursor->entry);
}

void zor_process_engine_set_clear_buffer(const zor_process_data_cursor_t *cursor, char *text) {
  g_zor_poi_entry_set_clear_buffer_funcs[cursor->oper_entry->data_type - 1](cursor->entry, text);
}
