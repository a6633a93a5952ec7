// Sequences of engine calls, decoded from bytes and held against a plain engine: its sets are lists, all is looked
// up by name, and its instances are entries of their own, fed through the tables of entry functions. Codes,
// settings, states, records and reports must be the same.

#include <ctime>
#include <deque>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "input.h"
#include "zor/datalist.h"
#include "zor/process.h"

namespace zor_fuzz {
namespace {

const char *const kNames[] = {
    "a",    "b", "ab",
    "c, d", "",  "a name that is longer than what a line of the report has room for, on either side"};
constexpr std::size_t kMostColumns = 7;
constexpr std::uint32_t kMostRows = 70000;  // in all: enough for every 16-bit count to reach its end

struct Free {
  void operator()(void *storage) const { std::free(storage); }
};
using Text = std::unique_ptr<char, Free>;

bool Same(const char *a, const char *b) { return a == nullptr || b == nullptr ? a == b : std::strcmp(a, b) == 0; }

template <class Records>
auto *Find(Records &records, const char *name) {
  const auto found = std::find_if(records.begin(), records.end(),
                                  [&](const auto &record) { return name != nullptr && record.name == name; });
  return found == records.end() ? nullptr : &*found;
}

struct Settings {
  std::uint16_t flags = 0;
  std::uint32_t buckets = 0;
  std::uint32_t clear_type = 0;
  std::uint32_t clear_interval = 0;
};

struct Instance {
  std::string name;
  void *entry;
};

struct Column {
  ~Column() {
    for (const Instance &instance : instances) g_zor_poi_entry_destroy_funcs[type()](instance.entry);
  }
  std::uint32_t type() const { return oper.data_type - 1; }

  std::string name;
  std::string dg_name;
  zor_process_object_oper_entry_t oper = {};  // what the entries read of theirs
  std::vector<Instance> instances;
};

struct Object : Settings {
  std::string name;
  std::uint32_t id = 0;
  std::uint32_t value_kind = 0;
  std::uint32_t range_type = 0;
  std::uint64_t range[2] = {};
  std::optional<std::vector<Instance>> watched;
};

struct Dg : Settings {
  std::string name;
  std::uint32_t poll_interval = 0;
  std::int32_t key_column = -1;
  std::uint16_t poll_count = 0;
  std::uint32_t status = 0;
  std::uint64_t no_of_samples = 0;
  std::uint8_t poll_state = 1;
  std::list<Object> objects;
  std::optional<std::deque<Column>> columns;

