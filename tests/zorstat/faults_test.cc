// What the program does when the world around it fails.
#include <algorithm>
#include <map>
#include <sstream>
#include <vector>

#include "program.h"

namespace zorstat {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPreloads = false;  // the sanitizer's runtime has to come first
#else
constexpr bool kPreloads = true;
#endif

class FaultsTest : public ProgramTest {
 protected:
  FaultsTest() {
    Write("proc/stat", "cpu 1 2 3 4 5 6 7 8 9 10\n");
    Write("r.txt", "old\n");
  }
  // LD_PRELOAD=$F before the program makes it faulty.
  static Outcome Run(const std::string &command) { return ProgramTest::Run("F='" ZORSTAT_FAULTS "'\n" + command); }
};

struct Fault {
  const char *name;
  const char *command;
  const char *out;    // what the command leaves on standard output
  const char *error;  // where this ends in a dash the rest is free
  bool preloads = false;
};

TEST_F(FaultsTest, OneLineTheRightStatusAndNothingHalfWritten) {
  Write("f.csv", "time,k,a\n10,x,1\n20,x,3\n");
  Write("cut.csv", "time,k,a\n10,x,1\n20,x,3");
  Write("bad.csv", "time,k,a\n10,x,1\n20,x,?\n");
  Write("long.csv", Polls(40000));
  const Fault faults[] = {
      {"disk full: the old file stays",
       "ulimit -f 1; $Z replay long.csv --clear 1 -o r.txt; echo $? $(cat r.txt) *.part", "1 old *.part\n",
       "zorstat: r.txt: cannot write: file too large\n"},
      {"disk full: what was there before stays, and only that",
       "ulimit -f 1; $Z replay long.csv --clear 1 >> r.txt; echo $? $(cat r.txt)", "1 old\n",
       "zorstat: standard output: cannot write: file too large\n"},
      {"disk full: whole polls stay",
       "ulimit -f 1; LD_PRELOAD=$F HASTE= $Z record cpu --proc proc -o r.txt; echo $? $(cut -d, -f2- r.txt | sort "
       "| uniq -c)",
       "1 12 cpu,1,2,3,4,5,6,7,8,9,10 1 cpu,user,nice,system,idle,iowait,irq,softirq,steal,guest,guest_nice\n",
       "zorstat: r.txt: cannot write: file too large\n", true},
      {"help cannot be written", "$Z --help > /dev/full; echo $?", "1\n",
       "zorstat: standard output: cannot write: no space left on device\n"},
      {"no place for messages", "$Z replay none.csv 2> /dev/full; echo $?", "1\n", ""},
      {"messages do not go to a file in the place of standard error",
       "$Z replay bad.csv --statistics summary -o r.txt 2>&-; echo $?; cat r.txt",
       "1\nbad-summary: 10, a, x, 1, 1, 1, 1.000\r\n", ""},
      {"standard output is closed", "$Z replay f.csv --statistics summary --report -o r.txt >&-; cat r.txt",
       "f-summary: 20, a, x, 2, 1, 3, 2.000\r\n", "zorstat: standard output: cannot write: bad file descriptor\n"},
      {"a link and its target's mode stay",
       "chmod 640 r.txt; ln -s r.txt l; $Z replay f.csv -o l; test -L l && stat -c %a r.txt; wc -l < r.txt",
       "640\n2\n", ""},
      {"the input may have been cut", "$Z replay cut.csv --statistics summary; echo $?",
       "cut-summary: 20, a, x, 2, 1, 3, 2.000\r\n0\n",
       "zorstat: cut.csv:3: the last line has no end; the file may have been cut\n"},
      {"the input is cut while it is read",
       "(\"$Z\" replay long.csv --clear 1; echo $? >&2) | (read first; : > long.csv; tail -c 2 | od -An -c)",
       "  \\r  \\n\n", "zorstat: long.csv:-"},
      {"the input is removed while it is read",
       "(\"$Z\" replay gone.csv --clear 1; echo $? >&2) | (read first; rm gone.csv; tail -n 1 | cut -d, -f1)",
       "gone-percentile: 1700399990\n", "0\n"},
      {"the source is removed between polls",
       "LD_PRELOAD=$F HASTE=proc/stat $Z live cpu --proc proc --statistics summary --objects user,idle -o r.txt; "
       "echo $?;"
       " cut -d, -f2- r.txt",
       "1\n user, cpu, 0\r\n idle, cpu, 0\r\n", "zorstat: proc/stat: cannot open: no such file or directory\n",
       true},
      {"the clock is set back",
       "LD_PRELOAD=$F HASTE= $Z record cpu --proc proc --count 4 -o r.txt; $Z replay r.txt --objects user"
       " --statistics summary | cut -d, -f2-",
       " user, cpu, 4, 1, 1, 1.000\r\n", "", true},
      {"an interrupt while polls come",
       "mkfifo in; $Z replay in --statistics summary --objects level -o r.txt & pid=$!; exec 3> in;"
       " head -c 200000 long.csv >&3; kill -INT $pid; wait $pid; echo $?; exec 3>&-;"
       " grep -c '^in-summary: 17000[0-9]*, level, p1, [1-9]' r.txt",
       "1\n1\n", "zorstat: in:-"},
      {"more polls than a bucket counts",
       "awk 'BEGIN { print \"time,k,a\"; for (i = 0; i < 65540; ++i) print i \",x,5\" }' | $Z replay - --range 0:9 "
       "|"
       " grep percentile | cut -d, -f4-5",
       " 65535, 5.000\n 5, 5.000\n", ""},
  };
  for (const Fault &fault : faults) {
    SCOPED_TRACE(fault.name);
    if (fault.preloads && !kPreloads) continue;
    Write("r.txt", "old\n");
    Write("proc/stat", "cpu 1 2 3 4 5 6 7 8 9 10\n");
    Write("long.csv", Polls(40000));
    Write("gone.csv", Polls(40000));
    const Outcome outcome = Run(fault.command);
    EXPECT_EQ(outcome.out, fault.out);
    const std::string expected = fault.error;
    if (!expected.empty() && expected.back() == '-') {
      EXPECT_EQ(outcome.error.rfind(expected.substr(0, expected.size() - 1), 0), 0u) << outcome.error;
    } else {
      EXPECT_EQ(outcome.error, expected);
    }
  }
}

// A record's samples, by its kind, object and instance.
using Samples = std::map<std::string, uint64_t>;

// Adds up the records of a text of whole lines with whole records.
Samples ReadSamples(const std::string &text) {
  Samples samples;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_EQ(line.back(), '\r') << line;
    const bool is_header = line.rfind("Schema-def", 0) == 0 || line[0] == ' ';
    if (is_header) continue;
    std::vector<std::string> fields;
    for (size_t start = 0, end; start < line.size(); start = end + 2) {
      end = std::min(line.find(start == 0 ? ": " : ", ", start), line.size());
      fields.push_back(line.substr(start, end - start));
    }
    const bool is_summary = fields[0] == "d-summary";  // without samples it, too, ends after their number
    EXPECT_EQ(fields.size(), fields.back() == "0\r" ? 5u : is_summary ? 8u : 14u) << line;
    uint64_t &sum = samples[fields[0] + fields[2] + fields[3]];
    const uint64_t count = std::stoull(fields[4]);
    sum = fields[0] == "d-baseline" ? std::max(sum, count) : sum + count;  // a baseline is not cleared
  }
  EXPECT_TRUE(text.empty() || text.back() == '\n');
  return samples;
}

