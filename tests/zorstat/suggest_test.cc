#include <sstream>

#include "program.h"

namespace zorstat {
namespace {

// A poll of each value, of one instance.
std::string File(const std::string &column, const std::string &values) {
  std::string text = "time,k," + column + "\n";
  std::istringstream stream(values);
  int time = 1700000000;
  for (std::string value; std::getline(stream, value, ' '); time += 10) {
    text += std::to_string(time) + ",x," + value + "\n";
  }
  return text;
}

TEST_F(ProgramTest, SuggestTellsCountersFromGauges) {
  const struct {
    const char *column, *values, *cumulative, *comments;
  } cases[] = {
      {"rises", "0 3 3 9", "true ", "counter: rises in 66.7 % of 3 steps, too few to be sure"},
      {"gaps", "50  70  75", "true ", "counter: rises in 100.0 % of 2 steps, too few to be sure"},
      {"many", "1 2 3 4 5 6 7 8 9 10 11", "true ", "counter: rises in 100.0 % of 10 steps"},
      {"reset", "90 95 99 4 9 12", "true ", "counter: rises in 80.0 % of 5 steps, 1 reset, too few to be sure"},
      {"wrap:u32", "4294967290 4294967293 2 9 12 15", "true ",
       "counter: rises in 80.0 % of 5 steps, 1 wrap, too f"},
      {"wrap", "4294967290 4294967293 2 9 12 15", "true ",
       "counter: rises in 80.0 % of 5 steps, wraps at 2^32: gi"},
      {"drops", "80 82 83 84 86 30", "false", "gauge: falls in 20.0 % of 5 moves"},
      {"saw", "1 2 3 0 1 2 3 0 1", "false", "gauge: falls in 25.0 % of 8 moves"},
      {"below:i32", "-3 -2 5", "false", "gauge: has values below 0"},
      {"same", "7 7", "false", "constant: nothing tells a counter from a gauge"},
      {"a \"b\\c.[d]é", "1 4", "true ", "counter: rises in 100.0 % of 1 step, too few to be sure"},
  };
  for (const auto &item : cases) {
    Write("f.csv", File(item.column, item.values));
    const Outcome outcome = Run("$Z suggest f.csv -o f.toml && $Z replay f.csv --config f.toml; cat f.toml");
    EXPECT_TRUE(outcome.error.empty() || outcome.error.starts_with("zorstat: counter resets: ")) << outcome.error;
    const std::string setting = std::string("\ncumulative = ") + item.cumulative + "           # " + item.comments;
    EXPECT_NE(outcome.out.find(setting), std::string::npos) << item.column << ": " << outcome.out;
    EXPECT_NE(outcome.out.find("f-percentile: "), std::string::npos) << item.column;
  }
}

// Many small values and a large one, with which records fail that have it outside their range.
TEST_F(ProgramTest, SuggestedRangesFailNoRecord) {
  std::string values;
  for (int i = 0; i < 3000; ++i) values += std::to_string(i == 1504 ? 1000000 : 1 + i * 7919 % 500) + " ";
  Write("f.csv", File("burst", values));
  const std::string replays =
      " <f.csv >f.toml; grep -o '^range.*[]]' f.toml; for n in 1 5 10; do $Z replay f.csv --config f.toml --clear "
      "$((clear / n)) | grep percentile | grep -c ', 0.000, 0.000, 0.000, 0.000, 0.000, 0.000, 0.000'; done";
  EXPECT_EQ(Run("clear=60; $Z suggest - --clear 60" + replays).out, "range      = [0, 1999999]\n0\n0\n0\n");
  EXPECT_EQ(Run("clear=1000; $Z suggest - --clear 1000" + replays).out, "range      = [0, 999]\n0\n0\n0\n");
}

}  // namespace
}  // namespace zorstat