  void Reset() {
    columns.reset();
    key_column = -1;
    poll_count = 0;
    status = 0;
    no_of_samples = 0;
    poll_state = 1;
  }
};

std::uint32_t TemplateResult(Dg &dg, const zor_process_msg_t &msg) {
  if (msg.count < 1) return 0;
  if (msg.columns == nullptr) return 8;
  for (std::int32_t i = 0; i < msg.count; ++i) {
    const auto *column = static_cast<const zor_process_column_t *>(msg.columns[i]);
    if (column == nullptr) return 8;
    if ((column->flags & 1) != 0) {
      if (column->type != 2) return 10;
      dg.key_column = i;
    }
    const Object *object = Find(dg.objects, column->name);
    if (object == nullptr || (dg.flags | object->flags) == 0) continue;
    if (column->type > 1) return 7;
    if (Find(*dg.columns, column->name)) continue;
    Column &created = dg.columns->emplace_back();
    created.name = column->name;
    created.dg_name = dg.name;
    created.oper.name = created.name.data();
    created.oper.dg_name = created.dg_name.data();
    created.oper.column = static_cast<std::uint32_t>(i);
    created.oper.flags = dg.flags | object->flags;
    created.oper.data_type = (column->width == 8 ? 3 : 1) + (column->type == 1 ? 0 : 1);
  }
  return 0;
}

std::uint32_t LearningCount(const Dg &dg, const Object &object) {
  const Settings &settings = object.clear_type != 0 ? static_cast<const Settings &>(object) : dg;
  if (settings.clear_type == 1) return settings.clear_interval;
  if (settings.clear_type != 2) return 2000;
  const std::uint64_t seconds = settings.clear_interval * std::uint32_t{3600};
  return static_cast<std::uint32_t>((seconds + dg.poll_interval - 1) / dg.poll_interval);
}

// Whether the bounds are those of the column's type.
bool RangeFits(const Object &object, std::uint32_t data_type) {
  constexpr std::uint64_t kLargest[] = {INT32_MAX, UINT32_MAX, INT64_MAX, UINT64_MAX};
  const auto low = static_cast<std::int64_t>(object.range[0]), high = static_cast<std::int64_t>(object.range[1]);
  if (object.range_type > 4) return true;
  if (object.range_type == 3) return data_type == 3 || (data_type == 1 && low >= INT32_MIN && high <= INT32_MAX);
  const std::uint64_t largest = kLargest[data_type - 1];
  return object.range_type == 4 && object.range[0] <= largest && object.range[1] <= largest;
}

void *CreateEntry(const Dg &dg, const Object &object, Column &column, const char *key) {
  const bool zeros = object.range_type > 4;
  const std::uint64_t wide[2] = {zeros ? 0 : object.range[0], zeros ? 0 : object.range[1]};
  const std::uint32_t narrow[2] = {static_cast<std::uint32_t>(wide[0]), static_cast<std::uint32_t>(wide[1])};
  const void *range = column.oper.data_type >= 3 ? static_cast<const void *>(wide) : narrow;
  return g_zor_poi_entry_create_funcs[column.type()](
      key, object.value_kind, column.oper.flags, object.range_type == 0 ? nullptr : range,
      object.buckets != 0 ? object.buckets : dg.buckets, LearningCount(dg, object), &column.oper);
}

std::uint32_t RowResult(Dg &dg, const zor_process_msg_t &msg) {
  if (dg.key_column == -1) return 9;
  const auto *cells = reinterpret_cast<zor_process_cell_t *const *>(msg.columns);
  const zor_process_cell_t *key_cell = cells ? cells[dg.key_column] : nullptr;
  if (key_cell == nullptr || key_cell->type != 2 || key_cell->value == nullptr) return 10;
  const auto *key = static_cast<const char *>(key_cell->value);
  for (Column &column : *dg.columns) {
    const zor_process_cell_t *cell = cells[column.oper.column];
    if (cell == nullptr || cell->value == nullptr || cell->length == 0) continue;
    const Object *object = Find(dg.objects, column.name.c_str());
    if (object == nullptr) return 5;
    const Instance *instance = Find(column.instances, key);
    if (instance == nullptr) {
      if (object->watched && !Find(*object->watched, key)) continue;
      if (object->range_type != 0 && !RangeFits(*object, column.oper.data_type)) return 15;
      void *entry = CreateEntry(dg, *object, column, key);
      if (entry == nullptr) return 2;
      instance = &column.instances.emplace_back(Instance{key, entry});
    }
    std::uint32_t ended = 0;
    if (g_zor_poi_entry_insert_funcs[column.type()](instance->entry, cell->value, &ended) != 0) return 11;
    if (dg.poll_state == 1) ++dg.no_of_samples;
    dg.poll_state = 2;
  }
  return 0;
}

Text Render(const Column &column, const Instance &instance, const char *dg_name, std::uint16_t mode,
            std::uint16_t flags, const std::uint32_t *percentile = nullptr) {
  return Text(g_zor_poi_entry_get_data_funcs[column.type()](mode, dg_name, column.name.c_str(), flags, percentile,
                                                            instance.entry));
}

std::uint32_t ClearInstance(const Column &column, const Instance &instance, std::uint16_t mask) {
  std::uint16_t selected = column.oper.flags;
  if ((selected & ZOR_PROCESS_FLAG_PERCENTILE) != 0) selected |= 3;
  selected &= mask;
  if (selected == 0) return 0;
  if (g_zor_poi_entry_get_clear_buffer_funcs[column.type()](instance.entry)) return 13;
  Text text = Render(column, instance, column.dg_name.c_str(), ZOR_PROCESS_OUTPUT_RECORD, selected);
  if (!text) return 2;
  g_zor_poi_entry_set_clear_buffer_funcs[column.type()](instance.entry, text.release());
  g_zor_poi_entry_clear_funcs[column.type()](selected, instance.entry, 0);
  return 0;
}

std::uint32_t ClearResult(Dg &dg, std::uint16_t mask) {
  dg.status = 0;
  if (!dg.columns) return 0;
  for (const Column &column : *dg.columns) {
    for (const Instance &instance : column.instances) {
      dg.status = ClearInstance(column, instance, mask);
      if (dg.status != 0) return dg.status;
    }
  }
  return 0;
}

std::uint32_t EndOfPollResult(Dg &dg) {
  dg.poll_state = 1;
  if (dg.clear_type != 1 || ++dg.poll_count != dg.clear_interval) return 0;
  const std::uint32_t result = ClearResult(dg, 7);
  if (result == 0) dg.poll_count = 0;
  return result;
}

std::uint32_t MessageResult(Dg &dg, const zor_process_msg_t &msg) {
  if (dg.poll_interval < 10) return dg.status = 14;
  if (dg.status != 0 && dg.status != 14) return dg.status;
  if (dg.columns && msg.kind == 0) return dg.status = 0;
  if (!dg.columns) dg.columns.emplace();
  switch (msg.kind) {
    case 0:
      return dg.status = TemplateResult(dg, msg);
    case 1:
      return dg.status = RowResult(dg, msg);
    case 2:
      return dg.status = EndOfPollResult(dg);
    default:
      return dg.status = msg.kind == 3 ? 11 : 12;
  }
}

// Takes the console lines that are emitted while it lives.
class Console {
 public:
  Console() : handle_{zor_datalist_create(), 0, {}, nullptr, 0} { pvg_prt_handle = &handle_; }
  ~Console() {
    pvg_prt_handle = nullptr;
    zor_datalist_free(handle_.datalist);
  }
  zor_process_print_handle_t *handle() { return &handle_; }

