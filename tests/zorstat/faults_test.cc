// What the program does when the world around it fails: one line, the right status, and nothing half written.
#include "program.h"

namespace zorstat {
namespace {

constexpr Case kFaults[] = {
    {"disk full: the old file stays",
     "ulimit -f 1; $Z replay long.csv --clear 1 -o r.txt; echo $? $(cat r.txt) *.part", "1 old *.part\n",
     "zorstat: r.txt: cannot write: file too large\n"},
    {"disk full: what was there before stays, and only that",
     "ulimit -f 1; $Z replay long.csv --clear 1 >> r.txt; echo $? $(cat r.txt)", "1 old\n",
     "zorstat: standard output: cannot write: file too large\n"},
    {"disk full: whole polls stay",
     "ulimit -f 1; LD_PRELOAD=$F HASTE= $Z record cpu --proc proc -o r.txt; echo $?; cut -d, -f2- r.txt | uniq -c",
     "1\n      1 cpu,user,nice,system,idle,iowait,irq,softirq,steal,guest,guest_nice\n"
     "     12 cpu,1,2,3,4,5,6,7,8,9,10\n",
     "zorstat: r.txt: cannot write: file too large\n"},
    {"help cannot be written", "$Z --help > /dev/full; echo $?", "1\n",
     "zorstat: standard output: cannot write: no space left on device\n"},
    {"no place for messages", "$Z replay none.csv 2> /dev/full; echo $?", "1\n", ""},
    {"a message of any length is one line", "$Z live $(printf %05000d 0) 2>&1 | wc -lc", "      1    4096\n", ""},
    {"messages do not go to a file in the place of standard error",
     "$Z replay bad.csv --statistics summary -o r.txt 2>&-; echo $?; cat r.txt",
     "1\nbad-summary: 10, a, x, 1, 1, 1, 1.000\r\n", ""},
    {"standard output is closed", "$Z replay f.csv --statistics summary --report -o r.txt >&-; cat r.txt",
     "f-summary: 20, a, x, 2, 1, 3, 2.000\r\n", "zorstat: standard output: cannot write: bad file descriptor\n"},
    {"the reader goes away", "($Z replay long.csv --clear 1; echo $? >&2) | head -n 1 | wc -l", "1\n", "1\n"},
    {"a link and its target's mode stay",
     "chmod 640 r.txt; ln -s r.txt l; $Z replay f.csv -o l; test -L l && stat -c %a r.txt; wc -l < r.txt",
     "640\n2\n", ""},
    {"the input may have been cut", "$Z replay cut.csv --statistics summary; echo $?",
     "cut-summary: 20, a, x, 2, 1, 3, 2.000\r\n0\n",
     "zorstat: cut.csv:3: the last line has no end; the file may have been cut\n"},
    {"the input is cut while it is read",
     "($Z replay long.csv --clear 1; echo $? >&2) | (read first; : > long.csv; tail -c 2 | od -An -c)",
     "  \\r  \\n\n", "zorstat: long.csv:"},
    {"the source is removed between polls",
     "LD_PRELOAD=$F HASTE=proc/stat $Z live cpu --proc proc --statistics summary --objects user,idle -o r.txt; "
     "echo $?; cut -d, -f2- r.txt",
     "1\n user, cpu, 0\r\n idle, cpu, 0\r\n", "zorstat: proc/stat: cannot open: no such file or directory\n"},
    {"what was missed is not made up for",
     "LD_PRELOAD=$F HASTE= STALL=22 $Z record cpu --proc proc --count 4 | cut -d, -f1",
     "time\n1700000000\n1700000032\n1700000042\n1700000052\n", ""},
    {"the clock is set back", "LD_PRELOAD=$F HASTE= BACK=3600 $Z record cpu --proc proc --count 3 | cut -d, -f1",
     "time\n1700000000\n1700000010\n1700000020\n",
     "zorstat: the clock was set back: times went on without it in 2 polls\n"},
    {"the clock leaves what a poll file can hold",
     "LD_PRELOAD=$F HASTE= CLOCK=4294967290 $Z record cpu --proc proc -o r.txt; echo $?; wc -l < r.txt", "1\n2\n",
     "zorstat: time: '4294967300': expected whole seconds since 1970, at most 4294967295\n"},
    {"a signal ends what waits in open, read and write, and what computes",
     "mkfifo a b c d proc/diskstats; sleep 3 < a & (echo time,k,a; seq -f 1,%g,1 20000; seq -f %g,1,1 2 90000) > "
     "slow;"
     "end() { timeout --preserve-status -k 2 1 $Z $*; echo $? >&2; }; {"
     " (end replay long.csv --clear 1 2> e | sleep 3; cat e) &"
     " for run in 'replay long.csv --clear 1 -o a' 'replay f.csv -o b' 'replay c' 'replay f.csv --config d'"
     " 'record disk --proc proc' 'replay slow --clear 1 -o r.txt'; do end $run 2>&1 & done; } | sed "
     "'s/w:.*:/w:LINE:/' | sort;"
     " tail -n 1 r.txt | cut -d, -f2-",
     "1\n1\n1\n1\n1\n1\n1\nzorstat: a: cannot write: interrupted system call\n"
     "zorstat: b: cannot open: interrupted system call\nzorstat: c:1: interrupted\n"
     "zorstat: d: cannot read: interrupted system call\n"
     "zorstat: proc/diskstats: cannot read: interrupted system call\nzorstat: slow:LINE: interrupted\n"
     "zorstat: standard output: cannot write: interrupted system call\n a, 20000, 0\r\n",
     ""},
    {"a second signal ends at once what still writes",
     "mkfifo slow.out; (for i in $(seq 40); do dd bs=4k count=1; sleep .1; done) < slow.out > dd 2>&1 &"
     " $Z replay long.csv --clear 1 -o slow.out & pid=$!; sleep 1; kill $pid; sleep .3; kill $pid;"
     " wait $pid 2> dd; echo $?",
     "143\n", ""},
    {"what a killed run leaves is nobody else's to read, and goes with the next run; nothing else does",
     "mkfifo kill; $Z replay kill -o r.txt & pid=$!; exec 3> kill; head -c 200000 long.csv >&3; sleep 1;"
     " stat -c %a r.txt.*; mkfifo r.txt.zorstat-fifofi; touch r.txt.zorstat-1; umask 027;"
     " for i in 1 2; do $Z replay f.csv -o r.txt; ls r.txt* | wc -l; kill -9 $pid; wait $pid; done 2> e;"
     " $Z replay f.csv -o new; stat -c %a new",
     "600\n4\n3\n640\n", ""},
    {"links that lead nowhere",
     "ln -s none to; ln -s turn round; ln -s round turn; for l in to turn; do $Z replay f.csv -o $l; echo $?; done",
     "1\n1\n",
     "zorstat: to: cannot follow the link: no such file or directory\n"
     "zorstat: turn: cannot open: too many levels of symbolic links\n"},
    {"an interrupt while polls come",
     "mkfifo in; $Z replay in --statistics summary --objects level -o r.txt & pid=$!; exec 3> in;"
     " head -c 200000 long.csv >&3; kill -INT $pid; wait $pid; echo $?; exec 3>&-;"
     " grep -c '^in-summary: 17000[0-9]*, level, p1, [1-9]' r.txt",
     "1\n1\n", "zorstat: in:"},
    // The end of a buffer falls on different places of the lines.
    {"a line that is longer than a buffer, and many short ones",
     "(echo time,k,a; printf 0,; head -c 700000 /dev/zero | tr '\\0' k; awk 'BEGIN { print \",5\"; for (i = 0; "
     "i < 130000; ++i) print i + 1 \",\" substr(\"123456789abcd\", 1, 1 + i % 13) \",1\" }') |"
     " $Z replay - --statistics summary -o r.txt; wc -c < r.txt; grep -c ', 10000, 1, 1, 1.000' r.txt",
     "700759\n13\n", ""},
    {"more polls than a bucket counts",
     "awk 'BEGIN { print \"time,k,a\"; for (i = 0; i < 65540; ++i) print i \",x,5\" }' | $Z replay - --range 0:9 |"
     " grep percentile | cut -d, -f4-5",
     " 65535, 5.000\n 5, 5.000\n", ""},
};

TEST_F(ProgramTest, OneLineTheRightStatusAndNothingHalfWritten) {
  Write("f.csv", "time,k,a\n10,x,1\n20,x,3\n");
  Write("cut.csv", "time,k,a\n10,x,1\n20,x,3");
  Write("bad.csv", "time,k,a\n10,x,1\n20,x,?\n");
  for (const Case &fault : kFaults) {
    if (!kPreloads && std::string_view(fault.command).find("LD_PRELOAD") != std::string::npos) continue;
    Write("r.txt", "old\n");
    Write("proc/stat", "cpu 1 2 3 4 5 6 7 8 9 10\n");
    Write("long.csv", Polls(40000));
    Check(fault);
  }
}

TEST_F(ProgramTest, ARunWithoutMemoryEndsInOneLineWithWholeRecords) {
  if (!kPreloads) GTEST_SKIP() << "another allocator cannot be preloaded under the address sanitizer";
  Write("f.csv",
        "time,k,a,b:i32,c\n10,x,1,-1,5\n10,y,2,2,5\n20,x,3,-1,7\n20,y,4,2,7\n30,x,100,3,9\n30,y,200,4,9\n");
  Write("f.toml",
        "dg = 'd'\nclear = 2\nheaders = true\nreport = true\n"
        "[objects.a]\nstatistics = 'baseline'\nclear = 1\nbuckets = 4\n"
        "[objects.b]\ncumulative = true\nstatistics = ['distribution', 'percentile']\nrange = [-10, 10]\n"
        "instances = ['x']\n[objects.c]\nstatistics = 'summary'\n");
  const auto run = [](const std::string &fail) {
    return Run("rm -f r; FAIL=" + fail + " LD_PRELOAD=$F $Z replay f.csv --config f.toml -o r");
  };
  const Outcome whole = run("0");
  const std::string records = Read("r");
  EXPECT_EQ(whole.status, 0) << whole.error;
  // Each of the first allocations, then some of the later ones: this one alone, and all from there on.
  bool is_end = false;
  for (int n = 1; !is_end; n += 1 + n / 10) {
    for (const std::string &fail : {std::to_string(n), std::to_string(n) + "+"}) {
      const Outcome outcome = run(fail);
      is_end = outcome.status == 0;
      if (is_end) {
        EXPECT_EQ(outcome.out + outcome.error + Read("r"), whole.out + records) << fail;
      } else {
        EXPECT_THAT(outcome.error, testing::MatchesRegex("zorstat: ([^\n]*: )?out of memory\n")) << fail;
        EXPECT_EQ(outcome.status, 1) << fail;
        EXPECT_THAT(Read("r"),
                    testing::MatchesRegex("(([a-zA-Z-]+ |  |d-[a-z]+: [0-9]+, [abc], [xy], )[^\n]*\r\n)*"));
        EXPECT_LE(Read("r").size(), records.size()) << fail;
      }
    }
    EXPECT_TRUE(!is_end || n > 500) << n;
  }
}

}  // namespace
}  // namespace zorstat
