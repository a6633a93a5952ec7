#include "settings.h"

#include "config_file.h"
#include "temporary_directory.h"
#include "zor/types.h"

namespace zorstat {
namespace {

class SettingsTest : public InTemporaryDirectory {
 protected:
  const Table table_{"k",
                     {{"i32", ZOR_PROCESS_DATA_TYPE_INT32, false},
                      {"u32", ZOR_PROCESS_DATA_TYPE_UINT32, false},
                      {"i64", ZOR_PROCESS_DATA_TYPE_INT64, true},
                      {"u64", ZOR_PROCESS_DATA_TYPE_UINT64, true}}};

  static Settings Configured(const std::string &toml) { return ReadConfigFile(Write("c.toml", toml)); }
};

struct BadOption {
  const char *option;
  const char *text;
  const char *error;
};

TEST_F(SettingsTest, RefusesOptionsAtOnce) {
  const BadOption bad_options[] = {
      {"statistics", "sum", "--statistics: 'sum': expected summary, distribution, percentile or baseline"},
      {"statistics", "baseline,summary", "--statistics: 'baseline,summary': expected baseline alone"},
      {"buckets", "0", "--buckets: '0': expected a whole number from 1 to 65535"},
      {"buckets", "65536", "--buckets: '65536'"},
      {"range", "5", "--range: '5': expected LOW:HIGH"},
      {"range", "5:4", "--range: '5:4': expected a low bound that is not above the high one"},
      {"range", "5:-4", "--range: '5:-4': expected a low bound"},
      {"range", "-4:-5", "--range: '-4:-5': expected a low bound"},
      {"range", "-1:9223372036854775808", "--range: '9223372036854775808': expected a number from -92"},
      {"range", "0:18446744073709551616", "--range: '18446744073709551616': expected a number from 0"},
      {"range", "1:x", "--range: 'x'"},
      {"clear", "0", "--clear: '0': expected polls from 1 to 65535, or hours"},
      {"clear", "65536", "--clear: '65536'"},
      {"clear", "0h", "--clear: '0h': expected hours above 0"},
      {"clear", "nanh", "--clear: 'nanh'"},
      {"clear", "2d", "--clear: '2d'"},
      {"interval", "9", "--interval: '9': expected a whole number from 10"},
      {"percentile", "101", "--percentile: '101': expected a whole number from 0 to 100"},
      {"instances", "a,,b", "--instances: '': expected a name"},
      {"objects", "a,b,a", "--objects: 'a': expected each name only once"},
      {"dg", "", "--dg: '': expected a name"},
  };
  for (const BadOption &bad : bad_options) {
    Settings settings;
    const std::string error = ErrorOf([&] { SetOption(bad.option, bad.text, &settings); });
    EXPECT_EQ(error.rfind(bad.error, 0), 0u) << bad.option << " " << bad.text << ": " << error;
  }
}

struct BadConfig {
  const char *toml;
  const char *error;  // after the file's name
};

TEST_F(SettingsTest, NamesLineAndKeyOfABadConfiguration) {
  const BadConfig bad_configs[] = {
      {"dg = 'x'\nbuckets = 0", ":2: buckets: '0': expected a whole number"},
      {"buckets = '5'", ":1: buckets: is a string: expected an integer"},
      {"\n\nbuckts = 5", ":3: buckts: unknown key"},
      {"statistics = [1]", ":1: statistics: is an integer: expected an array of strings"},
      {"statistics = []", ":1: statistics: '': expected at least one"},
      {"range = [1]", ":1: range: has 1 elements: expected two bounds"},
      {"range = [0.5, 1]", ":1: range: is a number with a fraction"},
      {"headers = 1", ":1: headers: is an integer: expected true or false"},
      {"clear = true", ":1: clear: is a truth value"},
      {"objects = ['u32']", ":1: objects: is an array: expected tables"},
      {"[objects.u32]\nbuckets = 1\nfoo = 1", ":3: objects.u32.foo: unknown key"},
      {"[objects.u32]\nclear = 5", ":2: objects.u32.clear: only a baseline object"},
      {"[objects.u32]\nstatistics = 'baseline'\nrange = [1, 2]", ":3: objects.u32.range: '1:2': expected no range"},
      {"[objects.u16]", ":1: objects.u16: 'u16': expected a column of the input: i32, u32, i64, u64"},
      {"cumulative = ['u32', 'x']", ":1: cumulative: 'x': expected a column"},
      {"statistics = 'baseline'\nrange = [1, 2]", ":2: range: '1:2': expected no range"},
      {"dg = \n", ":1: not valid TOML"},
      {"[objects.i32]\nrange = [0, 2147483648]", ":2: objects.i32.range: '0:2147483648': expected bounds that fit"},
      {"[objects.i32]\nrange = [-2147483649, 0]", ":2: objects.i32.range: '-2147483649:0'"},
      {"[objects.u32]\nrange = [0, 4294967296]", ":2: objects.u32.range: '0:4294967296'"},
      {"[objects.u32]\nrange = [-1, 5]", ":2: objects.u32.range: '-1:5'"},
      {"[objects.i64]\nrange = [0, '9223372036854775808']", ":2: objects.i64.range: '0:9223372036854775808'"},
      {"[objects.u64]\nrange = [-1, 5]", ":2: objects.u64.range: '-1:5'"},
  };
  for (const BadConfig &bad : bad_configs) {
    const std::string error = ErrorOf([&] { PlanObjects(Configured(bad.toml), table_); });
    EXPECT_EQ(error.rfind(std::string("c.toml") + bad.error, 0), 0u) << bad.toml << ": " << error;
  }
}

TEST_F(SettingsTest, TheMoreSpecificSettingHolds) {
  Settings settings = Configured(
      "buckets = 7\nstatistics = ['summary', 'distribution']\ncumulative = 'all'\nclear = '1.5h'\n"
      "instances = ['top']\n"
      "[objects.u64]\nbuckets = 9\nrange = [1, '18446744073709551615']\ncumulative = false\ninstances = ['own']\n"
      "[objects.i32]\nrange = [-2147483648, 2147483647]\n"
      "[objects.i64]\nstatistics = 'baseline'\nclear = 12\n");
  SetOption("buckets", "8", &settings);
  SetOption("range", "0:10", &settings);
  const std::vector<ObjectPlan> plans = PlanObjects(settings, table_);
  ASSERT_EQ(plans.size(), 3u);  // in the order of the columns
  const ObjectPlan &i32 = plans[0], &i64 = plans[1], &u64 = plans[2];

  EXPECT_EQ(i32.column, 0u);
  EXPECT_EQ(i32.buckets, 8u);
  EXPECT_EQ(i32.statistics, ZOR_PROCESS_FLAG_SUMMARY | ZOR_PROCESS_FLAG_DISTRIBUTION);
  EXPECT_EQ(static_cast<int64_t>(i32.range->bounds[0]), -2147483648);
  EXPECT_TRUE(i32.cumulative);
  EXPECT_EQ(i32.instances, NameList{"top"});
  EXPECT_FALSE(i32.clear);

  EXPECT_EQ(u64.buckets, 9u);
  EXPECT_EQ(u64.range->bounds[1], UINT64_MAX);
  EXPECT_FALSE(u64.cumulative);
  EXPECT_EQ(u64.instances, NameList{"own"});

  EXPECT_EQ(i64.statistics, ZOR_PROCESS_FLAG_BASELINE);
  EXPECT_FALSE(i64.range);
  EXPECT_EQ(ClearPolls(*i64.clear, 10), 12u);

  // Without cumulative settings the source's kinds hold; options choose among the tables.
  settings.cumulative.reset();
  SetOption("objects", "i32,i64,u32", &settings);
  const std::vector<ObjectPlan> fewer = PlanObjects(settings, table_);
  ASSERT_EQ(fewer.size(), 2u);
  EXPECT_FALSE(fewer[0].cumulative);
  EXPECT_TRUE(fewer[1].cumulative);

  EXPECT_EQ(ClearPolls(*settings.clear, 10), 540u);
  EXPECT_EQ(ClearPolls(*settings.clear, 700), 8u);  // 7.7
  SetOption("clear", "200h", &settings);
  EXPECT_EQ(ErrorOf([&] { ClearPolls(*settings.clear, 10); }).rfind("--clear: 720000 seconds are 72000 polls", 0),
            0u);
}

}  // namespace
}  // namespace zorstat