  std::string Lines() const {
    std::string lines;
    zor_datalist_item_t item;
    std::uint32_t i = 0;
    for (; zor_datalist_get(handle_.datalist, i, &item) == 0; ++i) {
      ZOR_REQUIRE(item.name == ("buf" + std::to_string(i + 1)).substr(0, 7));
      ZOR_REQUIRE(item.size == std::strlen(item.text) + 1);
      lines += item.text;
    }
    ZOR_REQUIRE(handle_.buf == nullptr && handle_.buf_count == static_cast<std::int32_t>(i));
    return lines;
  }

 private:
  zor_process_print_handle_t handle_;
};

// Takes a prefix away; false when the text does not begin so.
bool Skip(std::string_view *text, std::string_view prefix) {
  if (text->substr(0, prefix.size()) != prefix) return false;
  text->remove_prefix(prefix.size());
  return true;
}

std::string_view SkipDigits(std::string_view *text) {
  const std::string_view digits = text->substr(0, text->find_first_not_of("0123456789"));
  text->remove_prefix(digits.size());
  ZOR_REQUIRE(!digits.empty());
  return digits;
}

// A text of records and headers is lines of the promised form, and nothing else.
void CheckRecords(std::string_view text, const std::string &dg, const std::string &object,
                  const std::string &instance) {
  while (!text.empty()) {
    if (Skip(&text, "Schema-def " + dg + "-")) {
      const std::size_t second = text.find("\r\n       Epochtime Object Instance No-Of-Samples ");
      ZOR_REQUIRE(second != std::string_view::npos);
      text.remove_prefix(text.find("\r\n", second + 2) + 2);
      continue;
    }
    ZOR_REQUIRE(Skip(&text, dg + "-"));
    const bool summary = Skip(&text, "summary: ");
    ZOR_REQUIRE(summary || Skip(&text, "percentile: ") || Skip(&text, "baseline: "));
    ZOR_REQUIRE(Skip(&text, "1700000000, " + object + ", " + instance + ", "));
    const int values = SkipDigits(&text) == "0" ? 0 : summary ? 3 : 9;
    for (int i = 0; i < values; ++i) {
      ZOR_REQUIRE(Skip(&text, ", "));
      Skip(&text, "-");
      SkipDigits(&text);
      if (summary && i < 2) continue;
      ZOR_REQUIRE(Skip(&text, ".") && SkipDigits(&text).size() == 3);
    }
    ZOR_REQUIRE(Skip(&text, "\r\n"));
  }
}

// Settings to hand over, or to be filled, some of them left out.
struct Attributes {
  explicit Attributes(Input &in)
      : given{static_cast<std::uint16_t>(in.OneIn(8) ? in.Take<std::uint16_t>() : in.Below(16)),
              in.OneIn(8) ? in.Value<std::uint32_t>() : in.Below(20), in.Below(4),
              in.OneIn(8) ? in.Value<std::uint32_t>() : in.Below(8)},
        present(in.OneIn(2) ? 15 : in.Below(16)),
        sent(given),
        record{Has(0) ? &sent.flags : nullptr, Has(1) ? &sent.buckets : nullptr,
               Has(2) ? &sent.clear_type : nullptr, Has(3) ? &sent.clear_interval : nullptr} {}
  Attributes(const Attributes &) = delete;
  Attributes &operator=(const Attributes &) = delete;

  bool Has(int setting) const { return (present >> setting & 1) != 0; }

  void Set(Settings &settings) const {
    if (Has(0)) settings.flags |= given.flags;
    if (Has(1)) settings.buckets = given.buckets;
    if (Has(2)) settings.clear_type = given.clear_type;
    if (Has(2) && Has(3)) settings.clear_interval = given.clear_interval;
    CheckFlags(settings);
  }
  void TakeFlagsFrom(Settings &settings) const {
    if (Has(0)) settings.flags &= static_cast<std::uint16_t>(~given.flags);
    CheckFlags(settings);
  }
  void CheckFlags(const Settings &settings) const { ZOR_REQUIRE(!Has(0) || sent.flags == settings.flags); }
  void CheckReported(const Settings &settings) const {
    CheckFlags(settings);
    ZOR_REQUIRE(!Has(1) || sent.buckets == settings.buckets);
    ZOR_REQUIRE(!Has(2) || sent.clear_type == settings.clear_type);
    ZOR_REQUIRE(!Has(3) || sent.clear_interval == settings.clear_interval);
  }

  const Settings given;
  const std::uint32_t present;
  Settings sent;
  zor_process_attr_t record;
};

// The record that get or get-next is to find.
template <class Records>
auto *Select(Records &records, std::uint32_t operation, const char *name) {
  auto found = name == nullptr ? records.begin()
                               : std::find_if(records.begin(), records.end(),
                                              [&](const auto &record) { return record.name == name; });
  if (found != records.end() && name != nullptr && operation == ZOR_PROCESS_OPER_GET_NEXT) ++found;
  return found == records.end() ? nullptr : &*found;
}

template <class Record>
void CheckName(const char *asked, std::uint32_t operation, const Record *found, const char *name) {
  const char *unfound = operation == ZOR_PROCESS_OPER_GET_NEXT ? nullptr : asked;
  ZOR_REQUIRE(found ? name != nullptr && name != asked && found->name == name : name == unfound);
}

class Session {
 public:
  explicit Session(Input &in) : in_(in) { kel_ext_hash_name_init(&engine_.dgs); }

