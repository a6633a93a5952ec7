// The fast paths held against plain ones: the same numbers, whatever the configuration and the order of events.

#include <map>
#include <random>
#include <set>

#include "engine_fixture.h"

namespace {

__extension__ using Wide = unsigned __int128;

}  // namespace

template <class V>
class IndexTest : public ::testing::Test {};
TYPED_TEST_SUITE(IndexTest, ValueTypes);

// The sub-range of a value by its formula, in arithmetic that cannot overflow.
TYPED_TEST(IndexTest, SameAsTheFormula) {
  using V = TypeParam;
  using A = Api<V>;
  using U = typename A::Unsigned;
  std::mt19937_64 random(11);
  for (int i = 0; i < 2000; ++i) {
    const V a = static_cast<V>(static_cast<U>(random()) >> (random() % (sizeof(V) * 8)));
    const V b = static_cast<V>(random());
    const auto nsc = static_cast<std::uint16_t>(1 + random() % (i % 2 ? 65535 : 100));
    typename A::RangeCounters record = {};
    ASSERT_EQ(A::RangeInit(&record, std::min(a, b), std::max(a, b), nsc), 0u);
    const U width = static_cast<U>(static_cast<U>(record.End) - static_cast<U>(record.Start));
    for (int j = 0; j < 20 && width != 0; ++j) {
      // Random places, and the neighbourhood of bounds of sub-ranges and of the end of the exact formula.
      U offset = static_cast<U>(random()) % width;
      if (j % 3 == 1) offset = static_cast<U>(Wide{width} * (random() % nsc) / nsc + random() % 3);
      if (j % 3 == 2)
        offset =
            static_cast<U>(static_cast<U>(record.Vexact_end) - static_cast<U>(record.Start) - 2 + random() % 4);
      if (offset >= width) continue;
      const V value = static_cast<V>(static_cast<U>(record.Start) + offset);
      const U step = width / nsc;
      Wide index = value < record.Vexact_end ? Wide{offset} * nsc / width : step ? offset / step : 0;
      if (index >= nsc) index = nsc - 1;
      const auto before = record.pu16_counters[static_cast<std::size_t>(index)];
      ASSERT_EQ(A::RangeInsert(&record, value), 0);
      ASSERT_EQ(record.pu16_counters[static_cast<std::size_t>(index)], before + 1) << record.Start << " " << offset;
    }
    std::free(record.pu16_counters);
  }
}

namespace {

// What the engine is to do with a row, told with maps by name.
struct Model {
  struct Instance {
    bool cumulative = false, primed = false;
    std::uint32_t last = 0;
    std::vector<std::uint64_t> samples;
  };
  struct Object {
    bool cumulative = false;
    std::optional<std::set<std::string>> watched;
  };
  std::map<std::string, Object> objects;
  std::map<std::string, std::map<std::string, Instance>> data;  // by column, then key
  std::vector<std::string> columns;                             // that were bound

  std::uint32_t Row(const std::string &key, const std::vector<std::optional<Value>> &values) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      if (!values[i]) continue;
      const auto object = objects.find(columns[i]);
      if (object == objects.end()) return 5;
      auto &instances = data[columns[i]];
      if (!instances.count(key)) {
        if (object->second.watched && !object->second.watched->count(key)) continue;
        instances[key].cumulative = object->second.cumulative;
      }
      Instance &instance = instances[key];
      auto sample = static_cast<std::uint32_t>(values[i]->bits);
      if (instance.cumulative) {
        sample -= std::exchange(instance.last, sample);
        if (!std::exchange(instance.primed, true)) continue;
      }
      instance.samples.push_back(sample);
    }
    return 0;
  }
};

}  // namespace

class RowsTest : public EngineTest {};

TEST_F(RowsTest, SameAsLookingEverythingUpByName) {
  std::mt19937 random(5);
  const auto chance = [&](unsigned one_in) { return random() % one_in == 0; };
  for (int round = 0; round < 60; ++round) {
    MakeDg(0);
    Model model;
    std::vector<Column> columns = {{"key", 0}};
    const char *const names[] = {"a", "b", "c", "d", "e"};
    const std::size_t count = 1 + random() % 5;
    const auto make = [&](const char *name) {
      Model::Object &object = model.objects[name] = {chance(3), std::nullopt};
      ASSERT_EQ(MakeObject(name, ZOR_PROCESS_FLAG_SUMMARY, object.cumulative ? 1 : 0), 0u);
    };
    for (std::size_t i = 0; i < count; ++i) {
      make(names[i]);
      columns.push_back({names[i], ZOR_PROCESS_DATA_TYPE_UINT32});
      model.columns.push_back(names[i]);
    }
    ASSERT_EQ(Template(columns), 0u);
    std::vector<std::string> keys;
    for (int i = 0; i < 12; ++i) keys.push_back("instance-" + std::to_string(i));
    for (int poll = 0; poll < 30; ++poll) {
      if (chance(3)) std::shuffle(keys.begin(), keys.end(), random);
      const char *name = names[random() % count];
      if (chance(12)) {
        zor_process_engine_set_object(&engine, ZOR_PROCESS_OPER_DELETE, "ifstats", &name, nullptr);
        model.objects.erase(name);
      } else if (chance(4) && !model.objects.count(name)) {
        make(name);
      } else if (chance(6) && model.objects.count(name)) {
        auto &watched = model.objects[name].watched;
        if (!watched) watched.emplace();
        watched->insert(keys[0]);
        ASSERT_EQ(AddInstance(name, keys[0].c_str()), 0u);
      }
      for (const std::string &key : keys) {
        if (chance(5)) continue;  // a row that is missing from this poll
        std::vector<std::optional<Value>> values;
        for (std::size_t i = 0; i < count; ++i) {
          values.push_back(chance(8) ? std::nullopt : std::optional<Value>(std::uint32_t(random() % 1000)));
        }
        const std::uint32_t expected = model.Row(key, values);
        // A key that is another string of the same letters each time.
        ASSERT_EQ(Row(std::string(key).c_str(), values), expected);
        if (expected != 0) zor_process_engine_clear_dg_data(&engine, "ifstats", 0, 0);
      }
      EndOfPoll();
    }
    for (const char *name : names) {
      if (!model.objects.count(name)) make(name);  // records of a column are read through its object
    }
    std::map<std::string, std::map<std::string, Model::Instance>> seen;
    zor_process_data_cursor_t cursor = Cursor();
    for (Next(cursor); cursor.entry; Next(cursor)) {
      const auto &entry = *static_cast<const zor_process_object_instance_entry_uint32_t *>(cursor.entry);
      const auto &samples = model.data.at(cursor.oper_entry->name).at(entry.name).samples;
      EXPECT_TRUE(seen[cursor.oper_entry->name].insert({entry.name, {}}).second);
      ASSERT_EQ(entry.summary->u32_no_of_samples, samples.size());
      std::uint64_t total = 0;
      for (std::uint64_t sample : samples) total += sample;
      EXPECT_EQ(entry.summary->Vtotal, total);
    }
    std::size_t expected_instances = 0, seen_instances = 0;
    for (const auto &[name, instances] : model.data) expected_instances += instances.size();
    for (const auto &[name, instances] : seen) seen_instances += instances.size();
    EXPECT_EQ(seen_instances, expected_instances);
    SetDg(ZOR_PROCESS_OPER_DELETE, "ifstats");
  }
}
