#include "proc_table.h"

#include "poll_file.h"
#include "temporary_directory.h"

namespace zorstat {
namespace {

using ProcTableTest = InTemporaryDirectory;

std::string Polled(const char *kind) {
  ProcTable table(kind, ".");
  Poll poll;
  table.Read(&poll);
  std::string text;
  AppendPollLines(table.table(), poll, &text);
  return text;
}

TEST_F(ProcTableTest, ReadsTheKernelsForms) {
  Write("net/dev",
        "Inter-|   Receive\n face |bytes    packets\n"
        "    lo: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"
        "eth0:1:18446744073709551615 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17\n");
  EXPECT_EQ(Polled("net"),
            "0,lo,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16\n"
            "0,eth0:1,18446744073709551615,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16\n");
  // Devices of an older and of a newer kernel.
  Write("diskstats",
        "   8       0 sda 1 2 3 4 5 6 7 8 9 10 11\n"
        " 254      16 vdb 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18\n");
  EXPECT_EQ(Polled("disk"),
            "0,sda,1,2,3,4,5,6,7,8,9,10,11,,,,,,\n"
            "0,vdb,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17\n");
  Write("stat", "cpu  1 2 3 4 5 6 7 8 9 10\ncpu0 1 2 3 4\nintr 99 1\nctxt 5\n");
  EXPECT_EQ(Polled("cpu"), "0,cpu,1,2,3,4,5,6,7,8,9,10\n0,cpu0,1,2,3,4,,,,,,\n");
}

TEST_F(ProcTableTest, NamesWhatItCannotRead) {
  EXPECT_EQ(ErrorOf([] { Polled("net"); }), "./net/dev: cannot open: no such file or directory");
  Write("stat", "cpu 1 2\ncpu0 1 x\n");
  EXPECT_EQ(ErrorOf([] { Polled("cpu"); }),
            "./stat:2: nice: 'x': expected a number from 0 to 18446744073709551615");
  EXPECT_EQ(ErrorOf([] { Polled("disks"); }), "source: 'disks': expected net, disk or cpu");
}

}  // namespace
}  // namespace zorstat