  ~Session() {
    for (Dg &dg : dgs_) CompareData(dg);
    const char *name = nullptr;
    zor_process_attr_t nothing = {};
    while (zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_GET, &name, &nothing) == 0) {
      ZOR_REQUIRE(zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_DELETE, &name, nullptr) == 0);
      name = nullptr;
    }
    kel_hashset_free(&engine_.dgs);
  }

  void Run() {
    while (!in_.empty()) {
      Step();
      CompareState();
    }
  }

 private:
  void Step() {
    switch (in_.Below(16)) {
      case 0:
        return SetDg();
      case 1:
      case 2:
        return SetObject();
      case 3:
        return SetInstance();
      case 4:
        return SetPollInterval();
      case 5:
        return SendTemplate();
      case 6:
      case 7:
      case 8:
        return SendRows();
      case 9:
      case 10:
        return SendOther();
      case 11:
        return Clear();
      case 12:
        return Next();
      case 13:
        return ExchangeClearBuffer();
      case 14:
        return Report();
      default:
        return LookUp();
    }
  }

  const char *DgName() {
    const std::uint32_t pick = in_.Below(32);
    return pick == 31 ? nullptr : kNames[pick % 3];
  }
  const char *Name() {
    const std::uint32_t pick = in_.Below(64);
    return pick == 63 ? nullptr : kNames[pick % std::size(kNames)];
  }
  Dg *FindDg(const char *name) { return Find(dgs_, name); }

  // A cursor does not outlive what it points to.
  void Reset(Dg &dg) {
    dg.Reset();
    if (position_.dg != &dg) return;
    cursor_ = {};
    position_ = {};
  }

  void SetDg() {
    const std::uint32_t operation = in_.Below(6);
    const char *asked = DgName(), *name = asked;
    Attributes attributes(in_);
    const bool with = !in_.OneIn(4);
    const std::uint32_t code =
        zor_process_engine_set_dg(&engine_, operation, &name, with ? &attributes.record : nullptr);
    Dg *dg = FindDg(asked);
    switch (operation) {
      case ZOR_PROCESS_OPER_SET:
        ZOR_REQUIRE(code == (asked && with ? 0u : 1u));
        if (code != 0) return;
        if (dg == nullptr) {
          dg = &dgs_.emplace_back();
          dg->name = asked;
          dg->buckets = 100;
        }
        return attributes.Set(*dg);
      case ZOR_PROCESS_OPER_DELETE:
      case ZOR_PROCESS_OPER_CLEAR:
        ZOR_REQUIRE(code == (!asked ? 1u : !dg ? 4u : 0u));
        if (code != 0) return;
        if (operation == ZOR_PROCESS_OPER_DELETE && with) return attributes.TakeFlagsFrom(*dg);
        Reset(*dg);
        if (operation == ZOR_PROCESS_OPER_DELETE) dgs_.remove_if([&](const Dg &other) { return &other == dg; });
        return;
      case ZOR_PROCESS_OPER_GET:
      case ZOR_PROCESS_OPER_GET_NEXT: {
        const Dg *found = Select(dgs_, operation, asked);
        ZOR_REQUIRE(code == (!with ? 1u : !found ? 4u : 0u));
        if (!with) return;
        CheckName(asked, operation, found, name);
        if (found) attributes.CheckReported(*found);
        return;
      }
      default:
        ZOR_REQUIRE(code == 3);
    }
  }

