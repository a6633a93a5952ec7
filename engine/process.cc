// The data-processing driver: template, row and end-of-poll messages.

#include <cstdint>
#include <cstring>

#include "base/memory.h"
#include "engine/clear.h"
#include "engine/instances.h"
#include "engine/registry.h"
#include "zor/entry.h"

namespace zor {
namespace {

constexpr std::uint32_t kMinPollInterval = 10;  // seconds

// Values of a DG's poll_state.
constexpr std::uint8_t kAwaitsFirstValue = 1;
constexpr std::uint8_t kPollCounted = 2;

std::uint32_t DataTypeOf(const zor_process_column_t &column) {
  const bool wide = column.width == 8;
  if (column.type == ZOR_PROCESS_VALUE_SIGNED) {
    return wide ? ZOR_PROCESS_DATA_TYPE_INT64 : ZOR_PROCESS_DATA_TYPE_INT32;
  }
  return wide ? ZOR_PROCESS_DATA_TYPE_UINT64 : ZOR_PROCESS_DATA_TYPE_UINT32;
}

// Binds a column to its object. Of two columns with the same name the first counts.
std::uint32_t CreateColumn(Dg &dg, Object &object, const zor_process_column_t &column, std::uint32_t index) {
  auto created = Allocate<Column>();
  if (!created) return ZOR_PROCESS_ERROR_NO_MEMORY;
  created->column = index;
  created->flags = dg.flags | object.flags;
  created->data_type = DataTypeOf(column);
  created->object = &object;
  kel_ext_hash_name_init(&created->instances);
  created->name = strdup(column.name);
  created->dg_name = strdup(object.dg_name);
  if (created->name && created->dg_name && kel_hashset_insert(dg.oper_entries, created.get()) == 0) {
    HandOver(created);
    return ZOR_PROCESS_SUCCESS;
  }
  const bool duplicate = created->name && created->dg_name && Find<Column>(*dg.oper_entries, created->name);
  FreeColumn(*created.release());
  return duplicate ? ZOR_PROCESS_SUCCESS : ZOR_PROCESS_ERROR_NO_MEMORY;
}

std::uint32_t ProcessColumn(Dg &dg, const zor_process_column_t &column, std::uint32_t index) {
  if (column.flags & ZOR_PROCESS_COLUMN_KEY) {
    if (column.type != ZOR_PROCESS_VALUE_STRING) return ZOR_PROCESS_ERROR_INVALID_KEY_TYPE;
    dg.key_column = static_cast<std::int32_t>(index);
  }
  Object *object = Find<Object>(dg.objects, column.name);
  if (!object || (dg.flags | object->flags) == 0) return ZOR_PROCESS_SUCCESS;
  if (column.type != ZOR_PROCESS_VALUE_UNSIGNED && column.type != ZOR_PROCESS_VALUE_SIGNED) {
    return ZOR_PROCESS_ERROR_UNSUPPORTED_OBJECT_TYPE;
  }
  return CreateColumn(dg, *object, column, index);
}

// Columns bound before a failure stay, and feed their objects once the latch is lifted.
std::uint32_t ProcessTemplate(Dg &dg, const zor_process_msg_t &msg) {
  if (msg.count < 1) return ZOR_PROCESS_SUCCESS;
  if (!msg.columns) return ZOR_PROCESS_ERROR_IN_TEMPLATE;
  const auto count = static_cast<std::uint32_t>(msg.count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const auto *column = static_cast<const zor_process_column_t *>(msg.columns[i]);
    if (!column) return ZOR_PROCESS_ERROR_IN_TEMPLATE;
    const std::uint32_t result = ProcessColumn(dg, *column, i);
    if (result != ZOR_PROCESS_SUCCESS) return result;
  }
  return ZOR_PROCESS_SUCCESS;
}

// Fetches the first lines of an entry, where a sample finds its head, summary and range.
void PrefetchEntry(const void *entry) {
  constexpr std::size_t kLine = 64;
  if (!entry) return;
  for (std::size_t line = 0; line < 3; ++line)
    __builtin_prefetch(static_cast<const char *>(entry) + line * kLine, 1);
}

// The key of a row, or null when it has none.
const char *KeyOf(const Dg &dg, const zor_process_msg_t &msg) {
  if (!msg.columns) return nullptr;
  const auto *cell = static_cast<const zor_process_cell_t *>(msg.columns[dg.key_column]);
  return cell && cell->type == ZOR_PROCESS_VALUE_STRING ? static_cast<const char *>(cell->value) : nullptr;
}

// Counts the value of a row's cell in column i. The row and the entry are created where they are missing, unless
// the object does not want the instance.
std::uint32_t CountValue(Dg &dg, const char *key, std::uint32_t i, const void *value, Row *&row) {
  const Column &column = *dg.directory.columns[i];
  if (!column.object) return ZOR_PROCESS_ERROR_OBJECT_NOT_FOUND;
  if (!row || !row->entries()[i]) {
    const std::uint32_t result = CreateRowEntry(dg, key, i, row);
    if (result != ZOR_PROCESS_SUCCESS) return result;
    if (!row || !row->entries()[i]) return ZOR_PROCESS_SUCCESS;
  }
  std::uint32_t period_ended = 0;
  const std::int32_t result =
      g_zor_poi_entry_insert_funcs[column.data_type - 1](row->entries()[i], value, &period_ended);
  dg.periods_ended += period_ended;
  if (result != 0) return ZOR_PROCESS_ERROR_IN_DATA;
  if (dg.poll_state == kAwaitsFirstValue) {
    ++dg.no_of_samples;
    dg.poll_state = kPollCounted;
  }
  return ZOR_PROCESS_SUCCESS;
}

std::uint32_t ProcessRow(Dg &dg, const zor_process_msg_t &msg) {
  if (dg.key_column == -1) return ZOR_PROCESS_ERROR_NO_KEY;
  const char *key = KeyOf(dg, msg);
  if (!key) return ZOR_PROCESS_ERROR_INVALID_KEY_TYPE;
  if (!dg.directory.columns && !IndexColumns(dg.directory, *dg.oper_entries)) return ZOR_PROCESS_ERROR_NO_MEMORY;
  const std::uint32_t count = dg.directory.column_count;
  auto [row, expected] = FindRow(dg.directory, key);

  // When rows come in the order of the last poll, the entries of the next row are fetched while this one's values
  // are counted. Otherwise all entries of this row are fetched at once before the first value is.
  Row *next = expected ? row->follower : nullptr;
  if (next) __builtin_prefetch(next->follower);
  for (std::uint32_t i = 0; row && !next && i < count; ++i) PrefetchEntry(row->entries()[i]);

  for (std::uint32_t i = 0; i < count; ++i) {
    if (next) PrefetchEntry(next->entries()[i]);
    const auto *cell = static_cast<const zor_process_cell_t *>(msg.columns[dg.directory.columns[i]->column]);
    if (!cell || !cell->value || cell->length == 0) continue;
    const std::uint32_t result = CountValue(dg, key, i, cell->value, row);
    if (result != ZOR_PROCESS_SUCCESS) return result;
  }
  return ZOR_PROCESS_SUCCESS;
}

std::uint32_t ProcessEndOfPoll(Dg &dg) {
  dg.poll_state = kAwaitsFirstValue;
  if (dg.clear_interval_type != kClearPolls) return ZOR_PROCESS_SUCCESS;
  if (++dg.poll_count != dg.clear_interval) return ZOR_PROCESS_SUCCESS;
  const std::uint32_t result = ClearDg(dg, ZOR_PROCESS_FLAGS_CLEARED, 1);
  if (result == ZOR_PROCESS_SUCCESS) dg.poll_count = 0;
  return result;
}

std::uint32_t Dispatch(Dg &dg, const zor_process_msg_t &msg) {
  switch (msg.kind) {
    case ZOR_PROCESS_MSG_TEMPLATE:
      return ProcessTemplate(dg, msg);
    case ZOR_PROCESS_MSG_ROW:
      return ProcessRow(dg, msg);
    case ZOR_PROCESS_MSG_END_OF_POLL:
      return ProcessEndOfPoll(dg);
    case 3:
      return ZOR_PROCESS_ERROR_IN_DATA;
    default:
      return ZOR_PROCESS_ERROR_IN_ROW_DATA;
  }
}

std::uint32_t ProcessMessage(Dg &dg, const zor_process_msg_t &msg) {
  if (dg.poll_interval < kMinPollInterval) return ZOR_PROCESS_ERROR_INVALID_POLL_INTERVAL;
  if (dg.status != ZOR_PROCESS_SUCCESS && dg.status != ZOR_PROCESS_ERROR_INVALID_POLL_INTERVAL) return dg.status;
  if (!dg.oper_entries) {
    dg.oper_entries = CreateSet();
    if (!dg.oper_entries) return ZOR_PROCESS_ERROR_NO_MEMORY;
  } else if (msg.kind == ZOR_PROCESS_MSG_TEMPLATE) {
    return ZOR_PROCESS_SUCCESS;  // a template is taken only as the first message
  }
  return Dispatch(dg, msg);
}

}  // namespace
}  // namespace zor

std::uint32_t zor_process_engine_process_data(zor_process_engine_t *engine, const char *dg_name,
                                              const zor_process_msg_t *msg) {
  zor::Dg *dg = zor::FindDg(engine, dg_name);
  if (!dg) return ZOR_PROCESS_ERROR_DG_NOT_FOUND;
  if (!msg) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  return dg->status = zor::ProcessMessage(*dg, *msg);
}

std::uint64_t zor_process_engine_get_periods_ended(zor_process_engine_t *engine, const char *dg_name) {
  const zor::Dg *dg = zor::FindDg(engine, dg_name);
  return dg ? dg->periods_ended : 0;
}

void zor_process_engine_set_poll_interval(zor_process_engine_t *engine, const char *dg_name,
                                          std::uint32_t seconds) {
  if (zor::Dg *dg = zor::FindDg(engine, dg_name)) dg->poll_interval = seconds;
}
