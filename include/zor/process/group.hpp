/** @file
 * @brief Engines, their groups, and the polls that feed these. */
#ifndef ZOR_PROCESS_GROUP_HPP_
#define ZOR_PROCESS_GROUP_HPP_

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "zor/process/data_group.hpp"
#include "zor/process/group_state.hpp"
#include "zor/process/readings.hpp"
#include "zor/process/report.hpp"
#include "zor/process/result.hpp"
#include "zor/process/settings.hpp"
#include "zor/process/table.hpp"
#include "zor/process/walk.hpp"

namespace zor::process {

/** A poll of a group. It ends with end(), or with the handle. */
class Poll {
 public:
  Poll(Poll &&) = default;                /**< the handle moves */
  Poll(const Poll &) = delete;            /**< a poll ends once */
  Poll &operator=(Poll &&) = delete;      /**< a poll ends once */
  Poll &operator=(const Poll &) = delete; /**< a poll ends once */
  /** Ends the poll. What fails in it, the end() of a later poll tells; std::bad_alloc, which end() would throw,
   * ends the program. */
  ~Poll() {
    if (group_) group_->end_poll();
  }

  /** Counts the values of an instance: row("eth0", {rx(1U), tx(2U)}). When it fails the poll goes on; what was
   * counted stays counted, and end() tells the first failure again. A value that its object refuses is no failure,
   * see Group::refused(), unless others are lost with it. Copies the key and nothing else.
   * @param key the name of the instance
   * @param cells a list or any container of Cell; columns without one have no value
   * @return what is wrong with the row */
  template <class Cells = std::initializer_list<Cell>>
  Status row(const Name &key, const Cells &cells) {
    if (!group_) return ended();
    return group_->send_row(key, cells);
  }

  /** Ends the poll; clears the group if its interval is over, and at the next polls again if that fails; collects
   * the records. Visits every instance when it clears, and when a baseline has a record.
   * @return the first failure of the poll, or of polls before it that no end() has told */
  [[nodiscard]] Status end() {
    if (!group_) return ended();
    const auto group = std::exchange(group_, nullptr);
    group->end_poll();
    return group->take_failure();
  }

 private:
  friend class Group;
  explicit Poll(std::shared_ptr<detail::GroupState> group) : group_(std::move(group)) {
    group_->tally.is_open = true;
  }
  static Error ended() { return {ZOR_PROCESS_ERROR_INVALID_PARAMS, "the poll has ended"}; }
  std::shared_ptr<detail::GroupState> group_;
};

/** A handle of a data group. Copies share it; the last handle, poll or walk deletes it. */
class Group {
 public:
  /** Adds an object, before the template.
   * @param name its name and its column's
   * @param object its settings
   * @return what is wrong with them; then nothing is added */
  [[nodiscard]] Status object(Name name, const ObjectSettings &object = {}) {
    const auto statistics = detail::in_full(object.statistics | setup().settings.statistics);
    const bool learns = object.learning.has_value();
    const auto learning = learns ? object.learning->in_polls_of(setup().settings.poll_interval) : setup().interval;
    if (Status s = check_object(name, object, statistics, learning); !s) return s;
    const std::string text(name);
    const std::uint32_t code = set_object(text, object, static_cast<std::uint32_t>(learning));
    if (code != ZOR_PROCESS_SUCCESS) {
      dg().set_object(ZOR_PROCESS_OPER_DELETE, text, nullptr);  // else a part of it would stay
      return detail::check(place_of(name), code);
    }
    setup().objects.push_back({text, object.range, object.values, object.instances});
    std::sort(setup().objects.back().instances.begin(), setup().objects.back().instances.end());
    setup().statistics |= statistics;
    return Done{};
  }

  /** Takes the template. Again with the same columns it changes nothing.
   * @param table the columns
   * @return what is wrong with them, or that they have changed: see restart() */
  [[nodiscard]] Status start(const Template &table) {
    if (Status s = check_template(table); !s) return s;
    if (!state_->row.has_columns()) return state_->send_template(table.columns_);
    const bool is_same = state_->row.infos() == table.columns_->infos;
    if (is_same) state_->row.set_columns(table.columns_);
    return detail::check(dg().place(),
                         {{!is_same, "the template has changed: restart() takes it, and drops what is collected",
                           ZOR_PROCESS_ERROR_IN_TEMPLATE}});
  }

