// Groups, templates and rows of any shape through the C++ header, held against C calls. What the header takes the
// library must take as well, and the records must be the same; what it refuses never reaches the library.

#include <algorithm>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "input.h"
#include "zor/process.hpp"

namespace zor_fuzz {
namespace {

namespace zp = zor::process;

const char *const kNames[] = {"a", "b", "ab", "abc", "d", "e f", "", "c,d", "x\ny"};

bool IsName(const std::string &name) { return !name.empty() && name.find_first_of(",\n") == std::string::npos; }

struct PlainColumn {
  std::string name;
  std::uint32_t type;
};

// A group fed by C calls.
class Plain {
 public:
  Plain() { kel_ext_hash_name_init(&engine_.dgs); }
  Plain(const Plain &) = delete;
  Plain &operator=(const Plain &) = delete;
  ~Plain() {
    SetDg(ZOR_PROCESS_OPER_DELETE);
    kel_hashset_free(&engine_.dgs);
  }

  std::uint32_t SetDg(std::uint32_t operation, zor_process_attr_t *attr = nullptr) {
    const char *name = "g";
    return zor_process_engine_set_dg(&engine_, operation, &name, attr);
  }

  void Make(zp::GroupSettings settings) {
    auto flags = static_cast<std::uint16_t>(settings.statistics);
    zor_process_attr_t attr = {&flags, &settings.buckets, nullptr, nullptr};
    ZOR_REQUIRE(SetDg(ZOR_PROCESS_OPER_SET, &attr) == 0);
    zor_process_engine_set_poll_interval(&engine_, "g", 10);
  }

  void Add(const std::string &name, zp::ObjectSettings settings) {
    auto flags = static_cast<std::uint16_t>(settings.statistics);
    auto kind = static_cast<std::uint32_t>(settings.values);
    std::uint32_t range_type = settings.range ? settings.range->type : 0;
    zor_process_attr_t common = {&flags, settings.buckets ? &*settings.buckets : nullptr, nullptr, nullptr};
    zor_process_object_attr_t attr = {nullptr, &common, &kind, &range_type,
                                      settings.range ? settings.range->bounds : nullptr};
    const char *object = name.c_str();
    ZOR_REQUIRE(zor_process_engine_set_object(&engine_, ZOR_PROCESS_OPER_SET, "g", &object, &attr) == 0);
  }

  std::uint32_t Send(std::uint32_t kind, std::vector<void *> pointers = {}) {
    const zor_process_msg_t msg = {0, kind, static_cast<std::int32_t>(pointers.size()), pointers.data()};
    return zor_process_engine_process_data(&engine_, "g", &msg);
  }

  std::uint32_t SendTemplate(const std::vector<PlainColumn> &columns) {
    std::vector<zor_process_column_t> records = {{"key", 2, 0, 0, ZOR_PROCESS_COLUMN_KEY}};
    for (const PlainColumn &column : columns) {
      records.push_back({column.name.c_str(), column.type % 2, 0, column.type > 2 ? 8u : 4u, 0});
    }
    std::vector<void *> pointers;
    for (auto &record : records) pointers.push_back(&record);
    return Send(ZOR_PROCESS_MSG_TEMPLATE, pointers);
  }

  // Clears what mask says; returns the records.
  std::string Clear(std::uint16_t mask) {
    ZOR_REQUIRE(zor_process_engine_clear_dg_data(&engine_, "g", mask, 1) == 0);
    std::string records;
    zor_process_data_cursor_t cursor = {"g", nullptr, nullptr, nullptr, 0};
    for (;;) {
      std::free(zor_process_engine_get_next_object_instance_data(&engine_, &cursor, 0));
      if (!cursor.entry) return records;
      if (char *text = zor_process_engine_get_clear_buffer(&cursor)) {
        records += text;
        zor_process_engine_set_clear_buffer(&cursor, nullptr);
        std::free(text);
      }
    }
  }

 private:
  zor_process_engine_t engine_ = {};
};

class Session {
 public:
  explicit Session(Input &in) : in_(in) {}

  void Run() {
    zp::GroupSettings settings;
    settings.statistics = TakeStatistics();
    settings.buckets = TakeBuckets();
    if (in_.OneIn(2)) settings.clear = zp::Interval::polls(interval_ = in_.Below(6));
    auto group = engine_.group("g", settings);
    if (!group) return;
    group_ = *group;
    plain_.Make(settings);
    for (std::uint32_t i = in_.Below(5); i > 0; --i) AddObject(settings.statistics);
    bool started = false;
    while (!in_.empty()) {
      if (!started || in_.OneIn(16)) {
        started |= StartOrRestart(started);
      } else {
        Poll();
      }
    }
  }

 private:
  std::string TakeName() { return kNames[in_.Below(std::size(kNames))]; }
  zp::Statistics TakeStatistics() {
    return static_cast<zp::Statistics>(in_.OneIn(2) ? in_.Below(16) : in_.Below(8));
  }
  std::uint32_t TakeBuckets() { return in_.OneIn(8) ? in_.Value<std::uint32_t>() : 1 + in_.Below(40); }

  zp::Range TakeRange() {
    return in_.OneIn(2) ? zp::Range(in_.Value<std::int64_t>(), in_.Value<std::int64_t>())
                        : zp::Range(in_.Value<std::int32_t>(), in_.Value<std::uint64_t>());
  }

