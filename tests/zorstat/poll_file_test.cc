#include "poll_file.h"

#include "program.h"

namespace zorstat {
namespace {

TEST_F(ProgramTest, KeepsEveryValueAndCutsPollsAtNewTimes) {
  Write("f.csv",
        "\xef\xbb\xbftime,k,a:i32,b:u32,c:i64,d:u64,e\r\n"
        "0,x,-2147483648,0,-9223372036854775808,0,\r\n"
        "0,y,2147483647,4294967295,9223372036854775807,18446744073709551615,1\n"
        "7,\"\"\"a\"\" b\",,,,,\n"
        "time,k,a:i32,b:u32,c:i64,d:u64,e\r\n"
        "7,it\"s,1,2,3,4,5\n"
        "7,\"plain\",1,2,3,4,5\n"
        "4294967295,z\xc3\xa9\xf4\x8f\xbf\xbf,1,,,,2");
  PollFileReader reader("f.csv");
  std::string text = PollFileHeader(reader.table());
  for (Poll poll; reader.Next(&poll); text += "--\n") AppendPollLines(reader.table(), poll, &text);
  EXPECT_EQ(text,
            "time,k,a:i32,b:u32,c:i64,d,e\n"
            "0,x,-2147483648,0,-9223372036854775808,0,\n"
            "0,y,2147483647,4294967295,9223372036854775807,18446744073709551615,1\n--\n"
            "7,\"\"\"a\"\" b\",,,,,\n"
            "7,\"it\"\"s\",1,2,3,4,5\n"
            "7,plain,1,2,3,4,5\n--\n"
            "4294967295,z\xc3\xa9\xf4\x8f\xbf\xbf,1,,,,2\n--\n");
}

}  // namespace
}  // namespace zorstat