// A poll file without its times.
std::string WithoutTimes(const std::string &polls) {
  std::string text;
  std::istringstream lines(polls);
  for (std::string line; std::getline(lines, line);) text += line.substr(line.find(',')) + "\n";
  return text;
}

class AllocationFailures : public FaultsTest {
 protected:
  // Runs the arguments once with all memory and then for each allocation without it, at first this one, then all
  // from there on. Checks everything but the files, which are r1, r2, ... after it, and r0; returns their number.
  static int Run(const std::string &arguments) {
    const Outcome all = FaultsTest::Run(
        "run() { LD_PRELOAD=$F FAIL=$2 COUNT=count HASTE= $Z " + arguments +
        " -o r$1 > out$1 2> error$1; echo $? > status$1; }\n"
        "run 0 0; all=$(cat count); n=1\n"
        "while [ $n -le $all ]; do run $n $n; run $((all + n)) $n+; n=$((n + 1)); done; echo $((2 * all))");
    EXPECT_EQ(Read("status0") + Read("error0"), "0\n");
    const int runs = std::stoi(all.out);
    EXPECT_GT(runs, 1000);
    for (int run = 1; run <= runs; ++run) {
      const std::string n = std::to_string(run);
      SCOPED_TRACE("run " + n);
      const std::string error = Read("error" + n);
      if (Read("status" + n) == "0\n") {
        EXPECT_EQ(error, "");
        EXPECT_EQ(Read("out" + n), Read("out0"));
        continue;
      }
      EXPECT_EQ(Read("status" + n), "1\n");
      EXPECT_EQ(error.rfind("zorstat: ", 0), 0u) << error;
      EXPECT_EQ(error.find('\n'), error.size() - 1) << error;
      EXPECT_NE(error.find("out of memory"), std::string::npos) << error;
    }
    EXPECT_EQ(FaultsTest::Run("echo *.part").out, "*.part\n");
    return runs;
  }
};

