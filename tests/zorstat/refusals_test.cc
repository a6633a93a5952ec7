// What is wrong with files, settings and options is told in one line, with the place and what would be right.
#include <algorithm>

#include "program.h"

namespace zorstat {
namespace {

struct Bad {
  const char *given;  // a file's text, or arguments
  const char *error;  // its start, without what is said for all
  int status_or_records = 0;
};

class RefusalsTest : public ProgramTest {
 protected:
  RefusalsTest() { Write("f.csv", "time,k,i32:i32,u32:u32,i64:i64,u64\n1,x,1,2,3,4\n"); }
  static void ExpectRefused(const std::string &arguments, int status, const std::string &error, int records = 0) {
    const Outcome outcome = Run("$Z " + arguments);
    EXPECT_EQ(outcome.status, status) << arguments;
    EXPECT_THAT(outcome.error, testing::StartsWith("zorstat: " + error)) << arguments;
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), records) << error << outcome.out;
  }
};

TEST_F(RefusalsTest, NamesLineValueAndExpectationOfAPollFile) {
  const Bad bad_files[] = {
      // with the records of the complete polls before
      {"", ": is empty"},
      {"time,k,a\n", ": has no rows\n"},
      {"tim,k,a\n", ":1: header: 'tim': expected 'time'"},
      {"time,k\n", ":1: header: expected time,KEY,NAME[:TYPE]"},
      {"time,k,a:u16\n", ":1: header: type: 'u16': expected i32, u32, i64 or u64"},
      {"time,k,a,b,a:i32\n", ":1: header: 'a': expected each column name only once"},
      {"time,k,a,\n", ":1: header: field 4 has no name"},
      {"time,k,a\tb\n", ":1: header: 'a?b': expected a name in UTF-8 without commas or control characters"},
      {"time,k,\"a\"\n", ":1: header: '\"a\"': expected a name without quotes"},
      {"time,k,a\n1,x,1\n2,x\n", ":3: 2 fields (expected 3: time, k and 1 value)", 1},
      {"time,k,a\n1,x,1\n2,\"x\",1,2\n", ":3: 4 fields (expected 3", 1},
      {"time,k,a,b\n1,x,1,1\n2\n", ":3: 1 field (expected 4: time, k and 2 values)", 1},
      {"time,k,a\n1,x,1\n\n", ":3: time: '': expected whole seconds since 1970, at most 4294967295"},
      {"time,k,a\n-1,x,1\n", ":2: time: '-1'"},
      {"time,k,a\n4294967296,x,1\n", ":2: time: '4294967296'"},
      {"time,k,a\n5,x,1\n4,x,1\n", ":3: time 4 goes back (expected 5 or later)", 1},
      {"time,k,a\n1,x,1\n1,y,1\ntime,k,b\n", ":4: header: 'time,k,b': expected that of the first line", 2},
      {"time,k,a\n1,x,1\n2,y,1\n2,x,1\n2,z,1\n2,x,1\n", ":6: k: 'x': expected each key once in a poll", 1},
      {"time,k,a\n1,,1\n", ":2: k: is empty"},
      {"time,k,a\n1,\"x,1\n", ":2: k: closing quote is missing"},
      {"time,k,a\n1,\"x\"y,1\n", ":2: k: text behind the closing quote"},
      {"time,k,a\n1,a\x7f,1\n", ":2: k: 'a?': expected a name in UTF-8 without"},
      {"time,k,a\n1,\"a,b\",1\n", ":2: k: 'a,b': expected a name in UTF-8 without commas"},
      {"time,k,a\n1,\xe9t\xc3\xa9\xed\xa0\x80\xe2\x82,1\n", ":2: k: '?t\xc3\xa9?\?\?\?\?': expected"},
      {"time,k,a\n1,\xf4\x90\x80\x80,1\n", ":2: k: '?\?\?\?': expected"},
      {"time,k,a\n1,x,+1\n", ":2: a: '+1': expected a number from 0 to 18446744073709551615"},
      {"time,k,a:u32\n1,x,-1\n", ":2: a: '-1': expected a number from 0 to 4294967295"},
      {"time,k,a:i64,b\n1,x,1,1\n2,x,1,1\n2,y,1e3,1\n", ":4: a: '1e3': expected a number", 1},
  };
  for (const Bad &bad : bad_files) {
    Write("bad.csv", bad.given);
    ExpectRefused("replay bad.csv --statistics summary --clear 1 --objects a", 1,
                  std::string("bad.csv") + bad.error, bad.status_or_records);
  }
}

TEST_F(RefusalsTest, TellsFailuresFromWrongUse) {
  const Bad bad_arguments[] = {
      {"replay none.csv", "none.csv: cannot open: no such file or directory\n", 1},
      {"replay .", ".: cannot read: is a directory\n", 1},
      {"replay f.csv --config /dev/zero", "/dev/zero: expected at most 2097152 bytes\n", 1},
      {"live", "SOURCE is required, here or in the settings file (see --help)\n", 2},
      {"live disks", "source: 'disks': expected net, disk, cpu, mem, vm, pressure, proc, sock, snmp or exec\n", 2},
      {"live exec", "exec: has no command: expected exec -- COMMAND [ARG...]\n", 2},
      {"record net -- ls", "net: 'ls': expected a command with exec alone\n", 2},
      {"record cpu --count 0", "--count: '0': expected a whole number from 1 to 4294967295\n", 2},
      {"live cpu --count 1 --on-departure cat", "--on-departure: intervals have no end: expected a clear\n", 2},
      {"live cpu --count 1 --clear 1 --on-departure ./f.csv", "--on-departure: './f.csv': expected a program\n", 2},
      {"", "a subcommand is required (see --help)\n", 2},
  };
  for (const Bad &bad : bad_arguments) ExpectRefused(bad.given, bad.status_or_records, bad.error);
}

