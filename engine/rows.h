// The rows of a DG's table: from a row's key to its instance entries in one look-up, and mostly in one comparison,
// as the row after this one is nearly always the row that came after it in the last poll.
//
// A directory holds nothing of its own: the entries are those of the oper entries' sets, which lose them only when
// the DG's data is reset, and the directory goes with them.
#ifndef ZOR_ENGINE_ROWS_H_
#define ZOR_ENGINE_ROWS_H_

#include <cstdint>

#include "zor/engine.h"
#include "zor/platform.h"

namespace zor {

// A column of the template that feeds an object: an oper entry with its object, null when that was deleted.
struct Column : zor_process_object_oper_entry_t {
  zor_process_object_t *object;
};

// A row that has instance entries. They stand right behind the record, so that they can be fetched from memory
// before the record itself has arrived.
struct Row : kel_hashset_record_t {
  Row *follower;  // the row that came next, last time

  // One per column, in the order of RowDirectory::columns; null where the column has none for this key.
  void **entries() { return reinterpret_cast<void **>(this + 1); }
};

struct RowDirectory {
  Column **columns;  // null until the first row; in the walking order of the DG's oper entries
  std::uint32_t column_count;
  kel_hashset_t rows;
  Row *last;      // the row of the message before
  bool in_order;  // it was the one expected
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

// Adds a row without entries; null without memory.
Row *CreateRow(RowDirectory &directory, const char *key);

// Frees all that a directory holds; it is empty afterwards.
void ReleaseRows(RowDirectory &directory);

}  // namespace zor

#endif  // ZOR_ENGINE_ROWS_H_