  /** Clears the group, keeps the records, then drops all data (counters are primed and baselines learn anew) and
   * takes a template of other columns.
   * @param table the columns
   * @return what is wrong with them, or of the clear; then nothing is dropped */
  [[nodiscard]] Status restart(const Template &table) {
    if (Status s = check_template(table); !s) return s;
    if (Status s = clear(); !s) return s;
    return state_->start_anew(table.columns_);
  }

  /** All that is collected, so that it can go on in another process: the interval in progress, baselines, the last
   * values of counters, which instances there are, records that were not taken (but not readings). Between two
   * polls. Linear in the instances and their buckets.
   * @return bytes in the order of this machine, for load() of the same version; or that there is no template or
   * that a poll is open */
  [[nodiscard]] Result<std::string> save() const {
    Status checked = detail::check(dg().place(), {{state_->tally.is_open, "saved before the poll has ended"}});
    if (!checked) return checked.error();
    return state_->save();
  }

  /** Goes on from where a group of the same settings and columns was saved. After the template and before the first
   * poll.
   * @param saved what save() has returned
   * @param counters whether they have gone on since, or have begun anew at 0, as after a restart of what counts: of
   * objects of Values::counter, in unsigned columns
   * @return what is wrong; the group is then as before */
  [[nodiscard]] Status load(std::string_view saved, Counters counters = Counters::go_on) {
    const auto &tally = state_->tally;
    const bool has_polled = tally.is_open || tally.polls != 0 || tally.interval != 1;
    Status checked = detail::check(
        dg().place(), {{!state_->row.has_columns(), "loaded before the template", ZOR_PROCESS_ERROR_NO_KEY},
                       {has_polled, "loaded behind the first poll"}});
    if (!checked) return checked;
    return state_->load(saved, counters);
  }

  /** Begins a poll. @return the poll, if there is a template and no other poll */
  [[nodiscard]] Result<Poll> poll() {
    const bool has_template = state_->row.has_columns();
    Status checked =
        detail::check(dg().place(), {{!has_template, "a poll before the template", ZOR_PROCESS_ERROR_NO_KEY},
                                     {state_->tally.is_open, "a poll before the last one has ended"}});
    if (!checked) return checked.error();
    return Poll(state_);
  }

  /** Renders and clears summaries and distributions now; the interval begins anew.
   * @return whether all were cleared; the records of those that were can be taken, the others are kept */
  [[nodiscard]] Status clear() { return state_->clear(); }

  /** Renders the baselines that have learnt, now, and clears nothing. One without a sample since its last record is
   * left out. @return whether all were rendered */
  [[nodiscard]] Status snapshot() { return state_->snapshot(); }

  /** @return the record lines since the last call */
  [[nodiscard]] std::string take_records() { return std::exchange(state_->tally.records, {}); }

  /** The statistics of every instance, for the interval in progress. At any time; linear in the buckets.
   * @return in the order of a walk; nothing before the template */
  [[nodiscard]] std::vector<Reading> readings() const { return state_->readings(); }

  /** The readings of the intervals that have ended, each taken just before its instance was cleared, as its record
   * was: when a clear stops half-way, what it did not reach is read at the next one. Baselines, which no clear
   * resets, are read when a clear has reached all.
   * @return those since the last call; nothing unless GroupSettings::keep_readings is set */
  [[nodiscard]] std::vector<Reading> take_readings() { return std::exchange(state_->tally.readings, {}); }

  /** The Schema-def headers of the records of those objects that have an instance. Linear in the objects.
   * @return a text of two lines for each kind of record */
  [[nodiscard]] Result<std::vector<std::string>> headers() const { return detail::headers(dg()); }

  /** The number of values that were refused: they did not fit into the sum; or a baseline has counted them without
   * a bucket, or, without a usable range, not at all. In a group of several objects without a baseline the values
   * behind one that does not fit are lost with it, and Poll::row() says so.
   * @return their number since the group was made */
  std::uint64_t refused() const { return state_->tally.refused; }

