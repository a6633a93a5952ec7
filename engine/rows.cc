#include "engine/rows.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "base/memory.h"
#include "engine/registry.h"
#include "entry/instance_entry.h"

namespace zor {
namespace {

constexpr std::uint64_t kNoScaleYet = ~std::uint64_t{0};  // of a column; no scale is so large

constexpr std::size_t RoundUp(std::size_t size, std::size_t unit = kLine) {
  return (size + unit - 1) / unit * unit;
}

// Gives a new row its places.
void LayOut(RowDirectory &directory, Row &row, const std::size_t *sizes) {
  const bool is_first = kel_hashset_first(&directory.rows) == &row;
  if (is_first) directory.is_uniform = true;
  std::size_t end = 0;
  for (std::uint32_t i = 0; i < directory.column_count; ++i) {
    ColumnInRow &column = directory.columns[i];
    const std::size_t place = sizeof(Row) + RoundUp(end);
    if (is_first) {
      column.place = place;
      column.scale = kNoScaleYet;
    }
    if (sizes[i] == 0 || column.place != place) directory.is_uniform = false;
    if (sizes[i] == 0) continue;
    row.slots[i].place = reinterpret_cast<char *>(&row) + place;
    BeginPlace(row.slots[i].place, sizes[i]);
    end = RoundUp(end) + sizes[i];
  }
}

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
  directory.columns = AllocateArray<ColumnInRow>(count).release();
  if (!directory.columns) return false;
  for (Column &column : Records<Column>(oper_entries)) {
    directory.columns[directory.column_count++] = {&column, column.column, column.data_type, 0, kNoScaleYet};
  }
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

Row *CreateRow(RowDirectory &directory, const char *key, const std::size_t *sizes) {
  const std::uint32_t count = directory.column_count;
  const std::size_t key_size = std::strlen(key) + 1;
  const std::size_t front = RoundUp(count * sizeof(Row::Slot) + key_size, alignof(std::max_align_t));
  std::size_t places = 0;
  for (std::uint32_t i = 0; i < count; ++i) places = sizes[i] != 0 ? RoundUp(places) + sizes[i] : places;
  // With the allocator's own word a whole number of lines: rows that are made one after another then lie in equal
  // steps, which the processor can foresee when a column is walked along.
  const std::size_t size =
      RoundUp(front + (kLine - alignof(std::max_align_t)) + sizeof(Row) + places + sizeof(void *)) - sizeof(void *);
  auto *storage = static_cast<char *>(std::calloc(1, size));
  if (!storage) return nullptr;

  // What a sample touches of an entry is to begin a line.
  const auto touched = reinterpret_cast<std::uintptr_t>(storage) + front + sizeof(Row) + kTouchedFrom;
  auto *row = reinterpret_cast<Row *>(storage + front + RoundUp(touched) - touched);
  row->slots = reinterpret_cast<Row::Slot *>(storage);
  row->name = reinterpret_cast<char *>(row) - key_size;
  std::memcpy(row->name, key, key_size);
  if (kel_hashset_insert(&directory.rows, row) != 0) {
    std::free(storage);
    return nullptr;
  }
  LayOut(directory, *row, sizes);
  MoveTo(directory, row);
  return row;
}

void SetEntry(RowDirectory &directory, Row &row, std::uint32_t i, void *entry) {
  Row::Slot &slot = row.slots[i];
  const auto is_in_place = [&] { return slot.entry && slot.place && slot.entry == EntryAt(slot.place); };
  if (is_in_place()) --row.in_place;
  slot.entry = entry;
  if (!is_in_place()) return;
  ++row.in_place;
  ColumnInRow &column = directory.columns[i];
  const std::uint64_t scale = PlainScaleOf(entry, column.data_type);
  if (column.scale == kNoScaleYet) column.scale = scale;
  if (column.scale != scale) directory.is_uniform = false;
}

void ReleaseEmptyRows(RowDirectory &directory) {
  const auto is_empty = [&](Row *row) {
    for (std::uint32_t i = 0; row && i < directory.column_count; ++i) {
      if (row->slots[i].entry) return false;
    }
    return row != nullptr;
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
      std::free(row->slots);
    }
    row = next;
  }
}

void ReleaseRows(RowDirectory &directory) {
  const auto destroy = [](void *record, void *rows) {
    kel_hashset_remove(static_cast<kel_hashset_t *>(rows), record);
    std::free(static_cast<Row *>(record)->slots);
  };
  kel_hashset_iterate(&directory.rows, destroy, &directory.rows);
  kel_hashset_free(&directory.rows);
  std::free(directory.columns);
  directory = {};
}

}  // namespace zor