  void AddObject(zp::Statistics common) {
    zp::ObjectSettings settings;
    settings.statistics = TakeStatistics();
    settings.values = static_cast<zp::Values>(in_.Below(2));
    if (in_.OneIn(2)) settings.range = TakeRange();
    if (in_.OneIn(2)) settings.buckets = TakeBuckets();
    if (in_.OneIn(4))
      settings.learning = zp::Interval::polls(in_.OneIn(4) ? in_.Value<std::uint64_t>() : in_.Below(9));
    const std::string name = TakeName();
    if (!group_->object(name, settings)) return;
    ZOR_REQUIRE(IsName(name));
    plain_.Add(name, settings);
    has_baselines_ |= ((settings.statistics | common) == zp::Statistics::baseline);
  }

  bool StartOrRestart(bool started) {
    zp::Template table("key");
    std::vector<zp::Column<zp::Value>> columns;
    std::vector<PlainColumn> infos;
    for (std::uint32_t i = in_.Below(7); i > 0; --i) {
      infos.push_back({TakeName(), 1 + in_.Below(4)});
      columns.push_back(table.column(infos.back().name, static_cast<zor_process_data_type_t>(infos.back().type)));
    }
    if (!(started ? group_->restart(table) : group_->start(table))) return false;
    if (started) {
      Compare(plain_.Clear(7));
      plain_.SetDg(ZOR_PROCESS_OPER_CLEAR);
      polls_ = 0;
    }
    columns_ = columns;
    infos_ = infos;
    ZOR_REQUIRE(plain_.SendTemplate(infos) == 0);
    return true;
  }

  zp::Value TakeValue(std::uint32_t type) {
    switch (type) {
      case ZOR_PROCESS_DATA_TYPE_INT32:
        return in_.Value<std::int32_t>();
      case ZOR_PROCESS_DATA_TYPE_UINT32:
        return in_.Value<std::uint32_t>();
      case ZOR_PROCESS_DATA_TYPE_INT64:
        return in_.Value<std::int64_t>();
      default:
        return in_.Value<std::uint64_t>();
    }
  }

  void SendRow(zp::Poll &poll) {
    const std::string key = TakeName();
    bool is_right = IsName(key);
    std::vector<zp::Cell> cells;
    std::vector<std::optional<zp::Value>> values(infos_.size());
    for (std::uint32_t i = in_.Below(8); i > 0 && !infos_.empty(); --i) {
      const std::uint32_t column = in_.Below(static_cast<std::uint32_t>(infos_.size()));
      const std::uint32_t type = in_.OneIn(16) ? 1 + in_.Below(4) : infos_[column].type;
      is_right &= !values[column] && type == infos_[column].type;
      values[column] = TakeValue(type);
      cells.push_back(columns_[column](*values[column]));
    }
    const zp::Status status = poll.row(key, cells);
    if (!is_right) {
      ZOR_REQUIRE(!status && status.error().code == ZOR_PROCESS_ERROR_INVALID_PARAMS);
      return;
    }
    if (has_baselines_) {
      ZOR_REQUIRE(status);
      return;
    }
    std::vector<zor_process_cell_t> records = {{2, 0, key.c_str()}};
    for (const auto &value : values) {
      records.push_back({});
      if (value) std::visit([&](const auto &v) { records.back() = {0, sizeof v, &v}; }, *value);
    }
    std::vector<void *> pointers;
    for (auto &record : records) pointers.push_back(&record);
    const std::uint32_t code = plain_.Send(ZOR_PROCESS_MSG_ROW, pointers);
    ZOR_REQUIRE(code == 0 || code == ZOR_PROCESS_ERROR_IN_DATA);
    // Refused alone, a value is only counted.
    const auto sent = std::count_if(values.begin(), values.end(), [](const auto &v) { return v.has_value(); });
    ZOR_REQUIRE(status ? code == 0 || sent == 1 : status.error().code == code);
    if (code != 0) plain_.Clear(0);
  }

  void Poll() {
    {
      auto poll = group_->poll();
      ZOR_REQUIRE(poll);
      for (std::uint32_t i = in_.Below(6); i > 0; --i) SendRow(*poll);
    }
    ZOR_REQUIRE(plain_.Send(ZOR_PROCESS_MSG_END_OF_POLL) == 0);
    std::string expected;
    if (++polls_ == interval_) {
      polls_ = 0;
      expected = plain_.Clear(7);
    }
    Compare(expected);
  }

  void Compare(const std::string &expected) {
    const std::string records = group_->take_records();
    ZOR_REQUIRE(has_baselines_ || records == expected);
  }

  Input &in_;
  zp::Engine engine_;
  Plain plain_;
  std::optional<zp::Group> group_;
  std::vector<zp::Column<zp::Value>> columns_;
  std::vector<PlainColumn> infos_;
  std::uint32_t interval_ = 0;
  std::uint32_t polls_ = 0;
  bool has_baselines_ = false;
};

}  // namespace
}  // namespace zor_fuzz

// Stands for the platform's clock.
void kel_time_get_timespec_realtime(struct timespec *now) { *now = {1700000000, 0}; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  zor_fuzz::Input in(data, size);
  zor_fuzz::Session(in).Run();
  return 0;
}
