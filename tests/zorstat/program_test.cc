#include "program.h"

namespace zorstat {
namespace {

constexpr Case kRuns[] = {
    {"records carry the poll's time",
     "head -n 7 f.csv | $Z replay - --cumulative rx --clear 2 --statistics summary --headers --dg ports",
     "Schema-def ports-summary \"%u, %s, %s, %u, %u, %u, %f\"\r\n"
     "       Epochtime Object Instance No-Of-Samples Min Max Average\r\n"
     "ports-summary: 1700000010, rx, p1, 1, 100, 100, 100.000\r\n"
     "ports-summary: 1700000010, rx, p2, 1, 1, 1, 1.000\r\n"
     "ports-summary: 1700000010, level, p1, 2, -1, 0, -0.500\r\n"
     "ports-summary: 1700000020, rx, p1, 1, 100, 100, 100.000\r\n"
     "ports-summary: 1700000020, rx, p2, 1, 3, 3, 3.000\r\n"
     "ports-summary: 1700000020, level, p1, 1, -2, -2, -2.000\r\n",
     ""},
    {"records are the same from standard input and in a file, each header stands there once",
     "printf '[objects.rx]\\n[objects.level]\\nstatistics = \"summary\"\\n' > f.toml; o='--headers --config f.toml "
     "--dg f'; $Z replay f.csv $o > r1; $Z replay - $o < f.csv > r2; $Z replay f.csv $o -o r3; cmp r1 r2; cmp r1 "
     "r3;"
     " cut -d' ' -f1-2 r1 | grep Schema; wc -l < r1",
     "Schema-def f-summary\nSchema-def f-percentile\n9\n", ""},
    {"a bar shows on a terminal how much of a long file is read, and goes",
     "script -qec \"$Z replay long.csv -o r.txt\" /dev/null | tr '\\r ' '\\n-' | sed -n '2p;$p'",
     "[####------------------------------------]--12%\n-----------------------------------------------\n", ""},
    {"the report is of the last interval though its clear leaves nothing after it",
     "$Z replay f.csv --clear 5 --objects level --percentile 100 --interval 10 --statistics percentile "
     "--range=-10:0 --buckets 11 | grep -E '^f|^O|^N|^P.1' | cut -d, -f1-6",
     "f-summary: 1700000040, level, p1, 5, -4, 0\nf-percentile: 1700000040, level, p1, 5, -4.000, -4.000\n"
     "Objectname       : level\nNumber of samples: 5\nP[100.000] = 0.000\n",
     ""},
    {"on several cores all is the same, a bad line's error among it",
     "awk 'BEGIN { print \"time,key,a,b,c:i64\"; for (t = 0; t < 9; ++t) for (i = 0; i < 400; ++i) "
     "print 100 + 10 * t \",k\" i \",\" i * t \",\" t \",\" i - 9 * t; }' > wide.csv; "
     "(cat wide.csv; echo 190,k1,1,many,1) > late.csv; "
     "for f in f.csv wide.csv late.csv; do for o in '--headers --report' '--format jsonl --host h --clear 2' "
     "'--cumulative all --clear 3 --statistics summary,percentile,baseline --expire 1 --headers'; do "
     "for n in 1 2 3 64; do rm -f s; $Z replay $f $o --cores $n --state s > $n.txt 2>&1; echo $? >> $n.txt; "
     "cat s >> $n.txt; cmp 1.txt $n.txt; done; wc -c < 1.txt >> sizes; done; done; sort -u sizes | wc -l",
     "9\n", ""},
    {"a bad line late in the file keeps the complete polls",
     "(cat f.csv; echo 1700000050,p1,1,1; echo 1700000050,p2,many,1) > late.csv; $Z replay late.csv --objects level"
     " --statistics summary --report > r.txt; echo $?; grep -E '^late|^O' r.txt",
     "1\nlate-summary: 1700000040, level, p1, 5, -4, 0, -2.000\r\nObjectname       : level\n",
     "zorstat: late.csv:13: rx: 'many': expected a number from 0 to 18446744073709551615\n"},
    {"a refused value is counted and costs no other",
     "$Z replay big.csv --statistics summary --instances x,y; echo $?",
     "big-summary: 40, a, x, 2, 0, 18446744073709551615, 9223372036854775807.500\r\n"
     "big-summary: 40, b, x, 4, 1, 4, 2.500\r\n0\n",
     "zorstat: refused values: a 2 (not in the sum)\nzorstat: instance y: had no values\n"},
    {"a state carries on where the last run ended, and passes over what it has counted",
     "o='--cumulative all --statistics summary,baseline --clear 3 --dg r --interval 10 --format'; for f in records "
     "jsonl; do $Z replay reset.csv $o $f > whole 2>> notes; for n in 2 4 6 10; do head -n $n reset.csv | "
     "$Z replay - $o $f --state s -o $f 2>> notes; done; cmp -n $(stat -c %s $f) whole $f; wc -l < $f; rm s; done; "
     "grep passed notes | sort -u",
     "4\n3\n"
     "zorstat: polls passed over, as the state has counted them: 1\n"
     "zorstat: polls passed over, as the state has counted them: 3\n"
     "zorstat: polls passed over, as the state has counted them: 5\n",
     ""},
    {"a state that is torn, of other settings or no state is not gone on from",
     "r() { $Z replay f.csv --statistics summary --state s -o o.txt \"$@\"; }; r --clear 5; r --clear 4; head -c "
     "99 s "
     "> t; mv t s; r --clear 4; echo '{}' > s; r --clear 4; r --clear 4; wc -l < o.txt; $Z replay f.csv --state "
     "d/s; "
     "echo $?",
     "12\n1\n",
     "zorstat: s: not gone on from: expected a state of these settings, other than in /clear\n"
     "zorstat: s: not gone on from: expected a whole state of version 1\n"
     "zorstat: s: not gone on from: expected a whole state of version 1\n"
     "zorstat: polls passed over, as the state has counted them: 5\n"
     "zorstat: d/s: cannot create a file beside it: no such file or directory\n"},
    {"a refused value spoils percentiles", "$Z replay big.csv --report | grep ^Values",
     "Values not in the sum: 2\n",
     "zorstat: refused values: a 2 (not in the sum, so that percentiles do not hold)\n"},
    {"a baseline learns, and reports in its place",
     "$Z replay learn.csv --config learn.toml --report | cut -d, -f1-8 | grep -E '^(l|Obj|Ana|Max |Val)'",
     "learn-baseline: 80, a, x, 4, 25.000, 25.000, 25.000, 25.000\n"
     "learn-baseline: 120, a, x, 8, 25.000, 25.000, 25.000, 25.000\n"
     "learn-baseline: 160, a, x, 12, 25.000, 25.000, 25.000, 25.000\n"
     "learn-baseline: 190, a, x, 15, 25.000, 25.000, 25.000, 25.000\n"
     "learn-summary: 190, b, x, 19, 1, 1, 1.000\r\n"
     "Objectname       : a\nObject: a, Instance: x\nAnalyzer: Stage = Analyzing\nMax Exception Counter = 0\n"
     "Max List length = 10\nValues without a bucket: 1\nObjectname       : b\n",
     "zorstat: refused values: a 1 (without a bucket)\n"},
    {"a counter that begins anew is told by default, in both parts of its object",
     "for how in detect ignore; do $Z replay reset.csv --cumulative all --statistics summary,baseline --clear 3"
     " --resets $how; done | grep -E 'summary: 60|baseline: 70.* 5000'",
     "reset-summary: 60, rx, e, 3, 5000, 10000, 8333.333\r\n"
     "reset-baseline: 70, rx, e, 3, 5000.000, 5000.000, 5000.000, 5000.000, 10000.000, 10000.000, 10000.000, "
     "10000.000, 10000.000\r\n"
     "reset-summary: 60, rx, e, 3, 10000, 18446744073708526616, 6148914691236182205.333\r\n",
     "zorstat: counter resets: rx 1\n"},
    {"what comes no more is forgotten, which is not the same as had no values",
     "for n in 0 1; do $Z replay gone.csv --statistics summary,baseline --clear 1 --expire $n --instances a,b; "
     "done |"
     " grep ' b,'",
     "gone-summary: 10, v, b, 1, 7, 7, 7.000\r\ngone-summary: 20, v, b, 0\r\ngone-summary: 30, v, b, 0\r\n"
     "gone-summary: 40, v, b, 0\r\n"
     "gone-summary: 10, v, b, 1, 7, 7, 7.000\r\ngone-summary: 20, v, b, 0\r\n",
     ""},
    {"beside other statistics of its object a baseline is as it is alone",
     "for s in summary baseline baseline,summary; do $Z replay learn.csv --statistics $s --clear 8 -o $s; done "
     "2>notes;"
     "grep summary: baseline,summary | cmp - summary; grep baseline: baseline,summary | cmp - baseline;"
     "sed s/:.*// baseline,summary | sort | uniq -c",
     "      4 learn-baseline\n      6 learn-summary\n", ""},
    {"a baseline that has not learnt", "$Z replay learn.csv --objects a --statistics baseline --clear 30", "",
     "zorstat: a: no baseline yet, 1 instance is still learning\n"},
    {"an object's setting goes before an option, and that before the file's",
     "$Z replay types.csv --config types.toml --buckets 2 --range 0:10 | grep -E '^t.*-|^Obj.*:|^(own|top) .* [23] "
     "'",
     "types-summary: 20, i32, top, 1, 1, 1, 1.000\r\n"
     "types-summary: 20, u64, own, 2, 1, 18446744073709551614, 9223372036854775807.500\r\n"
     "types-baseline: 30, i64, top, 1, 20.000, 20.000, 20.000, 20.000, 20.000, 20.000, 20.000, 20.000, 20.000\r\n"
     "types-summary: 30, i32, top, 1, 11, 11, 11.000\r\ntypes-summary: 30, u64, own, 1, 5, 5, 5.000\r\n"
     "Objectname       : i32\ntop          2        -2147483648         2147483647          \n"
     "Objectname       : i64\nObject: i64, Instance: top\n"
     "Objectname       : u64\nown          3        1                   18446744073709551615\n",
     ""},
    {"options choose objects, counters and instances",
     "$Z replay types.csv --objects u64,i32 --clear 2 --cumulative u64 --statistics summary --instances top "
     "--resets ignore",
     "types-summary: 20, i32, top, 2, -5, -4, -4.500\r\n"
     "types-summary: 20, u64, top, 1, 18446744073709551614, 18446744073709551614, 18446744073709551614.000\r\n"
     "types-summary: 30, i32, top, 1, 7, 7, 7.000\r\ntypes-summary: 30, u64, top, 1, 6, 6, 6.000\r\n",
     ""},
    {"what is strange about a run is told at its end", "$Z replay notes.csv --range 0:99 --clear 6 | wc -l", "6\n",
     "zorstat: percentiles unknown in 1 of 3 records: rx 1 (samples outside the range)\n"
     "zorstat: columns without a value: c1, c2, c3, c4, c5, c6, c7, c8 and 1 more\n"},
    {"kernels without rows", "$Z live cpu --proc bare --count 1; $Z record disk --proc bare --count 1 | cut -c1-23",
     "time,device,reads,reads\n", "zorstat: bare/stat: had no rows\nzorstat: bare/diskstats: had no rows\n"},
    {"kernels differ in columns; an alias has a colon in its name",
     "for s in net disk cpu; do $Z record $s --proc . --count 1 -o $s.csv; tail -n +2 $s.csv | cut -d, -f2-; done;"
     "$Z replay disk.csv --objects io_ms --statistics summary | cut -d' ' -f3-",
     "lo,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16\n"
     "eth0:1,18446744073709551615,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16\n"
     "sda,1,2,3,4,5,6,7,8,9,10,11,,,,,,\nvdb,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17\n"
     "cpu,1,2,3,4,5,6,7,8,9,10\ncpu0,1,2,3,4,,,,,,\n"
     "io_ms, sda, 1, 10, 10, 10.000\r\nio_ms, vdb, 1, 10, 10, 10.000\r\n",
     ""},
    {"a row of the kernel that cannot be told apart is left out, with a note for each key",
     "mkdir odd; for i in 1 2 3 4 5 6 7 8 9; do printf 'r%d,: 1 2\n' $i; done > odd/some; mkdir -p odd/net;"
     "(printf 'e: 1 2\ne: 3 4\nf\377: 5\nf\377: 5\n'; cat odd/some) > odd/net/dev;"
     "$Z record net --proc odd --count 1 | cut -d, -f2-4; wc -l < error.txt",
     "interface,rx_bytes,rx_packets\ne,1,2\n9\n",
     "zorstat: odd/net/dev:2: row left out: interface: 'e': expected each"},
    {"a kernel's table that cannot be read",
     "mkdir p; printf 'cpu 1 2\\ncpu0 1 x\\n' > p/stat; $Z record cpu --proc p", "",
     "zorstat: p/stat:2: nice: 'x': expected a number from 0 to 18446744073709551615\n"},
    // The program opens the pipe for its first poll; so the signal comes while that is read or after it.
    {"a signal ends a live run with its records",
     "rm diskstats; mkfifo diskstats;"
     " $Z live disk --proc . --objects reads,in_flight --statistics summary --report -o r.txt > report & pid=$!;"
     " cat disks > diskstats; kill $pid; wait $pid; echo $?; cut -d, -f2- r.txt; grep -c '^sda ' report",
     "0\n reads, sda, 0\r\n in_flight, sda, 1, 9, 9, 9.000\r\n2\n", ""},
    {"a table is in units and aligned, counts what had nothing, and is what a terminal gets",
     "printf '%s\\n' time,port,rx,busy,level:i32 10,日本,0,0,-1234567 10,b,0,0,4 10,c,0,0,0 "
     "20,日本,19523,380,2 20,b,40,1,4 20,c,0,0,0 > units.csv; printf '%s\\n' 'per = \"second\"' '[objects.level]' "
     "'[objects.rx]' 'cumulative = true' 'range = [0, 100]' 'unit = \"512 bytes\"' '[objects.busy]' "
     "'cumulative = true' 'unit = \"percent\"' > units.toml; export TZ=UTC\n"
     "o='replay units.csv --config units.toml --statistics'; $Z $o distribution,summary --format table;"
     "script -qec \"$Z $o summary\" /dev/null | head -n 1; script -qec \"$Z $o summary --headers\" /dev/null | "
     "grep -c Schema",
     "units  1970-01-01 00:00:20 UTC  2 polls\n"
     "object  port  samples       min   median  97.72 %     max  average  beyond\n"
     "rx      日本        1    1 MB/s   1 MB/s   1 MB/s  1 MB/s   1 MB/s       1\n"
     "rx      b           1    2 kB/s   2 kB/s   2 kB/s  2 kB/s   2 kB/s       0\n"
     "busy    日本        1      38 %     38 %     38 %    38 %     38 %       -\n"
     "busy    b           1     0.1 %    0.1 %    0.1 %   0.1 %    0.1 %       -\n"
     "level   日本        2  -1234567  -617282   -28146       2  -617282       -\n"
     "level   b           2         4        4        4       4        4       -\n"
     "3 with nothing but zeros\n"
     "units  1970-01-01 00:00:20 UTC  2 polls\r\n"
     "1\n",
     ""},
    {"appending goes on behind the last whole line, with one header, and polls later than the last",
     "o='f.csv --objects rx --statistics summary --instances p1 --append -o'; printf 'old\ntorn' > r.txt;"
     "printf 'time,ho' > c.csv; for i in 1 2; do $Z replay $o r.txt; $Z replay $o c.csv --format csv; done;"
     "cut -d, -f1,3-6 r.txt c.csv;"
     "$Z record cpu --proc bare --count 1 --append -o p.csv; printf '4000000000,cpu\n' >> p.csv; "
     "$Z record cpu --proc . --count 1 --append -o p.csv; cut -d, -f1-4 p.csv",
     "old\nf-summary: 1700000040, p1, 5, 0, 400\nf-summary: 1700000040, p1, 5, 0, 400\n"
     "time,group,object,instance,samples\n1700000040,f,rx,p1,5\n1700000040,f,rx,p1,5\n"
     "time,cpu,user,nice\n4000000000,cpu\n4000000001,cpu,1,2\n4000000001,cpu0,1,2\n",
     "zorstat: r.txt: the last line had no end; its 4 bytes were cut off\n"
     "zorstat: c.csv: the last line had no end; its 7 bytes were cut off\n"
     "zorstat: bare/stat: had no rows\n"
     "zorstat: the clock was set back: times went on without it in 1 polls\n"},
    {"bash completes what --help lists", "bash complete.bash $Z",
     "replay live record suggest query page top\nnet disk cpu mem vm pressure proc sock snmp exec\n"
     "summary,percentile\n--cumulative --count --clear --config\n--count\n\nf.csv\nreplay\n",
     ""},
};

TEST_F(ProgramTest, WritesWhatItIsToWrite) {
  Write("f.csv", Polls(5));
  Write("long.csv", Polls(40000));
  Write("big.csv", "time,k,a,b\n10,x,18446744073709551615,1\n20,x,5,2\n30,x,0,3\n40,x,6,4\n");
  Write("learn.csv",
        "time,k,a,b\n10,x,10,1\n20,x,20,1\n30,x,30,1\n40,x,40,1\n50,x,25,1\n60,x,25,1\n70,x,25,1\n80,x,25,1\n90,x,"
        "100,1\n"
        "100,x,200,1\n110,x,300,1\n120,x,400,1\n130,x,500,1\n140,x,600,1\n150,x,700,1\n160,x,800,1\n170,x,900,1\n"
        "180,x,1000,1\n190,x,1100,1\n");
  Write("learn.toml", "[objects.a]\nstatistics = 'baseline'\nclear = 4\n[objects.b]\nstatistics = 'summary'\n");
  Write("types.csv",
        "time,k,i32:i32,u32:u32,i64:i64,u64\n10,top,-5,1,10,1\n10,own,-6,2,20,1\n"
        "20,top,-4,3,30,18446744073709551615\n20,own,-3,4,40,18446744073709551614\n"
        "30,top,7,5,50,5\n30,own,7,5,50,5\n");
  Write("types.toml",
        "buckets = 7\nstatistics = ['summary', 'distribution']\ncumulative = 'all'\nclear = '1.5h'\n"
        "interval = 5399\ninstances = ['top']\nreport = true\n[objects.u64]\nbuckets = 3\n"
        "range = [1, '18446744073709551615']\ncumulative = false\ninstances = ['own']\n"
        "[objects.i32]\nrange = [-2147483648, 2147483647]\n[objects.i64]\nstatistics = 'baseline'\nclear = 1\n");
  Write("reset.csv",
        "time,if,rx\n10,e,1000000\n20,e,1010000\n30,e,1020000\n40,e,1030000\n50,e,5000\n60,e,15000\n"
        "70,e,25000\n80,e,35000\n90,e,45000\n100,e,55000\n110,e,65000\n");
  Write("gone.csv", "time,k,v\n10,a,1\n10,b,7\n20,a,1\n30,a,1\n40,a,1\n");
  std::string notes = "time,port,rx,c1,c2,c3,c4,c5,c6,c7,c8,c9\n";
  for (const int rx : {10, 20, 30, 40, 50, 100, 10, 20, 30, 40, 50, 99, 0, 0, 0, 0, 0, 0}) {
    const std::string time = std::to_string(notes.size());
    notes += time + ",p1," + std::to_string(rx) + ",,,,,,,,,\n";
  }
  Write("notes.csv", notes);
  Write("bare/stat", "intr 99 1\n");
  Write("bare/diskstats", "");
  Write("net/dev",
        "Inter-|   Receive\n face |bytes    packets\n    lo: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"
        "eth0:1:18446744073709551615 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n");
  Write("disks", "   8       0 sda 1 2 3 4 5 6 7 8 9 10 11\n");
  Write("diskstats", Read("disks") + " 254      16 vdb 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18\n");
  Write("stat", "cpu  1 2 3 4 5 6 7 8 9 10\ncpu0 1 2 3 4\ncpufreq 7\nintr 99 1\nctxt 5\n");
  Write("complete.bash", R"(. /usr/share/bash-completion/bash_completion; . ")" COMPLETION R"("
complete_words() {
  COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*" COMPREPLY=()
  COMP_POINT=${#COMP_LINE}
  _zorstat "$1"
  echo "${COMPREPLY[*]}"
}
complete_words "$1" ''; complete_words "$1" live ''; complete_words "$1" live --statistics summary,p
complete_words "$1" live net --c; complete_words "$1" record net --c; complete_words "$1" replay --clear ''
complete_words "$1" replay --report f.
complete_words "$1" live exec -- "$1" rep)");
  for (const Case &run : kRuns) Check(run);
}

}  // namespace
}  // namespace zorstat
