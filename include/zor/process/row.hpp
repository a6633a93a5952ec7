/** @file
 * @brief The message of a row, as the C interface takes it: filled anew for each row, so that rows allocate
 * nothing.
 */
#ifndef ZOR_PROCESS_ROW_HPP_
#define ZOR_PROCESS_ROW_HPP_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zor/engine.h"
#include "zor/process/table.hpp"

namespace zor::process::detail {

class RowMessage {
 public:
  /** Takes the shape of the columns that the group was started with. */
  void set_columns(std::shared_ptr<const Columns> columns) {
    columns_ = std::move(columns);
    infos_ = columns_->infos;
    cells_.assign(infos_.size(), {});
    whole_.clear();
    for (zor_process_cell_t &cell : cells_) whole_.push_back(&cell);
    single_.assign(infos_.size(), nullptr);
    single_[0] = whole_[0];
  }
  void reset() { columns_ = nullptr; }
  std::shared_ptr<const Columns> columns() const { return columns_; }
  bool has_columns() const { return columns_ != nullptr; }
  /** What the columns were when they were taken: a template can be added to. */
  const std::vector<ColumnInfo> &infos() const { return infos_; }

  /** Fills the cells, which point to the key and into those given; returns what is wrong with them, or null. */
  template <class Cells>
  const char *fill(const Name &key, const Cells &given) {
    if (!is_name(key)) return kBadName;
    if (!key.is_terminated) key_ = key.text;
    std::fill(cells_.begin(), cells_.end(), zor_process_cell_t{});
    cells_[0] = {ZOR_PROCESS_VALUE_STRING, 0, key.is_terminated ? key.text.data() : key_.c_str()};
    values_ = 0;
    for (const Cell &cell : given) {
      if (cell.columns != columns_.get() || cell.column >= cells_.size()) {
        return "a cell is of another template's column";
      }
      if (cell.type == 0) continue;
      zor_process_cell_t &filled = cells_[cell.column];
      if (filled.value) return "two values are of one column";
      if (cell.type != infos_[cell.column].type) return "a value is not of its column's type";
      filled = {0, sizeof cell.bits, &cell.bits};
      ++values_;
    }
    return nullptr;
  }
  std::size_t values() const { return values_; }
  /** The value of a column, or null. */
  const void *value(std::size_t column) const { return cells_[column].value; }
  /** Puts another one in its place. */
  void replace(std::size_t column, const void *value) { cells_[column].value = value; }

  /** The columns of the message. */
  void **whole() { return whole_.data(); }
  /** Calls send(column, columns) with a message for each value. */
  template <class Send>
  void for_each_value(Send send) {
    for (std::size_t i = 1; i < cells_.size(); ++i) {
      if (!cells_[i].value) continue;
      single_[i] = whole_[i];
      send(i, single_.data());
      single_[i] = nullptr;
    }
  }

 private:
  std::shared_ptr<const Columns> columns_; /**< null before there are any */
  std::vector<ColumnInfo> infos_;
  std::string key_; /**< where it has to be copied */
  std::vector<zor_process_cell_t> cells_;
  std::vector<void *> whole_, single_; /**< pointers to the cells: all of them; the key's and a value's */
  std::size_t values_ = 0;
};

}  // namespace zor::process::detail

#endif /* ZOR_PROCESS_ROW_HPP_ */
