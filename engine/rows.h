// The rows of a DG's table: from a row's key to its instance entries in one look-up, and mostly in one comparison,
// as the row after this one is nearly always the row that came after it in the last poll.
//
// A row keeps its entries beside it, and so takes one way through memory: from its address follow theirs. The sets
// of the columns' instances lead to the same entries.
#ifndef ZOR_ENGINE_ROWS_H_
#define ZOR_ENGINE_ROWS_H_

#include <cstddef>
#include <cstdint>

#include "zor/engine.h"
#include "zor/platform.h"

namespace zor {

// A column of the template that feeds an object: an oper entry with its object, null when that was deleted.
struct Column : zor_process_object_oper_entry_t {
  zor_process_object_t *object;
};

// What a row's message needs of a column, side by side with the others.
struct ColumnInRow {
  Column *column;
  std::uint32_t cell;
  std::uint32_t data_type;
  // Where all rows are alike: the place of its entries, from a row's record, and their PlainScaleOf().
  std::size_t place;
  std::uint64_t scale;
};

// A row that has instance entries. Its key stands in front of the record, and behind it the places for entries: all
// of them at addresses that are known before anything of the row has arrived from memory.
struct Row : kel_hashset_record_t {
  // Of a column: null where it has no entry for this key, or no place for one, as the row's first message had no
  // value for it.
  struct Slot {
    void *entry;
    void *place;
  };

  Row *follower;           // the row that came next, last time
  Slot *slots;             // in the order of RowDirectory::columns; the beginning of the row's storage
  std::uint64_t in_place;  // entries that are in their places
};

struct RowDirectory {
  ColumnInRow *columns;  // null until the first row; in the walking order of the DG's oper entries
  std::uint32_t column_count;
  kel_hashset_t rows;
  bool is_uniform;  // every row has its places where the columns tell, with such entries; all columns have objects
  Row *last;        // the row of the message before
  bool in_order;    // it was the one expected
};

// Builds the columns from a DG's oper entries, once its template was processed, which is done once. False without
// memory.
bool IndexColumns(RowDirectory &directory, kel_hashset_t &oper_entries);

// The row of a message: null while it has no entry. `expected` tells that it came next in the last poll, too.
struct FoundRow {
  Row *row;
  bool expected;
};
FoundRow FindRow(RowDirectory &directory, const char *key);

// Adds a row without entries, with a place of sizes[i] bytes for that of column i, or none for 0; null without
// memory.
Row *CreateRow(RowDirectory &directory, const char *key, const std::size_t *sizes);

// Puts an entry that was created, or null, into a row.
void SetEntry(RowDirectory &directory, Row &row, std::uint32_t i, void *entry);

// Drops the rows that have no entry left. One pass over all rows.
void ReleaseEmptyRows(RowDirectory &directory);

// Frees all that a directory holds; it is empty afterwards.
void ReleaseRows(RowDirectory &directory);

}  // namespace zor

#endif  // ZOR_ENGINE_ROWS_H_
