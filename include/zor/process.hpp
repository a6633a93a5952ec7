/** @file
 * @brief The process engine for C++17 and later: owning handles, results as values, and messages that cannot be
 * malformed, for programs with or without exceptions.
 *
 *     using namespace zor::process;
 *     Engine engine;
 *     auto net = engine.group("net", {std::chrono::seconds(10), Interval::polls(60)});
 *     net->object("rx_bytes", {Statistics::summary | Statistics::percentile, Values::cumulative});
 *     Template table("interface");
 *     const auto rx = table.column<std::uint64_t>("rx_bytes");
 *     net->start(table);
 *
 * and then, every 10 seconds:
 *
 *     auto poll = net->poll();
 *     poll->row("eth0", {rx(bytes)});
 *     poll->end();
 *     std::cout << net->take_records();
 *
 * A header over the C interface of zor/engine.h. Every call that can fail returns a Result. What the C interface
 * would report late, or never, is refused when it is asked for; no failure latches a group; records do not wait in
 * clear buffers. A group is not to be changed by C calls as well: it does not see them. One thread at a time, as
 * for all calls of the library. */
#ifndef ZOR_PROCESS_HPP_
#define ZOR_PROCESS_HPP_

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "zor/datalist.h"
#include "zor/process.h"

namespace zor::process {

/** A failure: what was wrong with which record. */
struct Error {
  std::uint32_t code;  /**< ZOR_PROCESS_ERROR_* */
  std::string message; /**< "group 'net', object 'rx': the range is inverted" */
};

/** A value, or the Error in its place. To reach for the one that is not there ends the program with a message. */
template <class T>
class Result {
 public:
  /** A success. @param value what it holds */
  Result(T value) : content_(std::move(value)) {}
  /** A failure. @param error what went wrong */
  Result(Error error) : content_(std::move(error)) {}

  /** Whether there is a value. */
  explicit operator bool() const { return std::holds_alternative<T>(content_); }
  /** @return the value */
  T &operator*() { return *Require(std::get_if<T>(&content_)); }
  /** @return the value */
  T *operator->() { return &**this; }
  /** @return the failure */
  const Error &error() const { return *Require(std::get_if<Error>(&content_)); }