TEST_F(RefusalsTest, AppendsOnlyWhereLinesFit) {
  const Bad bad_arguments[] = {
      {"", "--append: 'standard output': expected a file as --output\n", 2},
      {"-o /dev/null", "--append: '/dev/null': expected a file as --output\n", 2},
      {"-o old --format table", "--format: with --append: expected records, csv or jsonl\n", 2},
      {"-o old --format csv", "old:1: header: 'time,host': expected that of what is to be appended\n", 1},
      {"-o link", "link: cannot open: ", 1},
      {"--help >help; flock old $Z replay f.csv --append -o old", "old: another run writes to it\n", 1},
  };
  Write("old", "time,host\nan unfinished line");
  std::filesystem::create_symlink("nowhere", "link");
  for (const Bad &bad : bad_arguments) {
    ExpectRefused(std::string("replay f.csv --append ") + bad.given, bad.status_or_records, bad.error);
    EXPECT_EQ(Read("old"), "time,host\nan unfinished line") << bad.given;
  }
}

TEST_F(RefusalsTest, NamesValueAndExpectationOfAnOption) {
  const Bad bad_options[] = {
      {"statistics=sum", "statistics: 'sum': expected summary, distribution, percentile or baseline"},
      {"buckets=0", "buckets: '0': expected a whole number from 1 to 65535"},
      {"range=5", "range: '5': expected two bounds, LOW:HIGH"},
      {"range=5:4", "range: '5:4': expected a low bound that is not above the high one"},
      {"range=-1:9223372036854775808", "range: '9223372036854775808': expected a number from -92"},
      {"clear=0", "clear: '0': expected polls from 1 to 65535, or hours"},
      {"clear=65536", "clear: '65536'"},
      {"clear=0h", "clear: '0h': expected hours above 0"},
      {"clear=nanh", "clear: 'nanh'"},
      {"clear=200h", "clear: is 72000 polls of 10 seconds: expected at most 65535 polls"},
      {"resets=plain", "resets: 'plain': expected detect or ignore\n"},
      {"interval=9", "interval: '9': expected a whole number from 10"},
      {"percentile=101", "percentile: '101': expected a whole number from 0 to 100"},
      {"instances=a,,b", "instances: '': expected a name"},
      {"objects=u32,b,u32", "objects: 'u32': expected each name only once"},
      {"objects=tx", "objects: 'tx': expected a column of the input: i32, u32, i64, u64\n"},
      {"dg=a:b", "dg: 'a:b': expected a name in UTF-8 without colons"},
      {"output=f.csv", "output: 'f.csv': expected another file than the input\n"},
  };
  for (const Bad &bad : bad_options) {
    ExpectRefused(std::string("replay f.csv --") + bad.given, 2, std::string("--") + bad.error);
  }
}

TEST_F(RefusalsTest, NamesLineAndKeyOfASettingsFile) {
  const Bad bad_files[] = {
      {"dg = 'x'\nbuckets = 0", "2: buckets: '0': expected a whole number"},
      {"buckets = '5'", "1: buckets: is a string: expected an integer"},
      {"\n\nbuckts = 5", "3: buckts: unknown key: expected cumulative, interval, "},
      {"statistics = [1]", "1: statistics: is an integer: expected an array of strings"},
      {"statistics = []", "1: statistics: '': expected at least one"},
      {"range = [1]", "1: range: '1': expected two bounds"},
      {"objects = ['u32']", "1: objects: is an array: expected tables"},
      {"[objects.u32]\nbuckets = 1\nfoo = 1", "3: objects.u32.foo: unknown key: expected cumulative, statistics, "},
      {"[objects.u32]\nclear = 5", "2: objects.u32.clear: only a baseline object"},
      {"[objects.u32]\nstatistics = 'baseline'\nrange = [1, 2]", "3: objects.u32.range: '1:2': expected no range"},
      {"cumulative = ['u32', 'x']", "1: cumulative: 'x': expected a column"},
      {"statistics = 'baseline'\nrange = [1, 2]", "2: range: '1:2': expected no range"},
      {"on-departure = []", "1: on-departure: '': expected a program\n"},
      {"dg = \n", "1: not valid TOML"},
      {"dg = \"\"\"a.b.c.d.e.f.g.h.i\"\n\"\"\"\"  # a.b.c.d.e.f.g.h.i\n[objects.'i.j'.a.a.a.a.a.a.a]",
       "3: a key of more than 8 parts: expected NAME or [objects.NAME]"},
      {"[objects.i32]\nrange = [0, 2147483648]", "2: objects.i32.range: '0:2147483648': expected bounds that fit"},
      {"[objects.u64]\nrange = [-1, 5]", "2: objects.u64.range: '-1:5'"},
  };
  for (const Bad &bad : bad_files) {
    Write("c.toml", bad.given);
    ExpectRefused("replay f.csv --config c.toml", 2, std::string("c.toml:") + bad.error);
  }
}

}  // namespace
}  // namespace zorstat