  void SetObject() {
    const std::uint32_t operation = in_.OneIn(3) ? in_.Below(6) : 0u;
    const char *dg_name = DgName(), *asked = Name(), *name = asked;
    Attributes attributes(in_);
    const std::uint32_t present = in_.OneIn(2) ? 31 : in_.Below(64);
    const std::uint32_t given_id = in_.Below(4), given_kind = in_.Below(3), given_type = in_.Below(7);
    const std::uint64_t given_range[2] = {in_.Value<std::uint64_t>(), in_.Value<std::uint64_t>()};
    std::uint32_t id = given_id, kind = given_kind, type = given_type;
    std::uint64_t range[2] = {given_range[0], given_range[1]};
    const bool has_common = present & 1, has_id = present & 2, has_kind = present & 4, has_type = present & 8,
               has_range = present & 16, with = !(present & 32);
    zor_process_object_attr_t attr = {has_id ? &id : nullptr, has_common ? &attributes.record : nullptr,
                                      has_kind ? &kind : nullptr, has_type ? &type : nullptr,
                                      has_range ? range : nullptr};
    const std::uint32_t code =
        zor_process_engine_set_object(&engine_, operation, dg_name, &name, with ? &attr : nullptr);
    Dg *dg = FindDg(dg_name);
    if (dg == nullptr) return ZOR_REQUIRE(code == 4);
    Object *object = Find(dg->objects, asked);
    switch (operation) {
      case ZOR_PROCESS_OPER_SET: {
        if (asked == nullptr) return ZOR_REQUIRE(code == 1);
        if (object == nullptr) object = &dg->objects.emplace_back();
        object->name = asked;
        if (!with) return ZOR_REQUIRE(code == 0);
        if (has_id && given_id == 0) {
          ZOR_REQUIRE(id != 0);
          for (const Object &other : dg->objects) ZOR_REQUIRE(other.id != id);
        }
        if (has_id) object->id = id;
        if (has_type && given_type != 0 && !has_range) return ZOR_REQUIRE(code == 1);
        ZOR_REQUIRE(code == 0);
        if (has_common) attributes.Set(*object);
        if (has_kind) object->value_kind = given_kind;
        if (!has_type) return;
        object->range_type = given_type;
        if (given_type != 0) std::copy_n(given_range, 2, object->range);
        return;
      }
      case ZOR_PROCESS_OPER_DELETE:
        ZOR_REQUIRE(code == (!asked ? 1u : !object ? 5u : 0u));
        if (code != 0) return;
        if (with) {
          if (has_common) attributes.TakeFlagsFrom(*object);
        } else {
          dg->objects.remove_if([&](const Object &other) { return &other == object; });
        }
        return;
      case ZOR_PROCESS_OPER_GET:
      case ZOR_PROCESS_OPER_GET_NEXT: {
        if (!with) return ZOR_REQUIRE(code == 1);
        const Object *found = Select(dg->objects, operation, asked);
        CheckName(asked, operation, found, name);
        if (found == nullptr) return ZOR_REQUIRE(code == 5);
        if (has_common) attributes.CheckReported(*found);
        ZOR_REQUIRE((!has_id || id == found->id) && (!has_kind || kind == found->value_kind));
        ZOR_REQUIRE(!has_type || type == found->range_type);
        const bool reports_range = has_type && found->range_type != 0;
        ZOR_REQUIRE(code == (reports_range && !has_range ? 1u : 0u));
        ZOR_REQUIRE(std::equal(range, range + 2, reports_range && has_range ? found->range : given_range));
        return;
      }
      default:
        ZOR_REQUIRE(code == 3);
    }
  }

  void SetInstance() {
    const std::uint32_t operation = in_.OneIn(3) ? in_.Below(6) : 0u;
    const char *dg_name = DgName(), *object_name = Name(), *asked = Name(), *name = asked;
    const std::uint32_t code =
        zor_process_engine_set_object_instance(&engine_, operation, dg_name, object_name, &name);
    Dg *dg = FindDg(dg_name);
    if (dg == nullptr) return ZOR_REQUIRE(code == 4);
    Object *object = Find(dg->objects, object_name);
    if (object == nullptr) return ZOR_REQUIRE(code == 5);
    auto &watched = object->watched;
    switch (operation) {
      case ZOR_PROCESS_OPER_SET:
        ZOR_REQUIRE(code == (asked ? 0u : 1u));
        if (code != 0) return;
        if (!watched) watched.emplace();
        if (!Find(*watched, asked)) watched->push_back({asked, nullptr});
        return;
      case ZOR_PROCESS_OPER_DELETE: {
        const Instance *found = watched ? Find(*watched, asked) : nullptr;
        ZOR_REQUIRE(code == (!asked ? 1u : !found ? 6u : 0u));
        if (found) watched->erase(watched->begin() + (found - watched->data()));
        return;
      }
      case ZOR_PROCESS_OPER_GET:
      case ZOR_PROCESS_OPER_GET_NEXT: {
        if (!watched) return ZOR_REQUIRE(code == 6 && name == asked);
        const Instance *found = Select(*watched, operation, asked);
        CheckName(asked, operation, found, name);
        return ZOR_REQUIRE(code == (found ? 0u : 6u));
      }
      default:
        ZOR_REQUIRE(code == 3);
    }
  }

  void SetPollInterval() {
    const char *name = DgName();
    const std::uint32_t seconds = in_.OneIn(4) ? in_.Value<std::uint32_t>() : 10 + in_.Below(60);
    zor_process_engine_set_poll_interval(&engine_, name, seconds);
    if (Dg *dg = FindDg(name)) dg->poll_interval = seconds;
  }

  // Sends a message to both; the code of both.
  std::uint32_t Send(const char *dg_name, const zor_process_msg_t *msg) {
    const std::uint32_t code = zor_process_engine_process_data(&engine_, dg_name, msg);
    Dg *dg = FindDg(dg_name);
    ZOR_REQUIRE(code == (!dg ? 4u : !msg ? 1u : MessageResult(*dg, *msg)));
    return code;
  }

