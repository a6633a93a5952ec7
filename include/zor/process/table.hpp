/** @file
 * @brief Templates: the columns of a table, which make the cells of its rows. */
#ifndef ZOR_PROCESS_TABLE_HPP_
#define ZOR_PROCESS_TABLE_HPP_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "zor/process/result.hpp"
#include "zor/process/settings.hpp"

namespace zor::process {

/** A value of one of the four data types, whose code is index() + 1. */
using Value = std::variant<std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>;

namespace detail {

template <class V>
inline constexpr std::uint32_t type_of = static_cast<std::uint32_t>(Value(std::in_place_type<V>).index()) + 1;

/** Whether V holds every value of T. */
template <class V, class T>
inline constexpr bool holds =
    std::is_integral_v<T> && !std::is_same_v<T, bool> &&
    (std::is_signed_v<T> == std::is_signed_v<V> ? sizeof(T) <= sizeof(V)
                                                : std::is_signed_v<V> && sizeof(T) < sizeof(V));

inline constexpr std::uint32_t kKeyType = 0; /**< stands in for the data type of the key */

struct ColumnInfo {
  std::string name;
  std::uint32_t type; /**< a data type, or kKeyType */
  bool operator==(const ColumnInfo &other) const { return name == other.name && type == other.type; }
};
struct Columns {
  std::vector<ColumnInfo> infos;
  Status status = Done{};
};

}  // namespace detail

/** A cell of a row, made by a column. */
struct Cell {
  const detail::Columns *columns; /**< of the template */
  std::size_t column;             /**< index there */
  std::uint32_t type = 0;         /**< of the value; 0: an empty cell */
  std::uint64_t bits = 0;         /**< whose first bytes are the value in its type */
};

/** A column of a template. Column<Value> is one whose type is known only when the program runs. */
template <class V>
class Column {
 public:
  /** @param value of a type whose values all fit: none is cut or changes its sign @return the cell that holds it */
  template <class T>
  Cell operator()(const T &value) const {
    static_assert(
        std::is_same_v<T, Value> == std::is_same_v<V, Value> && (std::is_same_v<T, Value> || detail::holds<V, T>),
        "the column does not hold every value of this type: convert it first");
    if constexpr (std::is_same_v<T, Value>) {
      return std::visit([&](const auto &typed) { return cell(typed); }, value);
    } else {
      return cell(static_cast<V>(value));
    }
  }
  /** @return an empty cell */
  Cell operator()(std::nullopt_t) const { return {columns_.get(), index_}; }

 private:
  friend class Template;
  Column(std::shared_ptr<const detail::Columns> columns, std::size_t index)
      : columns_(std::move(columns)), index_(index) {}
  template <class T>
  Cell cell(const T &value) const {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof value);
    return {columns_.get(), index_, detail::type_of<T>, bits};
  }
  std::shared_ptr<const detail::Columns> columns_;
  std::size_t index_;
};

/** The columns of a table: the key, which names the instances, and values. A column feeds the object of its name;
 * one without an object is skipped, so that groups can share a table. What is wrong with it, Group::start() tells.
 */
class Template {
 public:
  /** @param key the name of the column that names the rows */
  explicit Template(Name key) { add(key, detail::kKeyType); }
  /** Adds a column of std::int32_t, std::uint32_t, std::int64_t or std::uint64_t.
   * @param name its name and its object's
   * @return the column, which makes cells */
  template <class V>
  Column<V> column(Name name) {
    return {columns_, add(name, detail::type_of<V>)};
  }
  /** The same with a type that the program learns as it runs.
   * @param name its name and its object's
   * @param type its type
   * @return the column, which makes cells of a Value */
  Column<Value> column(Name name, zor_process_data_type_t type) { return {columns_, add(name, type)}; }

 private:
  friend class Group;
  std::size_t add(Name name, std::uint32_t type) {
    auto &[infos, status] = *columns_;
    const bool is_key = infos.empty();
    const auto has_name = [&](const detail::ColumnInfo &info) { return info.name == name.text; };
    if (status) {
      status =
          detail::check("template", {{!is_name(name), detail::kBadName, ZOR_PROCESS_ERROR_IN_TEMPLATE},
                                     {std::any_of(infos.begin(), infos.end(), has_name),
                                      "two columns have the same name", ZOR_PROCESS_ERROR_IN_TEMPLATE},
                                     {is_key != (type == detail::kKeyType) || type > ZOR_PROCESS_DATA_TYPE_UINT64,
                                      "no such data type", ZOR_PROCESS_ERROR_IN_TEMPLATE}});
    }
    infos.push_back({std::string(name.text), type});
    return infos.size() - 1;
  }
  std::shared_ptr<detail::Columns> columns_ = std::make_shared<detail::Columns>();
};

}  // namespace zor::process

#endif /* ZOR_PROCESS_TABLE_HPP_ */
