// The data-processing driver: template, row and end-of-poll messages.

#include <cstdint>
#include <cstring>

#include "base/memory.h"
#include "engine/clear.h"
#include "engine/instances.h"
#include "engine/registry.h"
#include "entry/instance_entry.h"

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

// Fetches what plain samples of a row touch.
void PrefetchEntries(const RowDirectory &directory, const Row &row) {
  for (std::uint32_t i = 0; i < directory.column_count; ++i) {
    const char *entry = directory.is_uniform
                            ? reinterpret_cast<const char *>(&row) + directory.columns[i].place + kEntryAt
                            : static_cast<const char *>(row.slots[i].entry);
    if (entry) __builtin_prefetch(entry + (kTouchedFrom - kEntryAt), 1);
  }
}

// The key of a row, or null when it has none.
const char *KeyOf(const Dg &dg, const zor_process_msg_t &msg) {
  if (!msg.columns) return nullptr;
  const auto *cell = static_cast<const zor_process_cell_t *>(msg.columns[dg.key_column]);
  return cell && cell->type == ZOR_PROCESS_VALUE_STRING ? static_cast<const char *>(cell->value) : nullptr;
}

// The block of a row's entry in column i. The row and the entry are created where they are missing; null when the
// object does not want the instance, or with the reason in `result`.
void *FindOrCreateBlock(Dg &dg, const char *key, std::uint32_t i, void *const *cells, Row *&row,
                        std::uint32_t &result) {
  if (!dg.directory.columns[i].column->object) {
    result = ZOR_PROCESS_ERROR_OBJECT_NOT_FOUND;
    return nullptr;
  }
  if (!row || !row->slots[i].entry) result = CreateRowEntry(dg, key, i, cells, row);
  const bool has_entry = result == ZOR_PROCESS_SUCCESS && row && row->slots[i].entry;
  return has_entry ? static_cast<char *>(row->slots[i].entry) - kEntryAt : nullptr;
}

// Counts the values of a row; `counted` tells whether there were any.
std::uint32_t CountValues(Dg &dg, const char *key, void *const *cells, Row *row, bool &counted) {
  const ColumnInRow *const columns = dg.directory.columns;
  const std::uint32_t count = dg.directory.column_count;
  // Then blocks follow from the address of their row.
  const bool is_alike = row && dg.directory.is_uniform && row->in_place == count;
  PendingCounts pending;
  for (std::uint32_t i = 0; i < count; ++i) {
    const ColumnInRow &column = columns[i];
    const void *value = ValueOf(cells[column.cell]);
    if (!value) continue;
    std::uint32_t result = ZOR_PROCESS_SUCCESS;
    void *block =
        is_alike ? reinterpret_cast<char *>(row) + column.place : FindOrCreateBlock(dg, key, i, cells, row, result);
    if (result != ZOR_PROCESS_SUCCESS) return result;
    if (!block) continue;
    const std::int32_t inserted = WithValueType(column.data_type, [&](auto v) {
      using V = decltype(v);
      std::memcpy(&v, value, sizeof v);
      auto &typed = *static_cast<EntryBlock<V> *>(block);
      return is_alike && column.scale != 0 ? InsertPlain<V>(typed, v, column.scale, pending)
                                           : InsertIntoBlock<V>(typed, v, dg.periods_ended, pending);
    });
    if (inserted != 0) return ZOR_PROCESS_ERROR_IN_DATA;
    counted = true;
  }
  return ZOR_PROCESS_SUCCESS;
}

std::uint32_t ProcessRow(Dg &dg, const zor_process_msg_t &msg) {
  if (dg.key_column == -1) return ZOR_PROCESS_ERROR_NO_KEY;
  const char *key = KeyOf(dg, msg);
  if (!key) return ZOR_PROCESS_ERROR_INVALID_KEY_TYPE;
  if (!dg.directory.columns && !IndexColumns(dg.directory, *dg.oper_entries)) return ZOR_PROCESS_ERROR_NO_MEMORY;
  const auto [row, expected] = FindRow(dg.directory, key);

  // When rows come in the order of the last poll, the entries of the next row are fetched while this one's values
  // are counted. Otherwise this row's own are fetched at once.
  const Row *next = expected ? row->follower : nullptr;
  if (next) __builtin_prefetch(next->follower);
  if (row) PrefetchEntries(dg.directory, next ? *next : *row);

  bool counted = false;
  const std::uint32_t result = CountValues(dg, key, msg.columns, row, counted);
  if (counted && dg.poll_state == kAwaitsFirstValue) {
    ++dg.no_of_samples;
    dg.poll_state = kPollCounted;
  }
  return result;
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