  void SendTemplate() {
    const char *dg_name = DgName();
    zor_process_column_t columns[kMostColumns] = {};
    void *pointers[kMostColumns + 1] = {};
    const std::uint32_t count = in_.Below(kMostColumns + 1);
    for (std::uint32_t i = 0; i < count; ++i) {
      const std::uint32_t shape = in_.Take<std::uint16_t>();
      columns[i].name = Name();
      // Mostly what a collector sends: numbers and a key.
      const bool key = shape % 4 == 0;
      columns[i].type = shape / 4 % 16 == 0 ? shape / 64 % 4 : key ? 2 : shape / 64 % 2;
      columns[i].width = shape / 128 % 2 == 0 ? 8 : shape / 256 % 16;
      columns[i].flags = key ? 1 : shape / 128 & 2;
      pointers[i] = shape / 4096 == 15 ? nullptr : &columns[i];
    }
    // The array ends with a null pointer, so the count may lie; or there is no array.
    const auto told = static_cast<std::int32_t>(in_.OneIn(8) ? in_.Below(kMostColumns + 3) : count + 1);
    const zor_process_msg_t msg = {0, ZOR_PROCESS_MSG_TEMPLATE, told - 1, in_.OneIn(16) ? nullptr : pointers};
    Send(dg_name, &msg);
  }

  void SendRows() {
    const char *dg_name = DgName();
    const Dg *dg = FindDg(dg_name);
    std::vector<std::uint8_t> values[kMostColumns + 1];  // each as long as its column's type, and unaligned
    zor_process_cell_t cells[kMostColumns + 1] = {};
    void *pointers[kMostColumns + 1] = {};
    for (std::size_t i = 0; i <= kMostColumns; ++i) {
      const std::uint32_t shape = in_.Take<std::uint8_t>();
      const bool key = dg && dg->key_column == static_cast<std::int32_t>(i);
      cells[i] = {shape % 16 == 15 ? shape / 16 : key ? 2u : 0u, shape / 4 % 16 == 15 ? 0u : 8u, nullptr};
      if (key) {
        const char *name = Name();
        if (name) values[i].assign(name, name + std::strlen(name) + 1);
        if (name) cells[i].value = values[i].data();
      } else {
        const auto value = in_.Value<std::uint64_t>();
        values[i].resize(1 + (NarrowColumn(dg, i) ? 4 : 8));
        std::memcpy(values[i].data() + 1, &value, values[i].size() - 1);
        cells[i].value = shape / 16 == 15 ? nullptr : values[i].data() + 1;
      }
      pointers[i] = shape % 32 == 31 ? nullptr : &cells[i];
    }
    const zor_process_msg_t msg = {0, ZOR_PROCESS_MSG_ROW, 0, in_.OneIn(32) ? nullptr : pointers};
    const std::uint32_t pick = in_.Below(64);
    std::uint32_t repeat = pick < 56 ? 1 : pick < 63 ? 1 + in_.Take<std::uint8_t>() : in_.OneIn(32) ? kMostRows : 1;
    for (; repeat > 0 && rows_ < kMostRows; --repeat, ++rows_) {
      if (Send(dg_name, &msg) != 0) break;
    }
  }

  static bool NarrowColumn(const Dg *dg, std::size_t index) {
    if (!dg || !dg->columns) return false;
    return std::any_of(dg->columns->begin(), dg->columns->end(), [&](const Column &column) {
      return column.oper.column == index && column.oper.data_type < 3;
    });
  }

  void SendOther() {
    const char *dg_name = DgName();
    const std::uint32_t pick = in_.Below(32);
    const zor_process_msg_t msg = {0, pick < 26 ? 2u : pick - 22, 0, nullptr};
    std::uint32_t repeat = pick == 0 ? 1 + in_.Below(200) : pick == 1 && in_.OneIn(64) ? kMostRows : 1;
    if (pick >= 30) repeat = 0;
    if (pick == 30) Send(dg_name, nullptr);
    if (pick == 31) {
      const zor_process_msg_t unknown = {0, in_.Take<std::uint32_t>(), 0, nullptr};
      if (unknown.kind > 1) Send(dg_name, &unknown);
    }
    for (; repeat > 0 && rows_ < kMostRows; --repeat, ++rows_) {
      if (Send(dg_name, &msg) != 0) break;
    }
  }

  void Clear() {
    const char *dg_name = DgName();
    const auto mask = static_cast<std::uint16_t>(in_.OneIn(8) ? in_.Take<std::uint16_t>() : in_.Below(16));
    const std::uint32_t code = zor_process_engine_clear_dg_data(&engine_, dg_name, mask, in_.Below(3));
    Dg *dg = FindDg(dg_name);
    ZOR_REQUIRE(code == (dg ? ClearResult(*dg, mask) : 16u));
    if (dg) CompareData(*dg);
  }

  // Where the cursor stands in the plain engine.
  struct Position {
    Dg *dg = nullptr;
    std::size_t column = 0;
    std::size_t next = 0;  // instance
  };

