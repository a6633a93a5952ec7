// Instances that are gone for good: their entries leave the sets, their rows the directory.

#include "engine/registry.h"
#include "zor/entry.h"

namespace zor {
namespace {

struct Removal {
  zor_process_instance_predicate_fn is_removed;
  void *context;
};

// Whether an instance goes. One whose records were not collected stays, so that none is lost.
bool Takes(const Removal &removal, const zor_process_data_cursor_t &instance) {
  return !zor_process_engine_get_clear_buffer(&instance) && removal.is_removed(&instance, removal.context) != 0;
}

void RemoveFrom(Dg &dg, std::uint32_t i, const Removal &removal) {
  Column &column = *dg.directory.columns[i].column;
  auto *entry = static_cast<EntryHead *>(kel_hashset_first(&column.instances));
  while (entry) {
    auto *next = static_cast<EntryHead *>(kel_hashset_next(&column.instances, entry));
    if (Takes(removal, {dg.name, &dg, &column, entry, column.flags})) {
      SetEntry(dg.directory, *Find<Row>(dg.directory.rows, entry->name), i, nullptr);
      kel_hashset_remove(&column.instances, entry);
      g_zor_poi_entry_destroy_funcs[column.data_type - 1](entry);
    }
    entry = next;
  }
}

}  // namespace
}  // namespace zor

std::uint32_t zor_process_engine_remove_instances(zor_process_engine_t *engine, const char *dg_name,
                                                  zor_process_instance_predicate_fn is_removed, void *context) {
  zor::Dg *dg = zor::FindDg(engine, dg_name);
  if (!dg) return ZOR_PROCESS_ERROR_DG_NOT_FOUND;
  if (!is_removed) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  for (std::uint32_t i = 0; i < dg->directory.column_count; ++i) zor::RemoveFrom(*dg, i, {is_removed, context});
  zor::ReleaseEmptyRows(dg->directory);
  return ZOR_PROCESS_SUCCESS;
}
