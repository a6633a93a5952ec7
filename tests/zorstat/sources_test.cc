// What is polled: tables of the kernel, in directories like /proc, and commands.
#include "program.h"

namespace zorstat {
namespace {

struct Reading {
  const char *source, *file, *text;
  const char *out;  // of each row the key and what has a value; or:
  const char *error = "";
};

constexpr Reading kReadings[] = {
    {"mem", "meminfo", "MemTotal:  2 kB\nNew: 9 MB\nHugePages_Total:  3\nActive(anon): 1 kB\n",
     "memory MemTotal=2048 Active(anon)=1024 HugePages_Total=3\n"},
    {"mem", "meminfo", "MemTotal: 2 kB\nMemFree: 5\n", "", "p/meminfo:2: MemFree: '': expected the unit kB\n"},
    {"mem", "meminfo", "Cached: 18014398509481984 kB\n", "",
     "p/meminfo:1: Cached: '18014398509481984': expected a"},
    {"mem", "meminfo", "\n\xff\nBuffers:\nMemFree: 1 kB\n", "",
     "p/meminfo:3: Buffers: '': expected a number from 0"},
    {"mem", "meminfo", "", "", "p/meminfo: had no rows\n"},
    {"vm", "vmstat", "nr_dirty 3\nnr_unknown -1\npgfault 7", "vm pgfault=7 nr_dirty=3\n"},
    {"vm", "vmstat", "pgfault 7 8\npgmajfault -1\n", "",
     "p/vmstat:2: pgmajfault: '-1': expected a number from 0 to 1"},
    {"pressure", "pressure/memory", "some avg10=1.00 total=5\nfull avg10=0.50 avg60=x total=4\n",
     "cpu-some total=1\nmemory-some total=5\nmemory-full total=4\n"},
    {"pressure", "pressure/io", "some total=1\nfull total=1.5\n", "", "p/pressure/io:2: total: '1.5': expected a"},
    {"sock", "net/sockstat", "sockets: used 3\nTCP: inuse 1 new 4 mem 2\nFRAG: inuse 0 memory 5\n",
     "sockets used=3\nTCP inuse=1 mem=2\nFRAG inuse=0 memory=5\n"},
    {"sock", "net/sockstat", "TCP: inuse\n", "", "p/net/sockstat:1: inuse: '': expected a number"},
    {"snmp", "net/snmp",
     "Ip: Forwarding InReceives\nIp: 2 5\nTcp: MaxConn CurrEstab InSegs\nTcp: -1 4\nIcmpMsg: InType3\nIcmpMsg: 1\n",
     "Ip InReceives=5\nTcp CurrEstab=4\n"},
    {"snmp", "net/snmp", "Tcp: InSegs\nUdp: 1\n", "", "p/net/snmp:2: 'Udp': expected the values of Tcp\n"},
    {"snmp", "net/snmp", "Tcp: InSegs", "", "p/net/snmp:1: '': expected the values of Tcp\n"},
    {"snmp", "net/snmp", "\n", "", "p/net/snmp:1: expected a protocol and its values\n"},
    {"proc", "12/stat", "12 (sshd) S 1 2 3 4 5 6 70 8 90 10 300 4000 5 6 7 8 2 10 11 12 0 13\n",
     "sshd-12 cpu_ticks=4300 minor_faults=70 major_faults=90 threads=2 rss_bytes=0 read_bytes=6 write_bytes=7\n"},
    {"proc", "12/stat", "12 (a) (,\n\xff)) S 1 2 3 4 5 6 70\n",
     "a) (?\?\?)-12 minor_faults=70 read_bytes=6 write_bytes=7\n"},
    {"proc", "12/stat", "12 (kworker/1:0H+kblockd) S 1 2 3 4 5 6 70\n",
     "kworker/1:0H-12 minor_faults=70 read_bytes=6 write_bytes=7\n"},
    {"proc", "12/stat", "12 (a\n) S 1 2 3 4 5 6 70 8 many\n", "", "p/12/stat:2: major_faults: 'many': expected a"},
    {"proc", "12/stat", "12 (sh S", "", "p/12/stat:1: '12 (sh S': expected ID (NAME) STATE ...\n"},
    {"proc", "12/stat", ") (", "", "p/12/stat:1: ') (': expected ID (NAME) STATE ...\n"},
    {"proc", "12/io", "rchar: 1\nread_bytes: x\n", "", "p/12/io:2: read_bytes: 'x': expected a number"},
};

TEST_F(ProgramTest, ReadsTablesOfTheKernel) {
  Write("show",
        "$Z record $1 --proc p --count 1 > polls; awk -F, 'NR == 1 { split($0, name) } NR > 1 { printf \"%s\", $2; "
        "for (i = 3; i <= NF; ++i) if ($i != \"\") printf \" %s=%s\", name[i], $i; print \"\" }' polls");
  for (const Reading &reading : kReadings) {
    std::filesystem::remove_all("p");
    for (const char *resource : {"cpu", "memory", "io"}) Write(std::string("p/pressure/") + resource, "");
    Write("p/pressure/cpu", "some total=1\n");
    Write("p/12/stat", "12 (sh) S\n");
    Write("p/12/io", "rchar: 1\nread_bytes: 6\nwrite_bytes: 7\ncancelled_write_bytes: 0\n");
    Write("p/7/io", "read_bytes: 1\n");  // of a process that has ended while it was read
    Write("p/self/stat", "1 (self) S\n");
    Write(std::string("p/") + reading.file, reading.text);
    const std::string error = *reading.error == 0 ? "" : std::string("zorstat: ") + reading.error;
    const std::string command = std::string("set ") + reading.source + "; . ./show";
    Check({reading.text, command.c_str(), reading.out, error.c_str()});
  }
  Check({"no proc file system", "for s in mem vm pressure proc sock snmp; do $Z record $s --proc none; done", "",
         "zorstat: none/meminfo: cannot open: no such file or directory\n"
         "zorstat: none/vmstat: cannot open: no such file or directory\n"
         "zorstat: none/pressure/cpu: cannot open: no such file or directory\n"
         "zorstat: none: cannot list: no such file or directory\n"
         "zorstat: none/net/sockstat: cannot open: no such file or directory\n"
         "zorstat: none/net/snmp: cannot open: no such file or directory\n"});
}

TEST_F(ProgramTest, CountsProcessesThatComeAndGo) {
  if (!kPreloads) GTEST_SKIP() << "time cannot be preloaded under the address sanitizer";
  Write("p/8/stat", "8 (a) S 1 2 3 4 5 6 70 8 90 10 300 4000 5 6 7 8 2\n");
  Write("p/9/stat", "9 (b) S 1 2 3 4 5 6 70 8 90 10 300 4000 5 6 7 8 3\n");
  Check({"one ends, and is forgotten; ticks are a counter, threads a gauge",
         "LD_PRELOAD=$F HASTE=p/9/stat $Z live proc --proc p --count 4 --clear 1 --statistics summary --expire 1 "
         "--objects cpu_ticks,threads | cut -d, -f2- | sort | uniq -c",
         "      1  cpu_ticks, a-8, 0\r\n      3  cpu_ticks, a-8, 1, 0, 0, 0.000\r\n      2  cpu_ticks, b-9, 0\r\n"
         "      4  threads, a-8, 1, 2, 2, 2.000\r\n      1  threads, b-9, 0\r\n"
         "      1  threads, b-9, 1, 3, 3, 3.000\r\n",
         ""});
}

constexpr Case kCommands[] = {
    {"words that are no options of this program; standard error passes",
     "$Z record exec --count 1 -- sh -c 'echo k,a,b:i32; echo w >&2; for w; do echo \"$w,1,-1\"; done' sh -c "
     "--help "
     "-- '[x]' live | cut -d, -f2-",
     "k,a,b:i32\n-c,1,-1\n--help,1,-1\n--,1,-1\n[x],1,-1\nlive,1,-1\n", "w\n"},
    {"columns are gauges, unless they are told to be counters",
     "echo 'command = [\"printf\", \"k,a,b\\\\nx,1,2\"]' > c.toml; for o in '' '--cumulative b'; do "
     "$Z live exec --config c.toml --count 1 --statistics summary $o; done | cut -d, -f2-",
     " a, x, 1, 1, 1, 1.000\r\n b, x, 1, 2, 2, 2.000\r\n a, x, 1, 1, 1, 1.000\r\n b, x, 0\r\n", ""},
    {"no table at first",
     "for c in true false 'kill $$' 'echo k' 'echo k,a:u8' 'printf k,a; exit 1' 'echo k,a; exit 1'; do "
     "$Z record exec --count 1 -- sh -c \"$c\"; echo $?; done; $Z record exec -- ./none",
     "1\n1\n1\n1\n1\n1\n0\n",
     "zorstat: sh: is empty (expected a header line)\nzorstat: sh: exit status: '1': expected 0\n"
     "zorstat: sh: signal 15 has ended it: expected exit status 0\n"
     "zorstat: sh:1: header: expected KEY,NAME[:TYPE],...\n"
     "zorstat: sh:1: header: type: 'u8': expected i32, u32, i64 or u64\n"
     "zorstat: sh: exit status: '1': expected 0\n"
     "zorstat: sh: exit status: '1': expected 0; poll left out\nzorstat: sh: had no rows\n"
     "zorstat: ./none: cannot be started: no such file or directory\n"},
    {"a signal ends program and command, with all that still write to standard error",
     "mkfifo up; { $Z record exec -- sh -c 'trap \"\" TERM; sleep 1000 & echo > up; sleep 1000' & read up < up; "
     "kill $!; wait $!; echo $?; } 2>&1 | cat; echo end",
     "zorstat: sh: interrupted\n1\nend\n", ""},
};

// Of its n-th run.
constexpr char kFlaky[] = R"(n=$(cat n); echo $((n + 1)) > n; [ $n = 5 ] && echo k,b || echo k,a:u32
case $n in
  1 | 2 | 4) exit 3 ;;
  6) echo x,many ;;
  7) kill -9 $$ ;;
  8) yes x,1 ;;
  9) trap '' TERM; sleep 100 ;;
  10) echo children,$(wc -w < /proc/$PPID/task/$PPID/children); rm flaky ;;
  *) echo run,$n ;;
