// Reading back: the walk over instances and the console report.

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/print.h"
#include "engine/registry.h"
#include "zor/entry.h"

namespace zor {
namespace {

// Fetches what a walk looks at in an entry: its links and name, its clear buffer.
void PrefetchHead(const void *entry) {
  constexpr std::size_t kClearBuffer = offsetof(zor_process_object_instance_entry_uint64_t, clear_buffer);
  if (!entry) return;
  __builtin_prefetch(entry);
  __builtin_prefetch(static_cast<const char *>(entry) + kClearBuffer);
}

// The instance entry after `entry` (the first one of `column` when it is null), moving `column` on through
// the columns as they run out; null at the end of the walk.
void *NextEntry(Dg &dg, Column *&column, void *entry) {
  if (!column) column = static_cast<Column *>(kel_hashset_first(dg.oper_entries));
  if (!column) return nullptr;
  void *next = entry ? kel_hashset_next(&column->instances, entry) : kel_hashset_first(&column->instances);
  while (!next) {
    column = static_cast<Column *>(kel_hashset_next(dg.oper_entries, column));
    if (!column) return nullptr;
    next = kel_hashset_first(&column->instances);
  }
  PrefetchHead(kel_hashset_next(&column->instances, next));
  return next;
}

// What a report shows of each object.
struct Selection {
  const char *dg_name;
  const char *instance_name;  // null: all
  const std::uint32_t *percentile;
  std::uint32_t sections;
};

void PrintSection(const Selection &selection, Column &column, EntryHead &entry, std::uint16_t section) {
  std::free(g_zor_poi_entry_get_data_funcs[column.data_type - 1](
      ZOR_PROCESS_OUTPUT_CONSOLE, selection.dg_name, column.name, section,
      section == ZOR_PROCESS_FLAG_PERCENTILE ? selection.percentile : nullptr, &entry));
}

// Calls print(entry) for each selected instance.
template <class Print>
void ForEachSelected(const Selection &selection, Column &column, Print print) {
  if (selection.instance_name) {
    if (auto *entry = Find<EntryHead>(column.instances, selection.instance_name)) print(*entry);
    return;
  }
  for (EntryHead &entry : Records<EntryHead>(column.instances)) print(entry);
}

void PrintObject(const Selection &selection, Dg &dg, Column &column) {
  EmitLine("\nObjectname       : %s\n", column.name);
  if (const Object *object = Find<Object>(dg.objects, column.name)) {
    // The first value of a cumulative counter only primes it.
    const bool primed = object->value_kind != 0 && dg.no_of_samples > 0;
    EmitLine("\nNumber of samples: %llu\n", static_cast<unsigned long long>(dg.no_of_samples - (primed ? 1 : 0)));
  }
  if (selection.sections & ZOR_PROCESS_FLAG_SUMMARY) {
    EmitLine("\nSummary Data     :\n");
    EmitLine("Instance         Min     Max     Sum         Average\n");
    EmitLine("--------------------------------------------------------\n");
    ForEachSelected(selection, column, [&](EntryHead &entry) {
      EmitName(entry.name, 17, "", "\n");
      PrintSection(selection, column, entry, ZOR_PROCESS_FLAG_SUMMARY);
    });
  }
  if (selection.sections & ZOR_PROCESS_FLAG_DISTRIBUTION) {
    EmitLine("\nDistribution Data:\n");
    EmitLine("* Buckets with no data are not shown\n");
    ForEachSelected(selection, column, [&](EntryHead &entry) {
      PrintSection(selection, column, entry, ZOR_PROCESS_FLAG_DISTRIBUTION);
    });
  }
  if (selection.sections & ZOR_PROCESS_FLAG_PERCENTILE) {
    EmitLine("\n\nPercentile Data:\n");
    ForEachSelected(selection, column, [&](EntryHead &entry) {
      EmitLine("Instance         : ");
      EmitName(entry.name, 39, "\n", "                   ");
      EmitLine("Percentile Values: \n");
      PrintSection(selection, column, entry, ZOR_PROCESS_FLAG_PERCENTILE);
    });
  }
}

}  // namespace
}  // namespace zor

char *zor_process_engine_get_next_object_instance_data(zor_process_engine_t *engine,
                                                       zor_process_data_cursor_t *cursor,
                                                       std::uint32_t output_mode) {
  using namespace zor;
  Dg *dg = static_cast<Dg *>(cursor->dg);
  auto *column = static_cast<Column *>(cursor->oper_entry);
  void *entry = cursor->entry;
  cursor->dg = nullptr;
  cursor->oper_entry = nullptr;
  cursor->entry = nullptr;

  if (!dg) dg = FindDg(engine, cursor->dg_name);
  if (!dg || !dg->oper_entries) return nullptr;
  entry = NextEntry(*dg, column, entry);
  if (!entry) return nullptr;
  const Object *object = Find<Object>(dg->objects, column->name);
  if (!object) return nullptr;

  cursor->dg = dg;
  cursor->oper_entry = column;
  cursor->entry = entry;
  cursor->flags = dg->flags | object->flags;
  // A cursor that came with its DG may name none.
  const char *dg_name = cursor->dg_name ? cursor->dg_name : dg->name;
  return g_zor_poi_entry_get_data_funcs[column->data_type - 1](static_cast<std::uint16_t>(output_mode), dg_name,
                                                               column->name, cursor->flags, nullptr, entry);
}

void zor_process_engine_print_object_instance_data_with_handle(zor_process_engine_t *engine,
                                                               const zor_process_data_cursor_t *dg_ref,
                                                               const char *object_name, const char *instance_name,
                                                               const std::uint32_t *percentile, std::uint32_t flags,
                                                               zor_process_print_handle_t *handle) {
  using namespace zor;
  pvg_prt_handle = handle;
  Dg *dg = dg_ref->dg ? static_cast<Dg *>(dg_ref->dg) : FindDg(engine, dg_ref->dg_name);
  if (!dg || !dg->oper_entries) return;
  const Selection selection = {dg_ref->dg_name, instance_name, percentile, flags};
  if (object_name) {
    if (auto *column = Find<Column>(*dg->oper_entries, object_name)) PrintObject(selection, *dg, *column);
    return;
  }
  for (Column &column : Records<Column>(*dg->oper_entries)) PrintObject(selection, *dg, column);
}

void zor_process_engine_print_object_instance_data(zor_process_engine_t *engine,
                                                   const zor_process_data_cursor_t *dg_ref, const char *object_name,
                                                   const char *instance_name, const std::uint32_t *percentile,
                                                   std::uint32_t flags) {
  zor_process_engine_print_object_instance_data_with_handle(engine, dg_ref, object_name, instance_name, percentile,
                                                            flags, nullptr);
}
