#include "program.h"

namespace zorstat {
namespace {

TEST_F(ProgramTest, RecordsCarryThePollsTimeAndAreTheSameEachTime) {
  Write("f.csv", Polls(5));
  const std::string options = " --cumulative rx --clear 2 --statistics summary --headers --dg ports";
  const Outcome outcome = Run("$Z replay f.csv" + options);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(outcome.out,
            "Schema-def ports-summary \"%u, %s, %s, %u, %u, %u, %f\"\r\n"
            "       Epochtime Object Instance No-Of-Samples Min Max Average\r\n"
            "ports-summary: 1700000010, rx, p1, 1, 100, 100, 100.000\r\n"
            "ports-summary: 1700000010, rx, p2, 1, 1, 1, 1.000\r\n"
            "ports-summary: 1700000010, level, p1, 2, -1, 0, -0.500\r\n"
            "ports-summary: 1700000030, rx, p1, 2, 100, 100, 100.000\r\n"
            "ports-summary: 1700000030, rx, p2, 2, 3, 5, 4.000\r\n"
            "ports-summary: 1700000030, level, p1, 2, -3, -2, -2.500\r\n"
            "ports-summary: 1700000040, rx, p1, 1, 100, 100, 100.000\r\n"
            "ports-summary: 1700000040, rx, p2, 1, 7, 7, 7.000\r\n"
            "ports-summary: 1700000040, level, p1, 1, -4, -4, -4.000\r\n");
  EXPECT_EQ(Run("$Z replay - < f.csv" + options).out, outcome.out);
  EXPECT_EQ(Run("$Z replay f.csv -o r.txt" + options).out, "");
  EXPECT_EQ(Read("r.txt"), outcome.out);
}

TEST_F(ProgramTest, TheReportShowsTheIntervalInProgress) {
  Write("f.csv", Polls(6));
  // The last poll ends with a clear, so nothing is left after it.
  const Outcome outcome =
      Run("$Z replay f.csv --clear 3 --objects level --percentile 50 --statistics percentile"
          " --range=-10:0 --buckets 11");
  EXPECT_EQ(outcome.status, 0);
  const size_t report = outcome.out.find("\nObjectname       : level\n\nNumber of samples: 6\n");
  ASSERT_NE(report, std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("P[050.000] = -4.000", report), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.rfind("f-percentile: 1700000050, level, p1, 3, -5.000", report), std::string::npos)
      << outcome.out;
  EXPECT_EQ(outcome.out.find("f-percentile", report), std::string::npos);
  EXPECT_EQ(outcome.out.find("level, p1, 0\r"), std::string::npos) << "records of nothing: " << outcome.out;
}

TEST_F(ProgramTest, ABadLineLateInTheFileKeepsTheCompletePolls) {
  Write("f.csv", Polls(3) + "1700000030,p1,1,1\n1700000030,p2,many,1\n");
  const Outcome outcome = Run("$Z replay f.csv --objects level --statistics summary --report");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.error, "zorstat: f.csv:9: rx: 'many': expected a number from 0 to 18446744073709551615\n");
  EXPECT_EQ(outcome.out.rfind("f-summary: 1700000020, level, p1, 3, -2, 0, -1.000\r\n", 0), 0u) << outcome.out;
  EXPECT_NE(outcome.out.find("Objectname       : level"), std::string::npos);
}

TEST_F(ProgramTest, ARefusedValueIsCountedAndCostsNoOther) {
  Write("f.csv", "time,k,a,b\n10,x,18446744073709551615,1\n20,x,5,2\n30,x,0,3\n40,x,6,4\n");
  EXPECT_EQ(Run("$Z replay f.csv").error,
            "zorstat: refused values: a 2 (not in the sum, so that percentiles do not hold)\n");
  const Outcome outcome = Run("$Z replay f.csv --statistics summary --report");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "zorstat: refused values: a 2 (not in the sum)\n");
  EXPECT_EQ(outcome.out.rfind("f-summary: 40, a, x, 2, 0, 18446744073709551615, 9223372036854775807.500\r\n"
                              "f-summary: 40, b, x, 4, 1, 4, 2.500\r\n",
                              0),
            0u)
      << outcome.out;
  EXPECT_NE(outcome.out.find("\nValues not in the sum: 2\n"), std::string::npos);
}