  /** The number of times that counters of an object were reset, see Values::counter.
   * @param object its name
   * @return their number since the group was made; 0 for an object of other values */
  std::uint64_t resets(Name object) const {
    const auto &objects = state_->setup.objects;
    const auto found =
        std::find_if(objects.begin(), objects.end(), [&](const auto &o) { return o.name == object.text; });
    return found == objects.end() ? 0 : found->resets;
  }

  /** Visits every instance. @return the number of instances whose baseline is still learning */
  std::size_t still_learning() const {
    std::size_t count = 0;
    dg().for_each_entry([&](const zor_process_object_oper_entry_t &column, const void *entry) {
      count += detail::visit_entry(column, entry, [](const auto &typed) -> std::size_t {
        return typed.analyzer && typed.analyzer->stage == STATS_ANALYZER_LEARNING ? 1 : 0;
      });
    });
    return count;
  }

  /** @param name of an instance @return whether an object of the group has counted it */
  bool has_instance(Name name) const {
    const std::string text(name);
    bool has = false;
    dg().for_each_column([&](zor_process_object_oper_entry_t &column) {
      has = has || kel_ext_hash_name_get(&column.instances, text.c_str());
    });
    return has;
  }

  /** @param name the whole name of an object @return its identifier */
  [[nodiscard]] Result<std::uint32_t> object_id(Name name) const {
    std::uint32_t id = 0;
    zor_process_object_attr_t attr = {&id, nullptr, nullptr, nullptr, nullptr};
    const Status found =
        detail::check(place_of(name), dg().set_object(ZOR_PROCESS_OPER_GET, std::string(name), &attr));
    if (!found) return found.error();
    return id;
  }

  /** @param mode what is rendered, ZOR_PROCESS_OUTPUT_* @return the instances */
  [[nodiscard]] Walk walk(std::uint32_t mode = ZOR_PROCESS_OUTPUT_RECORD) const { return Walk(state_, mode); }

  /** The console report, by way of a data list of libzor_platform.
   * @param settings what it shows
   * @return its text */
  [[nodiscard]] Result<std::string> report(const ReportSettings &settings = {}) const {
    return detail::report(dg(), settings);
  }

 private:
  friend class Engine;
  explicit Group(std::shared_ptr<detail::GroupState> state) : state_(std::move(state)) {}

  const detail::DataGroup &dg() const { return state_->dg; }
  detail::Setup &setup() { return state_->setup; }
  std::string place_of(std::string_view object) const {
    return dg().place() + ", object '" + std::string(object) + "'";
  }

  Status check_object(Name name, const ObjectSettings &object, Statistics statistics,
                      std::uint64_t learning) const {
    const bool is_baseline = overlap(statistics, Statistics::baseline);
    const auto &watched = object.instances;
    return detail::check(
        place_of(name),
        {{!is_name(name) || !std::all_of(watched.begin(), watched.end(), is_name), detail::kBadName},
         {state_->row.has_columns(), "objects come before the template"},
         {bool(object_id(name)), "exists already"},
         {object.id != 0 && zor_process_engine_get_object_name_byid(dg().engine(), dg().name(), object.id),
          "the identifier is another object's"},
         {statistics == Statistics::none, "no statistics are selected"},
         {detail::is_mixed(statistics), detail::kMixed},
         {!is_count(object.buckets.value_or(1)), detail::kBadBuckets},
         {object.range && object.range->type == 0, "the range is inverted", ZOR_PROCESS_ERROR_INVALID_RANGE},
         {object.range && is_baseline, "a baseline learns its own range", ZOR_PROCESS_ERROR_INVALID_RANGE},
         {object.learning && !is_baseline, "only a baseline learns", ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL},
         {object.learning && !is_count(learning), "the learning interval is not 1 to 65535 polls",
          ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL}});
  }