  // Moves to the next instance, whose object must be there; false at the end, and the walk begins anew.
  bool Advance() {
    if (position_.dg == nullptr) position_ = {FindDg(cursor_.dg_name), 0, 0};
    Dg *dg = position_.dg;
    const auto found = [&] {
      if (dg == nullptr || !dg->columns) return false;
      while (position_.column < dg->columns->size()) {
        const Column &column = (*dg->columns)[position_.column];
        if (position_.next++ < column.instances.size()) return Find(dg->objects, column.name.c_str()) != nullptr;
        ++position_.column;
        position_.next = 0;
      }
      return false;
    };
    if (found()) return true;
    position_ = {};
    return false;
  }
  const Column &CursorColumn() const { return (*position_.dg->columns)[position_.column]; }
  const Instance &CursorInstance() const { return CursorColumn().instances[position_.next - 1]; }

  void Next() {
    if (position_.dg == nullptr) cursor_ = {DgName(), nullptr, nullptr, nullptr, 0};
    if (position_.dg == nullptr && in_.OneIn(4)) {
      cursor_.dg = static_cast<zor_process_dg_t *>(kel_ext_hash_name_get(&engine_.dgs, kNames[0]));
      position_.dg = FindDg(kNames[0]);
    }
    const std::uint32_t mode = in_.Below(16);
    std::string lines;
    Text text;
    {
      Console console;
      text.reset(zor_process_engine_get_next_object_instance_data(&engine_, &cursor_, mode));
      lines = console.Lines();
    }
    if (!Advance()) {
      ZOR_REQUIRE(!text && !cursor_.dg && !cursor_.oper_entry && !cursor_.entry && lines.empty());
      return;
    }
    const Dg &dg = *position_.dg;
    const Column &column = CursorColumn();
    const Instance &instance = CursorInstance();
    const auto flags = static_cast<std::uint16_t>(dg.flags | Find(dg.objects, column.name.c_str())->flags);
    ZOR_REQUIRE(cursor_.oper_entry->name == column.name && cursor_.flags == flags);
    ZOR_REQUIRE(static_cast<kel_hashset_record_t *>(cursor_.entry)->name == instance.name);
    const char *dg_name = cursor_.dg_name ? cursor_.dg_name : dg.name.c_str();
    Console console;
    const Text expected = Render(column, instance, dg_name, static_cast<std::uint16_t>(mode), flags);
    ZOR_REQUIRE(Same(text.get(), expected.get()) && lines == console.Lines());
    if (text) CheckRecords(text.get(), dg_name, column.name, instance.name);
    ZOR_REQUIRE(!text || !(mode & ZOR_PROCESS_OUTPUT_CONSOLE) || *text == '\0');
  }

  void ExchangeClearBuffer() {
    if (cursor_.entry == nullptr) return;
    const std::uint32_t type = CursorColumn().type();
    void *entry = CursorInstance().entry;
    char *text = zor_process_engine_get_clear_buffer(&cursor_);
    char *expected = g_zor_poi_entry_get_clear_buffer_funcs[type](entry);
    ZOR_REQUIRE(Same(text, expected));
    const std::uint32_t pick = in_.Below(4);
    if (pick == 0) return;
    // Taken over, and another one given or none.
    const Text held(text), expected_held(expected);
    zor_process_engine_set_clear_buffer(&cursor_, pick == 1 ? strdup("another") : nullptr);
    g_zor_poi_entry_set_clear_buffer_funcs[type](entry, pick == 1 ? strdup("another") : nullptr);
  }

  void Report() {
    const char *dg_name = DgName();
    const Dg *dg = FindDg(dg_name);
    const char *object_name = in_.OneIn(2) ? Name() : nullptr, *instance_name = in_.OneIn(2) ? Name() : nullptr;
    const std::uint32_t whole = in_.OneIn(8) ? in_.Value<std::uint32_t>() : in_.Below(120), flags = in_.Below(16);
    const std::uint32_t *percentile = in_.OneIn(2) ? &whole : nullptr;
    zor_process_data_cursor_t reference = {dg_name, nullptr, nullptr, nullptr, 0};
    if (dg && in_.OneIn(2)) {
      reference.dg = static_cast<zor_process_dg_t *>(kel_ext_hash_name_get(&engine_.dgs, dg_name));
    }
    std::string report;
    {
      Console console;
      zor_process_engine_print_object_instance_data_with_handle(&engine_, &reference, object_name, instance_name,
                                                                percentile, flags, console.handle());
      report = console.Lines();
      zor_process_engine_print_object_instance_data(&engine_, &reference, object_name, instance_name, percentile,
                                                    flags);
      ZOR_REQUIRE(pvg_prt_handle == nullptr);
    }
    // What the instances have to say stands in it in order, under their objects.
    std::size_t reached = 0;
    const auto expect = [&](const std::string &part) {
      reached = report.find(part, reached);
      ZOR_REQUIRE(reached != std::string::npos);
      reached += part.size();
    };
    bool any = false;
    if (dg && dg->columns) {
      for (const Column &column : *dg->columns) {
        if (object_name && column.name != object_name) continue;
        any = true;
        expect("\nObjectname       : " + column.name + "\n");
        if (const Object *object = Find(dg->objects, column.name.c_str())) {
          const bool primed = object->value_kind != 0 && dg->no_of_samples != 0;
          expect("\nNumber of samples: " + std::to_string(dg->no_of_samples - primed) + "\n");
        }
        for (const std::uint16_t section : {1, 2, 4}) {
          for (const Instance &instance : column.instances) {
            if ((flags & section) == 0 || (instance_name && instance.name != instance_name)) continue;
            Console console;
            Render(column, instance, dg->name.c_str(), ZOR_PROCESS_OUTPUT_CONSOLE, section,
                   section == 4 ? percentile : nullptr);
            expect(console.Lines());
          }
        }
      }
    }
    ZOR_REQUIRE(any || report.empty());
  }