TEST_F(ProgramTest, ABaselineLearnsAndReportsInItsPlace) {
  std::string polls = "time,k,a,b\n";
  int time = 0;
  for (int value : {10, 20, 30, 40, 25, 25, 25, 25, 100, 200, 300, 400, 500, 600, 700, 800, 900, 1000, 1100}) {
    polls += std::to_string(time += 10) + ",x," + std::to_string(value) + ",1\n";
  }
  Write("f.csv", polls);
  Write("f.toml", "[objects.a]\nstatistics = 'baseline'\nclear = 4\n[objects.b]\nstatistics = 'summary'\n");
  const Outcome outcome = Run("$Z replay f.csv --config f.toml --report");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "zorstat: refused values: a 1 (without a bucket)\n");
  const std::string fourth =
      "f-baseline: 80, a, x, 4, 25.000, 25.000, 25.000, 25.000, 25.000, 25.000, 25.000, 25.000, ";
  size_t at = 0;
  for (const std::string &expected :
       {fourth, std::string("f-baseline: 120, a, x, 8, 25.000"), std::string("f-baseline: 160, a, x, 12, 25.000"),
        std::string("f-baseline: 190, a, x, 15, 25.000"), std::string("f-summary: 190, b, x, 19, 1, 1, 1.000"),
        std::string("\nObjectname       : a\n"),
        std::string("Object: a, Instance: x\nAnalyzer: Stage = Analyzing\n"),
        std::string("\nMax List length = 10\n"), std::string("\nValues without a bucket: 1\n"),
        std::string("\nObjectname       : b\n")}) {
    at = outcome.out.find(expected, at);
    ASSERT_NE(at, std::string::npos) << expected << " in " << outcome.out;
  }
}

TEST_F(ProgramTest, ExitStatusAndMessageTellWhatWentWrong) {
  Write("f.csv", Polls(3));
  Write("header.csv", "time,k,a\n");
  const struct {
    const char *command;
    int status;
    const char *error;
  } cases[] = {
      {"$Z replay f.csv -o /dev/full", 1, "zorstat: /dev/full: cannot write: no space left on device\n"},
      {"$Z replay f.csv > /dev/full", 1, "zorstat: standard output: cannot write: no space left on device\n"},
      {"$Z record cpu --count 1 -o /dev/full", 1, "zorstat: /dev/full: cannot write"},
      {"$Z replay f.csv -o f.csv", 2, "zorstat: --output: 'f.csv': expected another file than the input\n"},
      {"$Z replay none.csv", 1, "zorstat: none.csv: cannot open: no such file or directory\n"},
      {"$Z replay .", 1, "zorstat: .: cannot read: is a directory\n"},
      {"$Z replay header.csv", 1, "zorstat: header.csv: has no rows\n"},
      {"$Z replay f.csv --objects tx", 2, "zorstat: --objects: 'tx': expected a column of the input: rx, level\n"},
      {"$Z replay f.csv --buckets", 2, "zorstat: --buckets"},
      {"$Z live disks", 2, "zorstat: source: 'disks': expected net, disk or cpu\n"},
      {"$Z", 2, "zorstat: a subcommand is required"},
      {"$Z live net --proc none", 1, "zorstat: none/net/dev: cannot open"},
      {"$Z replay f.csv --instances p1,p3", 0, "zorstat: instance p3: had no values\n"},
  };
  for (const auto &expected : cases) {
    const Outcome outcome = Run(expected.command);
    EXPECT_EQ(outcome.status, expected.status) << expected.command;
    EXPECT_EQ(outcome.error.rfind(expected.error, 0), 0u) << expected.command << ": " << outcome.error;
  }
  EXPECT_EQ(Read("f.csv"), Polls(3));
  // A reader that goes away is no news to it.
  Write("long.csv", Polls(20000));
  const Outcome outcome = Run("(\"$Z\" replay long.csv --clear 1; echo $? >&2) | head -n 1");
  EXPECT_EQ(outcome.error, "1\n");
}

TEST_F(ProgramTest, RecordedPollsAreReplayed) {
  Write("proc/diskstats", "8 0 sda 11 12 13 14 15 16 17 18 3 20 21\n8 16 sdb 1 2 3 4 5 6 7 8 9 10 11\n");
  ASSERT_EQ(Run("$Z record disk --proc proc --count 1 -o d.csv").status, 0);
  const Outcome outcome =
      Run("$Z replay d.csv --dg d --objects reads,in_flight --statistics summary | cut -d' ' -f3-");
  EXPECT_EQ(outcome.out,
            "reads, sda, 1, 11, 11, 11.000\r\nreads, sdb, 1, 1, 1, 1.000\r\n"
            "in_flight, sda, 1, 3, 3, 3.000\r\nin_flight, sdb, 1, 9, 9, 9.000\r\n");
}

TEST_F(ProgramTest, ASignalEndsALiveRunWithItsRecords) {
  Write("line", "8 0 sda 11 12 13 14 15 16 17 18 3 20 21\n");
  // The program opens the pipe for its first poll; so the signal comes while that is read or after it.
  for (const std::string signal : {"TERM", "INT"}) {
    const Outcome outcome =
        Run("mkdir -p proc; rm -f proc/diskstats; mkfifo proc/diskstats\n"
            "$Z live disk --proc proc --objects reads,in_flight --statistics summary --report -o r.txt & pid=$!\n"
            "cat line > proc/diskstats; kill -" +
            signal + " $pid; wait $pid");
    EXPECT_EQ(outcome.status, 0) << outcome.error;
    EXPECT_NE(outcome.out.find("Objectname       : in_flight\n\nNumber of samples: 1\n"), std::string::npos);
    const std::string records = Read("r.txt");
    EXPECT_NE(records.find(", reads, sda, 0\r\n"), std::string::npos) << records;
    EXPECT_NE(records.find(", in_flight, sda, 1, 3, 3, 3.000\r\n"), std::string::npos) << records;
  }
}

}  // namespace
}  // namespace zorstat