TEST_F(AllocationFailures, EndARunInOneLineWithWholeRecords) {
  if (!kPreloads) GTEST_SKIP() << "another allocator cannot be preloaded under the address sanitizer";
  Write("f.csv",
        "time,k,a,b:i32,c\n10,x,1,-1,5\n10,y,2,2,5\n20,x,3,-1,7\n20,y,4,2,7\n30,x,100,3,9\n30,y,200,4,9\n");
  Write("f.toml",
        "dg = 'd'\nclear = 2\nheaders = true\nreport = true\n"
        "[objects.a]\nstatistics = 'baseline'\nclear = 1\nbuckets = 4\n"
        "[objects.b]\ncumulative = true\nstatistics = ['distribution', 'percentile']\nrange = [-10, 10]\n"
        "instances = ['x']\n[objects.c]\nstatistics = 'summary'\n");
  const int runs = Run("replay f.csv --config f.toml");
  const Samples all = ReadSamples(Read("r0"));
  EXPECT_EQ(all.size(), 6u);
  for (int run = 1; run <= runs; ++run) {
    SCOPED_TRACE("run " + std::to_string(run));
    const std::string records = Read("r" + std::to_string(run));
    if (Read("status" + std::to_string(run)) == "0\n") {
      EXPECT_EQ(records, Read("r0"));
      continue;
    }
    for (const auto &[instance, count] : ReadSamples(records)) EXPECT_LE(count, all.at(instance)) << instance;
  }
}

TEST_F(AllocationFailures, EndARecordingWithWholePolls) {
  if (!kPreloads) GTEST_SKIP() << "another allocator cannot be preloaded under the address sanitizer";
  const int runs = Run("record cpu --proc proc --count 3");
  const std::string all = WithoutTimes(Read("r0"));
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 4);
  for (int run = 1; run <= runs; ++run) {
    const std::string polls = WithoutTimes(Read("r" + std::to_string(run)));
    EXPECT_EQ(all.rfind(polls, 0), 0u) << "run " << run << ": " << polls;
    const bool is_whole = Read("status" + std::to_string(run)) != "0\n" || polls == all;
    EXPECT_TRUE(is_whole) << "run " << run;
  }
}

}  // namespace
}  // namespace zorstat