  std::uint32_t set_object(const std::string &name, const ObjectSettings &object, std::uint32_t learning) const {
    Range range = object.range.value_or(Range(0, 0));
    auto flags = static_cast<std::uint16_t>(detail::in_full(object.statistics));
    auto id = object.id;
    auto buckets = object.buckets.value_or(0);
    std::uint32_t values = object.values == Values::sampled ? 0 : 1;
    std::uint32_t clear_type = learning == 0 ? 0 : 1;  // polls
    std::uint32_t range_type = object.range ? range.type : 0;
    zor_process_attr_t common = {&flags, &buckets, &clear_type, &learning};
    zor_process_object_attr_t attr = {&id, &common, &values, &range_type, range.bounds};
    std::uint32_t code = dg().set_object(ZOR_PROCESS_OPER_SET, name, &attr);
    for (auto i = object.instances.begin(); i != object.instances.end() && code == ZOR_PROCESS_SUCCESS; ++i) {
      code = dg().add_instance(name, *i);
    }
    return code;
  }

  Status check_template(const Template &table) const {
    const auto &[infos, status] = *table.columns_;
    if (!status) return status;
    for (const detail::ObjectInfo &object : state_->setup.objects) {
      const auto &range = object.range;
      const auto named = [&](const detail::ColumnInfo &info) { return info.name == object.name; };
      const auto column = std::find_if(infos.begin(), infos.end(), named);
      const bool is_missing = column == infos.end();
      const std::uint32_t type = is_missing ? 0 : column->type;
      Status checked = detail::check(
          place_of(object.name),
          {{is_missing, "the template has no column of its name", ZOR_PROCESS_ERROR_IN_TEMPLATE},
           {type == detail::kKeyType, "its column is the key", ZOR_PROCESS_ERROR_UNSUPPORTED_OBJECT_TYPE},
           {range && !range->fits(type), "the range does not fit the type of its column",
            ZOR_PROCESS_ERROR_INVALID_RANGE}});
      if (!checked) return checked;
    }
    return Done{};
  }

  std::shared_ptr<detail::GroupState> state_;
};

/** An engine and its data groups. It lives while it or a handle of one of its groups does. */
class Engine {
 public:
  /** An engine without groups. */
  Engine() : engine_(new zor_process_engine_t{}, destroy) { kel_ext_hash_name_init(&engine_->dgs); }

  /** Makes a group.
   * @param name its name
   * @param settings its settings
   * @return a handle of it, or what is wrong with them; then nothing is made */
  [[nodiscard]] Result<Group> group(Name name, const GroupSettings &settings = {}) {
    const auto seconds = settings.poll_interval.count();
    const bool has_time = seconds >= 10 && seconds <= UINT32_MAX;
    const std::uint64_t interval =
        settings.clear && has_time ? settings.clear->in_polls_of(settings.poll_interval) : 0;
    auto state = std::make_shared<detail::GroupState>(engine_, name, detail::Setup{settings, interval});
    auto &dg = state->dg;
    zor_process_attr_t attr = {};
    Status status = detail::check(
        dg.place(),
        {{!is_name(name), detail::kBadName},
         {name.text.find(':') != std::string_view::npos, "a colon in it would end its name in record lines"},
         {dg.set(ZOR_PROCESS_OPER_GET, &attr) == ZOR_PROCESS_SUCCESS, "exists already"},
         {!has_time, "the poll interval is below 10 seconds", ZOR_PROCESS_ERROR_INVALID_POLL_INTERVAL},
         {settings.clear && !is_count(interval), "the clear interval is not 1 to 65535 polls",
          ZOR_PROCESS_ERROR_INVALID_CLEAR_INTERVAL},
         {detail::is_mixed(settings.statistics), detail::kMixed},
         {!is_count(settings.buckets), detail::kBadBuckets}});
    auto flags = static_cast<std::uint16_t>(detail::in_full(settings.statistics));
    auto buckets = settings.buckets;
    attr = {&flags, &buckets, nullptr, nullptr};
    if (status) status = detail::check(dg.place(), dg.create(&attr, static_cast<std::uint32_t>(seconds)));
    if (!status) return status.error();
    return Group(std::move(state));
  }

  /** @return the engine, for C calls */
  zor_process_engine_t *get() const { return engine_.get(); }

 private:
  static void destroy(zor_process_engine_t *engine) {
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

#endif /* ZOR_PROCESS_GROUP_HPP_ */
