#include "engine/rows.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/memory.h"
#include "engine/registry.h"

namespace zor {
namespace {

void MoveTo(RowDirectory &directory, Row *row) {
  if (directory.last) {
    directory.in_order = directory.last->follower == row;
    directory.last->follower = row;
  }
  directory.last = row;
}

}  // namespace

bool IndexColumns(RowDirectory &directory, kel_hashset_t &oper_entries) {
  std::uint32_t count = 0;
  for ([[maybe_unused]] const Column &column : Records<Column>(oper_entries)) ++count;
  directory.columns = AllocateArray<Column *>(count).release();
  if (!directory.columns) return false;
  for (Column &column : Records<Column>(oper_entries)) directory.columns[directory.column_count++] = &column;
  return true;
}

FoundRow FindRow(RowDirectory &directory, const char *key) {
  // While rows come out of order the expected one is not looked at: that would be a cache miss for nothing.
  Row *expected = directory.in_order ? directory.last->follower : nullptr;
  if (expected && std::strcmp(expected->name, key) == 0) {
    directory.last = expected;
    return {expected, true};
  }
  Row *row = Find<Row>(directory.rows, key);
  if (row) MoveTo(directory, row);
  return {row, false};
}

Row *CreateRow(RowDirectory &directory, const char *key) {
  const std::size_t entries_size = directory.column_count * sizeof(void *);
  const std::size_t key_size = std::strlen(key) + 1;
  auto *row = static_cast<Row *>(std::calloc(1, sizeof(Row) + entries_size + key_size));
  if (!row) return nullptr;
  row->name = reinterpret_cast<char *>(row + 1) + entries_size;
  std::memcpy(row->name, key, key_size);
  if (kel_hashset_insert(&directory.rows, row) != 0) {
    std::free(row);
    return nullptr;
  }
  MoveTo(directory, row);
  return row;
}

void ReleaseEmptyRows(RowDirectory &directory) {
  const auto is_empty = [&](Row *row) {
    return row &&
           std::all_of(row->entries(), row->entries() + directory.column_count, [](const void *e) { return !e; });
  };
  // No row that stays may name one that goes as its follower.
  for (Row &row : Records<Row>(directory.rows)) {
    if (is_empty(row.follower)) row.follower = nullptr;
  }
  if (is_empty(directory.last)) {
    directory.last = nullptr;
    directory.in_order = false;
  }
  auto *row = static_cast<Row *>(kel_hashset_first(&directory.rows));
  while (row) {
    auto *next = static_cast<Row *>(kel_hashset_next(&directory.rows, row));
    if (is_empty(row)) {
      kel_hashset_remove(&directory.rows, row);
      std::free(row);
    }
    row = next;
  }
}

void ReleaseRows(RowDirectory &directory) {
  const auto destroy = [](void *record, void *rows) {
    kel_hashset_remove(static_cast<kel_hashset_t *>(rows), record);
    std::free(record);
  };
  kel_hashset_iterate(&directory.rows, destroy, &directory.rows);
  kel_hashset_free(&directory.rows);
  std::free(directory.columns);
  directory = {};
}

}  // namespace zor