  void LookUp() {
    const char *dg_name = DgName(), *prefix = Name();
    const std::uint32_t id = in_.Below(6), code = in_.Value<std::uint32_t>();
    const Dg *dg = FindDg(dg_name);
    const char *name = nullptr;
    std::uint32_t named = 0;
    bool found = false;
    if (dg) {
      for (const Object &object : dg->objects) {
        if (!name && object.id == id) name = object.name.c_str();
        if (prefix && !found && object.name.rfind(prefix, 0) == 0) found = true, named = object.id;
      }
    }
    ZOR_REQUIRE(Same(zor_process_engine_get_object_name_byid(&engine_, dg_name, id), name));
    ZOR_REQUIRE(zor_process_object_get_id_byname(&engine_, dg_name, prefix) == named);
    const char *text = zor_proc_get_error_string_list(code);
    ZOR_REQUIRE(text && *text && (code > 16 || text == ppc_g_zor_proc_error_string_list[code]));
  }

  void CompareState() {
    auto *record = static_cast<zor_process_dg_t *>(kel_hashset_first(&engine_.dgs));
    for (const Dg &dg : dgs_) {
      ZOR_REQUIRE(record && record->name == dg.name && record->flags == dg.flags);
      ZOR_REQUIRE(record->status == dg.status && record->key_column == dg.key_column);
      ZOR_REQUIRE(record->poll_count == dg.poll_count && record->poll_state == dg.poll_state);
      ZOR_REQUIRE(record->no_of_samples == dg.no_of_samples && record->poll_interval == dg.poll_interval);
      ZOR_REQUIRE((record->oper_entries != nullptr) == dg.columns.has_value());
      record = static_cast<zor_process_dg_t *>(kel_hashset_next(&engine_.dgs, record));
    }
    ZOR_REQUIRE(record == nullptr);
  }

  // Every instance is there, in order, and says the same.
  void CompareData(const Dg &dg) {
    auto *record = static_cast<zor_process_dg_t *>(kel_ext_hash_name_get(&engine_.dgs, dg.name.c_str()));
    if (!dg.columns) return;
    void *next = kel_hashset_first(record->oper_entries);
    for (const Column &column : *dg.columns) {
      auto *oper = static_cast<zor_process_object_oper_entry_t *>(next);
      ZOR_REQUIRE(oper && oper->name == column.name && oper->dg_name == column.dg_name);
      ZOR_REQUIRE(oper->data_type == column.oper.data_type && oper->flags == column.oper.flags);
      void *entry = kel_hashset_first(&oper->instances);
      for (const Instance &instance : column.instances) {
        ZOR_REQUIRE(entry && static_cast<kel_hashset_record_t *>(entry)->name == instance.name);
        CompareEntries(column, instance, entry);
        entry = kel_hashset_next(&oper->instances, entry);
      }
      ZOR_REQUIRE(entry == nullptr);
      next = kel_hashset_next(record->oper_entries, oper);
    }
    ZOR_REQUIRE(next == nullptr);
  }

  static void CompareEntries(const Column &column, const Instance &instance, void *entry) {
    const Text expected = Render(column, instance, column.dg_name.c_str(), 4, column.oper.flags);
    const Text text(g_zor_poi_entry_get_data_funcs[column.type()](4, column.dg_name.c_str(), column.name.c_str(),
                                                                  column.oper.flags, nullptr, entry));
    ZOR_REQUIRE(Same(text.get(), expected.get()));
    if (text) CheckRecords(text.get(), column.dg_name, column.name, instance.name);
    const auto buffer = g_zor_poi_entry_get_clear_buffer_funcs[column.type()];
    ZOR_REQUIRE(Same(buffer(entry), buffer(instance.entry)));
  }

  Input &in_;
  zor_process_engine_t engine_ = {};
  std::list<Dg> dgs_;
  zor_process_data_cursor_t cursor_ = {};
  Position position_;
  std::uint32_t rows_ = 0;
};

}  // namespace
}  // namespace zor_fuzz

// Stands for the platform's clock.
void kel_time_get_timespec_realtime(struct timespec *now) { *now = {1700000000, 0}; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  zor_fuzz::SilenceStandardOutput();
  zor_fuzz::Input in(data, size);
  zor_fuzz::Session(in).Run();
  return 0;
}