 private:
  template <class Content>
  Content *Require(Content *content) const {
    if (content) return content;
    std::fprintf(stderr, "zor::process: %s\n", *this ? "the error of a success" : error().message.c_str());
    std::abort();
  }
  std::variant<T, Error> content_;
};

/** No value. */
struct Done {};
/** A Result without a value. */
using Status = Result<Done>;

/** A name, from any kind of string; the library copies it. One that is null, empty, or holds a control
 * character or a comma (NUL would cut it, the others break record lines), is refused where it is used. */
struct Name : std::string_view {
  Name(std::nullptr_t) = delete; /**< no name */
  /** @param name a C string, or null */
  Name(const char *name) : std::string_view(name ? name : "") {}
  /** @param name need not end with NUL */
  Name(std::string_view name) : std::string_view(name) {}
  /** @param name any string */
  Name(const std::string &name) : std::string_view(name) {}
};

/** The analyses of an object: ZOR_PROCESS_FLAG_*. A baseline goes with no other. */
enum class Statistics : std::uint16_t {
  none = 0,         /**< nothing */
  summary = 1,      /**< minimum, maximum, sum, average */
  distribution = 2, /**< counts per bucket of a range */
  percentile = 4,   /**< nine percentiles, summary and distribution */
  baseline = 8      /**< learnt range and its percentiles */
};
/** Two sets of analyses. @param a one @param b the other @return both */
constexpr Statistics operator|(Statistics a, Statistics b) {
  return static_cast<Statistics>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

/** How values become samples: as they come, or as the differences of a counter. */
enum class Values : std::uint32_t {
  sampled = 0,   /**< each value is a sample */
  cumulative = 1 /**< of a counter: the first value primes it, differences are computed with wrap-around */
};

/** A number of polls, given as such or as a time, which is rounded up to whole polls. */
class Interval {
 public:
  /** @param count the number of polls @return the interval */
  static constexpr Interval polls(std::uint64_t count) { return {count, std::chrono::seconds(0)}; }
  /** @param time begun polls count as whole ones */
  constexpr Interval(std::chrono::seconds time) : Interval(0, time) {}
  /** @param poll the poll interval @return the number of polls */
  constexpr std::uint64_t in_polls_of(std::chrono::seconds poll) const {
    if (time_.count() <= 0) return polls_;
    return static_cast<std::uint64_t>(time_ / poll) + (time_ % poll != std::chrono::seconds(0) ? 1 : 0);
  }

 private:
  constexpr Interval(std::uint64_t polls, std::chrono::seconds time) : polls_(polls), time_(time) {}
  std::uint64_t polls_;
  std::chrono::seconds time_;
};

/** The values from low to high, both included, in any integer types. */
struct Range {
  /** @param low the lowest value @param high the highest; a range that is inverted is refused where it is used */
  template <class Low, class High>
  constexpr Range(Low low, High high) : bounds{static_cast<std::uint64_t>(low), static_cast<std::uint64_t>(high)} {
    static_assert(std::is_integral_v<Low> && std::is_integral_v<High>, "bounds are whole numbers");
    const bool low_is_negative = std::is_signed_v<Low> && static_cast<std::int64_t>(low) < 0;
    const bool high_is_negative = std::is_signed_v<High> && static_cast<std::int64_t>(high) < 0;
    if (low_is_negative && (high_is_negative ? bounds[0] <= bounds[1] : bounds[1] <= INT64_MAX)) {
      type = ZOR_PROCESS_DATA_TYPE_INT64;
    } else if (!low_is_negative && !high_is_negative && bounds[0] <= bounds[1]) {
      type = ZOR_PROCESS_DATA_TYPE_UINT64;
    }
  }
  /** @param column a data type @return whether columns of it hold both bounds */
  constexpr bool fits(std::uint32_t column) const {
    const bool is_signed = column % 2 == 1;
    const std::uint64_t highest = UINT64_MAX >> ((column < ZOR_PROCESS_DATA_TYPE_INT64 ? 32 : 0) + is_signed);
    if (type == ZOR_PROCESS_DATA_TYPE_UINT64) return bounds[1] <= highest;
    // Such a column reaches down to -highest - 1, the complement of highest; bounds below zero are large ones here.
    return is_signed && ~bounds[0] <= highest && (bounds[1] <= highest || bounds[1] >= bounds[0]);
  }
  std::uint64_t bounds[2]; /**< low, high */
  std::uint32_t type = 0;  /**< the range_type of an object; 0: low is above high, or they share no type */
};

/** Settings of a group. */
struct GroupSettings {
  std::chrono::seconds poll_interval{10};       /**< 10 at least */
  std::optional<Interval> clear = std::nullopt; /**< 1 to 65535 polls; else 65535, when a bucket can be full */
  Statistics statistics = Statistics::none;     /**< of every object */
  std::uint32_t buckets = 100;                  /**< of objects that set none: 1 to 65535 */
};

/** Settings of an object. */
struct ObjectSettings {
  Statistics statistics = Statistics::none;  /**< one at least, with those of the group */
  Values values = Values::sampled;           /**< what a value is */
  std::optional<Range> range = std::nullopt; /**< of a distribution; without one, all values of the column's type */
  std::optional<std::uint32_t> buckets = std::nullopt; /**< 1 to 65535; else those of the group */
  std::optional<Interval> learning =
      std::nullopt;                        /**< of a baseline, 1 to 65535 polls; else those of clear, or 2000 */
  std::vector<std::string> instances = {}; /**< the ones to be processed; without any, all */
  std::uint32_t id = 0;                    /**< 0: one is given */
};

/** What a report shows. */
struct ReportSettings {
  Statistics sections = Statistics::summary | Statistics::percentile; /**< baselines have none */
  std::string object = {};                                            /**< empty: all */
  std::string instance = {};                                          /**< empty: all */
  std::optional<std::uint32_t> percentile = std::nullopt; /**< one in whole percent, for the nine points */
};

/** A value of one of the four data types, whose code is index() + 1. */
using Value = std::variant<std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>;

namespace detail {

/** The first trap that is sprung becomes the error. */
struct Trap {
  bool is_sprung;
  const char *message;
  std::uint32_t code = ZOR_PROCESS_ERROR_INVALID_PARAMS;
};
inline Status check(const std::string &place, std::initializer_list<Trap> traps) {
  const Trap *trap = std::find_if(traps.begin(), traps.end(), [](const Trap &t) { return t.is_sprung; });
  return trap == traps.end() ? Status(Done{}) : Error{trap->code, place + ": " + trap->message};
}
inline Status check(const std::string &place, std::uint32_t code) {
  return check(place, {{code != ZOR_PROCESS_SUCCESS, zor_proc_get_error_string_list(code), code}});
}

constexpr const char *kBadName = "a name is empty, or holds a comma or a control character";
constexpr const char *kBadBuckets = "the number of buckets is not 1 to 65535";
constexpr const char *kMixed = "a baseline goes with no other statistic, of the object or of its group";
constexpr std::uint16_t kCleared =
    7; /**< all statistics that a clear resets; percentiles need them cleared together */

inline bool is_name(Name name) {
  const auto is_bad = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f || c == ','; };
  return !name.empty() && std::none_of(name.begin(), name.end(), is_bad);
}
constexpr std::uint64_t kMostPolls = 65535; /**< buckets and intervals count in 16 bits */
constexpr bool is_count(std::uint64_t count) { return count >= 1 && count <= kMostPolls; }
constexpr bool has_baseline(Statistics s) { return static_cast<unsigned>(s) & ZOR_PROCESS_FLAG_BASELINE; }
constexpr bool is_mixed(Statistics s) { return has_baseline(s) && s != Statistics::baseline; }

/** Whether V holds every value of T. */
template <class V, class T>
inline constexpr bool holds =
    std::is_integral_v<T> && !std::is_same_v<T, bool> &&
    (std::is_signed_v<T> == std::is_signed_v<V> ? sizeof(T) <= sizeof(V)
                                                : std::is_signed_v<V> && sizeof(T) < sizeof(V));

struct Free {
  void operator()(char *text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

struct ColumnInfo {
  std::string name;
  std::uint32_t type; /**< data-type code; 0: the key */
  bool operator==(const ColumnInfo &other) const { return name == other.name && type == other.type; }
};
struct Columns {
  std::vector<ColumnInfo> infos;
  Status status = Done{};
};

}  // namespace detail

/** A cell of a row, made by a column; empty without a value. */
struct Cell {
  const detail::Columns *columns; /**< of the template */
  std::size_t column;             /**< index there */
  std::optional<Value> value;     /**< none: an empty cell */
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
    return {columns_.get(), index_, Value(static_cast<V>(value))};
  }
  /** @return an empty cell */
  Cell operator()(std::nullopt_t) const { return {columns_.get(), index_, std::nullopt}; }

 private:
  friend class Template;
  Column(std::shared_ptr<const detail::Columns> columns, std::size_t index)
      : columns_(std::move(columns)), index_(index) {}
  std::shared_ptr<const detail::Columns> columns_;
  std::size_t index_;
};

/** The columns of a table: the key, which names the instances, and values. A column feeds the object of its name;
 * one without an object is skipped, so that groups can share a table. What is wrong with it, Group::start() tells.
 */
class Template {
 public:
  /** @param key the name of the column that names the rows */
  explicit Template(Name key) { Add(key, 0); }
  /** Adds a column of std::int32_t, std::uint32_t, std::int64_t or std::uint64_t.
   * @param name its name and its object's
   * @return the column, which makes cells */
  template <class V>
  Column<V> column(Name name) {
    return {columns_, Add(name, static_cast<std::uint32_t>(Value(std::in_place_type<V>).index()) + 1)};
  }
  /** The same with a type that the program learns as it runs.
   * @param name its name and its object's
   * @param type its type
   * @return the column, which makes cells of a Value */
  Column<Value> column(Name name, zor_process_data_type_t type) { return {columns_, Add(name, type)}; }

 private:
  friend class Group;
  std::size_t Add(Name name, std::uint32_t type) {
    auto &[infos, status] = *columns_;
    const auto has_name = [&](const detail::ColumnInfo &info) { return info.name == name; };
    if (status) {
      status = detail::check(
          "template", {{!detail::is_name(name), detail::kBadName, ZOR_PROCESS_ERROR_IN_TEMPLATE},
                       {std::any_of(infos.begin(), infos.end(), has_name), "two columns have the same name",
                        ZOR_PROCESS_ERROR_IN_TEMPLATE},
                       {type > ZOR_PROCESS_DATA_TYPE_UINT64, "no such data type", ZOR_PROCESS_ERROR_IN_TEMPLATE}});
    }
    infos.push_back({std::string(name), type});
    return infos.size() - 1;
  }
  std::shared_ptr<detail::Columns> columns_ = std::make_shared<detail::Columns>();
};

namespace detail {

/** What the handles of a group share; its end deletes the data group. */
struct Data {
  Data(std::shared_ptr<zor_process_engine_t> handle, Name group, const GroupSettings &given)
      : engine(std::move(handle)), name(group), place("group '" + name + "'"), settings(given) {}
  Data(const Data &) = delete;
  Data &operator=(const Data &) = delete;
  ~Data() {
    if (exists) set_dg(ZOR_PROCESS_OPER_DELETE, nullptr);
  }

  std::uint32_t set_dg(std::uint32_t operation, zor_process_attr_t *attr) const {
    const char *dg = name.c_str();
    return zor_process_engine_set_dg(engine.get(), operation, &dg, attr);
  }
  std::uint32_t set_object(std::uint32_t operation, const std::string &object,
                           zor_process_object_attr_t *attr) const {
    const char *object_name = object.c_str();
    return zor_process_engine_set_object(engine.get(), operation, name.c_str(), &object_name, attr);
  }

  /** A failure latches the data group. As settings were checked it does not last: the latch is lifted. */
  std::uint32_t lift(std::uint32_t code) const {
    constexpr std::uint16_t kNothing = 0;
    if (code != ZOR_PROCESS_SUCCESS) zor_process_engine_clear_dg_data(engine.get(), name.c_str(), kNothing, 0);
    return code;
  }
  std::uint32_t send(std::uint32_t kind, std::vector<void *> &pointers) const {
    const zor_process_msg_t msg = {0, kind, static_cast<std::int32_t>(pointers.size()), pointers.data()};
    return lift(zor_process_engine_process_data(engine.get(), name.c_str(), &msg));
  }

  Status send_template(const std::shared_ptr<Columns> &table) {
    std::vector<zor_process_column_t> sent;
    sent.reserve(table->infos.size());
    for (const auto &[column, type] : table->infos) {
      const std::uint32_t kind = type == 0       ? ZOR_PROCESS_VALUE_STRING
                                 : type % 2 == 1 ? ZOR_PROCESS_VALUE_SIGNED
                                                 : ZOR_PROCESS_VALUE_UNSIGNED;
      const std::uint32_t width = type >= ZOR_PROCESS_DATA_TYPE_INT64 ? 8 : 4;
      sent.push_back({column.c_str(), kind, 0, width, type == 0 ? std::uint32_t{ZOR_PROCESS_COLUMN_KEY} : 0});
    }
    std::vector<void *> pointers;
    pointers.reserve(sent.size());
    for (zor_process_column_t &record : sent) pointers.push_back(&record);
    const std::uint32_t code = send(ZOR_PROCESS_MSG_TEMPLATE, pointers);
    if (code != ZOR_PROCESS_SUCCESS) {
      set_dg(ZOR_PROCESS_OPER_CLEAR, nullptr);  // else a part of the columns would stay, and take the place
      return check(place, code);
    }
    columns = table;
    infos = table->infos;
    cells.assign(infos.size(), {});
    one_value.assign(infos.size(), nullptr);
    whole_row.clear();
    for (zor_process_cell_t &cell : cells) whole_row.push_back(&cell);
    return Done{};
  }

  /** Fills the cells; returns what is wrong with them, or null. */
  template <class Cells>
  const char *fill(Name row, const Cells &given) {
    if (!is_name(row)) return kBadName;
    key = row;
    std::fill(cells.begin(), cells.end(), zor_process_cell_t{});
    cells[0] = {ZOR_PROCESS_VALUE_STRING, static_cast<std::uint32_t>(key.size()), key.c_str()};
    for (const Cell &cell : given) {
      if (cell.columns != columns.get() || cell.column >= infos.size())
        return "a cell is of another template's column";
      if (!cell.value) continue;
      if (cells[cell.column].value) return "two values are of one column";
      if (cell.value->index() + 1 != infos[cell.column].type) return "a value is not of its column's type";
      std::visit([&](const auto &value) { cells[cell.column] = {0, sizeof value, &value}; }, *cell.value);
    }
    return nullptr;
  }

  template <class Cells>
  Status send_row(Name row, const Cells &given) {
    const char *wrong = fill(row, given);
    std::uint32_t code = wrong ? ZOR_PROCESS_ERROR_INVALID_PARAMS : ZOR_PROCESS_SUCCESS;
    if (!wrong && !has_baselines) {
      code = send(ZOR_PROCESS_MSG_ROW, whole_row);
      if (code == ZOR_PROCESS_ERROR_IN_DATA) wrong = "a sum is full, and the columns after it are not counted";
    } else if (!wrong) {
      // A baseline refuses outliers, and with a value what comes after it in its message: each value gets its own.
      one_value[0] = whole_row[0];
      for (std::size_t i = 1; i < cells.size(); ++i) {
        if (!cells[i].value) continue;
        one_value[i] = whole_row[i];
        const std::uint32_t sent = send(ZOR_PROCESS_MSG_ROW, one_value);
        one_value[i] = nullptr;
        if (sent == ZOR_PROCESS_ERROR_IN_DATA)
          ++refused;
        else if (code == ZOR_PROCESS_SUCCESS)
          code = sent;
      }
    }
    if (code == ZOR_PROCESS_SUCCESS) return Done{};
    if (!wrong) wrong = zor_proc_get_error_string_list(code);
    return note(Error{code, place + ", row '" + std::string(row) + "': " + wrong});
  }

  Status note(Status status) {
    if (!status && !failure) failure = status.error();
    return status;
  }

  Status end_poll() {
    std::vector<void *> none;
    is_open = false;
    note(check(place, send(ZOR_PROCESS_MSG_END_OF_POLL, none)));
    if (++polls >= (interval != 0 ? interval : kMostPolls)) {
      note(clear(kCleared));
    } else if (has_baselines) {
      collect();
    }
    if (!failure) return Done{};
    return *std::exchange(failure, std::nullopt);
  }

  Status clear(std::uint16_t mask) {
    collect();  // a record left uncollected would stop the clear
    const std::uint32_t code = lift(zor_process_engine_clear_dg_data(engine.get(), name.c_str(), mask, 1));
    collect();
    if (code == ZOR_PROCESS_SUCCESS && mask == kCleared) polls = 0;
    return check(
        place, {{code != ZOR_PROCESS_SUCCESS, "the clear stopped half-way: what it did not reach is kept", code}});
  }

  /** Takes over all clear buffers. */
  void collect() {
    zor_process_data_cursor_t cursor = {name.c_str(), nullptr, nullptr, nullptr, 0};
    for (;;) {
      std::free(
          zor_process_engine_get_next_object_instance_data(engine.get(), &cursor, 0));  // moves on, renders nothing
      if (!cursor.entry) return;
      const Text text(zor_process_engine_get_clear_buffer(&cursor));
      zor_process_engine_set_clear_buffer(&cursor, nullptr);
      if (text) records += text.get();
    }
  }

  std::shared_ptr<zor_process_engine_t> engine;
  std::string name, place;
  GroupSettings settings;
  std::uint64_t interval = 0, polls = 0; /**< counted here: after a failed clear the data group's count runs past */
  std::vector<std::pair<std::string, std::optional<Range>>> objects;
  std::shared_ptr<const Columns> columns; /**< of the template, null before there is one */
  std::vector<ColumnInfo> infos;          /**< what they were then */
  std::string key;
  std::vector<zor_process_cell_t> cells;
  std::vector<void *> whole_row, one_value; /**< pointers to the cells */
  std::string records;
  std::optional<Error> failure; /**< the first of a poll */
  std::uint64_t refused = 0, restarts = 0;
  bool exists = false, has_baselines = false, is_open = false;
};

}  // namespace detail

/** A poll of a group. It ends with end(), or with the handle. */
class Poll {
 public:
  Poll(Poll &&) = default;                /**< the handle moves */
  Poll(const Poll &) = delete;            /**< a poll ends once */
  Poll &operator=(Poll &&) = delete;      /**< a poll ends once */
  Poll &operator=(const Poll &) = delete; /**< a poll ends once */
  /** Ends the poll. */
  ~Poll() {
    if (data_) end();
  }

  /** Counts the values of an instance: row("eth0", {rx(1U), tx(2U)}). When it fails the poll goes on; what was
   * counted stays counted. Copies the key and nothing else.
   * @param key the name of the instance
   * @param cells a list or any container of Cell; columns without one have no value
   * @return what is wrong with the row */
  template <class Cells = std::initializer_list<Cell>>
  Status row(Name key, const Cells &cells) {
    if (!data_) return Ended();
    return data_->send_row(key, cells);
  }

  /** Ends the poll; clears the group if its interval is over, and at the next polls again if that fails; collects
   * the records. Visits every instance when it clears, and in a group with baselines.
   * @return the first failure of the poll */
  Status end() {
    if (!data_) return Ended();
    return std::exchange(data_, nullptr)->end_poll();
  }

 private:
  friend class Group;
  explicit Poll(std::shared_ptr<detail::Data> data) : data_(std::move(data)) { data_->is_open = true; }
  static Error Ended() { return {ZOR_PROCESS_ERROR_INVALID_PARAMS, "the poll has ended"}; }
  std::shared_ptr<detail::Data> data_;
};

/** An instance that a walk has reached. The names are the library's, valid until a restart and while a handle
 * lives.
 */
struct Instance {
  std::string_view object; /**< its object */
  std::string_view name;   /**< its own, the key of its rows */
  detail::Text text;       /**< as rendered */
};

/** A walk over the instances of a group. */
class Walk {
 public:
  /** Goes on to the next instance.
   * @return it; nothing at the end; an Error for one that cannot be rendered, and the next call goes on */
  Result<std::optional<Instance>> next() {
    if (restarts_ != data_->restarts) {
      return Error{ZOR_PROCESS_ERROR_INVALID_PARAMS, data_->place + ": the walk began before a restart"};
    }
    detail::Text text(zor_process_engine_get_next_object_instance_data(data_->engine.get(), &cursor_, mode_));
    if (!cursor_.entry) return std::optional<Instance>();
    kel_hashset_record_t head;  // what every entry begins with
    std::memcpy(&head, cursor_.entry, sizeof head);
    const std::string_view object = cursor_.oper_entry->name;
    const std::string_view name = head.name;
    if (text) return std::optional<Instance>({object, name, std::move(text)});
    return Error{ZOR_PROCESS_ERROR_NO_MEMORY, data_->place + ", object '" + std::string(object) + "', instance '" +
                                                  std::string(name) + "': cannot be rendered"};
  }

 private:
  friend class Group;
  Walk(std::shared_ptr<detail::Data> data, std::uint32_t mode)
      : data_(std::move(data)), cursor_{data_->name.c_str(), nullptr, nullptr, nullptr, 0}, mode_(mode) {}
  std::shared_ptr<detail::Data> data_;
  zor_process_data_cursor_t cursor_;
  std::uint32_t mode_;
  std::uint64_t restarts_ = data_->restarts;
};

/** A handle of a data group. Copies share it; the last handle, poll or walk deletes it. */
class Group {
 public:
  /** Adds an object, before the template.
   * @param name its name and its column's
   * @param object its settings
   * @return what is wrong with them; then nothing is added */
  Status object(Name name, const ObjectSettings &object = {}) {
    using namespace detail;
    const std::string text(name);
    const std::string place = data_->place + ", object '" + text + "'";
    const Statistics statistics = object.statistics | data_->settings.statistics;
    const bool is_baseline = has_baseline(statistics);
    const bool learns = object.learning.has_value();
    const auto learning = learns ? object.learning->in_polls_of(data_->settings.poll_interval) : data_->interval;
    const auto &watched = object.instances;
    const char *owner =
        zor_process_engine_get_object_name_byid(data_->engine.get(), data_->name.c_str(), object.id);
    Status checked = check(
        place, {{!is_name(name) || !std::all_of(watched.begin(), watched.end(), is_name), kBadName},
                {data_->columns != nullptr, "objects come before the template"},
                {bool(object_id(name)), "exists already"},
                {object.id != 0 && owner, "the identifier is another object's"},
                {statistics == Statistics::none, "no statistics are selected"},
                {is_mixed(statistics), kMixed},
                {!is_count(object.buckets.value_or(1)), kBadBuckets},
                {object.range && object.range->type == 0, "the range is inverted", ZOR_PROCESS_ERROR_INVALID_RANGE},
                {object.range && is_baseline, "a baseline learns its own range", ZOR_PROCESS_ERROR_INVALID_RANGE},
                {learns && !is_baseline, "only a baseline learns", ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL},
                {learns && !is_count(learning), "the learning interval is not 1 to 65535 polls",
                 ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL}});
    if (!checked) return checked;

    Range range = object.range.value_or(Range(0, 0));
    auto flags = static_cast<std::uint16_t>(object.statistics);
    auto id = object.id;
    auto buckets = object.buckets.value_or(0);
    auto values = static_cast<std::uint32_t>(object.values);
    auto clear_interval = static_cast<std::uint32_t>(learning);
    std::uint32_t clear_type = clear_interval == 0 ? 0 : 1;  // polls
    std::uint32_t range_type = object.range ? range.type : 0;
    zor_process_attr_t common = {&flags, &buckets, &clear_type, &clear_interval};
    zor_process_object_attr_t attr = {&id, &common, &values, &range_type, range.bounds};
    std::uint32_t code = data_->set_object(ZOR_PROCESS_OPER_SET, text, &attr);
    for (auto i = watched.begin(); i != watched.end() && code == ZOR_PROCESS_SUCCESS; ++i) {
      const char *instance = i->c_str();
      code = zor_process_engine_set_object_instance(data_->engine.get(), ZOR_PROCESS_OPER_SET, data_->name.c_str(),
                                                    text.c_str(), &instance);
    }
    if (code != ZOR_PROCESS_SUCCESS) {
      data_->set_object(ZOR_PROCESS_OPER_DELETE, text, nullptr);  // else a part of it would stay
      return check(place, code);
    }
    data_->objects.emplace_back(text, object.range);
    data_->has_baselines |= is_baseline;
    return Done{};
  }

  /** Takes the template. Again with the same columns it changes nothing.
   * @param table the columns
   * @return what is wrong with them, or that they have changed: see restart() */
  Status start(const Template &table) {
    if (Status s = Check(table); !s) return s;
    if (!data_->columns) return data_->send_template(table.columns_);
    data_->columns = table.columns_;
    return Done{};
  }

  /** Clears the group, keeps the records, then drops all data (counters are primed and baselines learn anew) and
   * takes a template of other columns.
   * @param table the columns
   * @return what is wrong with them, or of the clear; then nothing is dropped */
  Status restart(const Template &table) {
    if (Status s = Check(table, true); !s) return s;
    if (Status s = data_->clear(detail::kCleared); !s) return s;
    data_->set_dg(ZOR_PROCESS_OPER_CLEAR, nullptr);
    data_->columns = nullptr;
    ++data_->restarts;
    return data_->send_template(table.columns_);
  }

  /** Begins a poll. @return the poll, if there is a template and no other poll */
  Result<Poll> poll() {
    Status checked =
        detail::check(data_->place, {{!data_->columns, "a poll before the template", ZOR_PROCESS_ERROR_NO_KEY},
                                     {data_->is_open, "a poll before the last one has ended"}});
    if (!checked) return checked.error();
    return Poll(data_);
  }

  /** Renders and clears summaries and distributions now; the interval begins anew.
   * @return whether all were cleared; the records of those that were can be taken, the others are kept */
  Status clear() { return data_->clear(detail::kCleared); }

  /** Renders the baselines that have learnt, now, and clears nothing. @return whether all were rendered */
  Status snapshot() { return data_->clear(ZOR_PROCESS_FLAG_BASELINE); }

  /** @return the record lines since the last call */
  std::string take_records() { return std::exchange(data_->records, {}); }

  /** @return the number of values that a group with baselines has refused: outliers, which are counted without a
   * bucket, and values that a baseline without a usable range does not count */
  std::uint64_t refused() const { return data_->refused; }

  /** @param name the whole name of an object @return its identifier */
  Result<std::uint32_t> object_id(Name name) const {
    std::uint32_t id = 0;
    zor_process_object_attr_t attr = {&id, nullptr, nullptr, nullptr, nullptr};
    const Status found = detail::check(data_->place + ", object '" + std::string(name) + "'",
                                       data_->set_object(ZOR_PROCESS_OPER_GET, std::string(name), &attr));
    if (!found) return found.error();
    return id;
  }

  /** @param mode what is rendered, ZOR_PROCESS_OUTPUT_* @return a walk before the first instance */
  Walk walk(std::uint32_t mode = ZOR_PROCESS_OUTPUT_RECORD) const { return Walk(data_, mode); }

  /** The console report, by way of a data list of libzor_platform.
   * @param settings what it shows
   * @return its text */
  Result<std::string> report(const ReportSettings &settings = {}) const {
    zor_process_print_handle_t handle = {zor_datalist_create(), 0, {}, nullptr, 0};
    Status checked =
        detail::check(data_->place, {{settings.percentile.value_or(0) > 100, "a percentile above 100"},
                                     {handle.datalist == 0, "no data list", ZOR_PROCESS_ERROR_NO_MEMORY}});
    std::string text;
    if (checked) {
      const zor_process_data_cursor_t dg = {data_->name.c_str(), nullptr, nullptr, nullptr, 0};
      const auto any = [](const std::string &name) { return name.empty() ? nullptr : name.c_str(); };
      zor_process_print_handle_t *before = pvg_prt_handle;
      zor_process_engine_print_object_instance_data_with_handle(
          data_->engine.get(), &dg, any(settings.object), any(settings.instance),
          settings.percentile ? &*settings.percentile : nullptr, static_cast<std::uint32_t>(settings.sections),
          &handle);
      pvg_prt_handle = before;  // the library keeps the handle, which ends here
      zor_datalist_item_t item;
      for (std::uint32_t i = 0; zor_datalist_get(handle.datalist, i, &item) == 0; ++i) text += item.text;
    }
    zor_datalist_free(handle.datalist);
    if (!checked) return checked.error();
    return text;
  }

 private:
  friend class Engine;
  explicit Group(std::shared_ptr<detail::Data> data) : data_(std::move(data)) {}

  Status Check(const Template &table, bool is_restart = false) const {
    const auto &infos = table.columns_->infos;
    if (!table.columns_->status) return Error(table.columns_->status.error());
    for (const auto &[name, range] : data_->objects) {
      const auto named = [&object = name](const detail::ColumnInfo &info) { return info.name == object; };
      const auto column = std::find_if(infos.begin(), infos.end(), named);
      const std::uint32_t type = column == infos.end() ? 0 : column->type;
      Status checked = detail::check(
          data_->place + ", object '" + name + "'",
          {{column == infos.end(), "the template has no column of its name", ZOR_PROCESS_ERROR_IN_TEMPLATE},
           {type == 0, "its column is the key", ZOR_PROCESS_ERROR_UNSUPPORTED_OBJECT_TYPE},
           {range && !range->fits(type), "the range does not fit the type of its column",
            ZOR_PROCESS_ERROR_INVALID_RANGE}});
      if (!checked) return checked;
    }
    return detail::check(data_->place,
                         {{!is_restart && data_->columns && !(data_->infos == infos),
                           "the template has changed: restart() takes it, and drops what is collected",
                           ZOR_PROCESS_ERROR_IN_TEMPLATE}});
  }

  std::shared_ptr<detail::Data> data_;
};

/** An engine and its data groups. It lives while it or a handle of one of its groups does. */
class Engine {
 public:
  /** An engine without groups. */
  Engine() : engine_(new zor_process_engine_t{}, Destroy) { kel_ext_hash_name_init(&engine_->dgs); }

  /** Makes a group.
   * @param name its name
   * @param settings its settings
   * @return a handle of it, or what is wrong with them; then nothing is made */
  Result<Group> group(Name name, const GroupSettings &settings = {}) {
    using namespace detail;
    auto data = std::make_shared<Data>(engine_, name, settings);
    const auto seconds = settings.poll_interval.count();
    const bool has_time = seconds >= 10 && seconds <= UINT32_MAX;
    if (settings.clear && has_time) data->interval = settings.clear->in_polls_of(settings.poll_interval);
    auto flags = static_cast<std::uint16_t>(settings.statistics);
    zor_process_attr_t attr = {};
    Status status = check(
        data->place, {{!is_name(name), kBadName},
                      {data->set_dg(ZOR_PROCESS_OPER_GET, &attr) == ZOR_PROCESS_SUCCESS, "exists already"},
                      {!has_time, "the poll interval is below 10 seconds", ZOR_PROCESS_ERROR_INVALID_POLL_INTERVAL},
                      {settings.clear && !is_count(data->interval), "the clear interval is not 1 to 65535 polls",
                       ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL},
                      {is_mixed(settings.statistics), kMixed},
                      {!is_count(settings.buckets), kBadBuckets}});
    attr = {&flags, &data->settings.buckets, nullptr, nullptr};
    if (status) status = check(data->place, data->set_dg(ZOR_PROCESS_OPER_SET, &attr));
    if (!status) return status.error();
    data->exists = true;
    zor_process_engine_set_poll_interval(engine_.get(), data->name.c_str(), static_cast<std::uint32_t>(seconds));
    return Group(std::move(data));
  }

  /** @return the engine, for C calls */
  zor_process_engine_t *get() const { return engine_.get(); }

 private:
  static void Destroy(zor_process_engine_t *engine) {
    zor_process_attr_t nothing = {};
    for (const char *name = nullptr;
         zor_process_engine_set_dg(engine, ZOR_PROCESS_OPER_GET, &name, &nothing) == ZOR_PROCESS_SUCCESS;
         name = nullptr) {
      zor_process_engine_set_dg(engine, ZOR_PROCESS_OPER_DELETE, &name, nullptr);
    }
    kel_hashset_free(&engine->dgs);
    delete engine;
  }
  std::shared_ptr<zor_process_engine_t> engine_;
};

}  // namespace zor::process

#endif /* ZOR_PROCESS_HPP_ */