esac
)";

TEST_F(ProgramTest, PollsCommands) {
  for (const Case &command : kCommands) Check(command);
  if (!kPreloads) GTEST_SKIP() << "time cannot be preloaded under the address sanitizer";
  Write("flaky", std::string("#!/bin/sh\n") + kFlaky);
  Check({"polls that fail are left out, with a note of each kind until one has not failed",
         "echo 0 > n; chmod +x flaky; LD_PRELOAD=$F HASTE= $Z record exec --count 12 --timeout 1 -- ./flaky | "
         "cut -d, -f2-",
         "k,a:u32\nrun,0\nrun,3\nchildren,1\n",
         "zorstat: ./flaky: exit status: '3': expected 0; poll left out\n"
         "zorstat: ./flaky: exit status: '3': expected 0; poll left out\n"
         "zorstat: ./flaky:1: header: 'k,b': expected k,a:u32; poll left out\n"
         "zorstat: ./flaky:2: a: 'many': expected a number from 0 to 4294967295; poll left out\n"
         "zorstat: ./flaky: signal 9 has ended it: expected exit status 0; poll left out\n"
         "zorstat: ./flaky: was ended: expected at most 16777216 bytes; poll left out\n"
         "zorstat: ./flaky: was ended: expected its end within 1 s; poll left out\n"
         "zorstat: ./flaky: cannot be started: no such file or directory; poll left out\n"});
}

}  // namespace
}  // namespace zorstat
