#include "poll_file.h"

#include <cstring>

#include "temporary_directory.h"

namespace zorstat {
namespace {

using PollFileTest = InTemporaryDirectory;

// Reads a file to its end, or to its bad line, and writes down again what came of it.
std::string Rewritten(const std::string &path, std::string *error = nullptr) {
  std::string text;
  try {
    PollFileReader reader(path);
    text = PollFileHeader(reader.table());
    Poll poll;
    while (reader.Next(&poll)) {
      AppendPollLines(reader.table(), poll, &text);
      text += "--\n";
    }
  } catch (const std::exception &thrown) {
    if (error != nullptr) *error = thrown.what();
  }
  return text;
}

TEST_F(PollFileTest, KeepsEveryValueAndCutsPollsAtNewTimes) {
  Write("f.csv",
        "\xef\xbb\xbftime,k,a:i32,b:u32,c:i64,d:u64,e\r\n"
        "0,x,-2147483648,0,-9223372036854775808,0,\r\n"
        "0,y,2147483647,4294967295,9223372036854775807,18446744073709551615,1\n"
        "7,\"\"\"a\"\" b\",,,,,\n"
        "time,k,a:i32,b:u32,c:i64,d:u64,e\r\n"
        "7,it\"s,1,2,3,4,5\n"
        "7,\"plain\",1,2,3,4,5\n"
        "4294967295,z\xc3\xa9,1,,,,2");
  EXPECT_EQ(Rewritten("f.csv"),
            "time,k,a:i32,b:u32,c:i64,d,e\n"
            "0,x,-2147483648,0,-9223372036854775808,0,\n"
            "0,y,2147483647,4294967295,9223372036854775807,18446744073709551615,1\n--\n"
            "7,\"\"\"a\"\" b\",,,,,\n"
            "7,\"it\"\"s\",1,2,3,4,5\n"
            "7,plain,1,2,3,4,5\n--\n"
            "4294967295,z\xc3\xa9,1,,,,2\n--\n");
}

TEST_F(PollFileTest, ReadsLinesAcrossItsBuffer) {
  // Rows of changing length, so that the end of the buffer falls on different places; one key is longer than it.
  std::string text = "time,k,v\n1," + std::string(700'000, 'k') + ",5\n";
  for (int i = 0; i < 100'000; ++i) text += "2," + std::string(1 + static_cast<size_t>(i % 13), 'x') + ",1\n";
  Write("f.csv", text);
  PollFileReader reader("f.csv");
  Poll poll;
  ASSERT_TRUE(reader.Next(&poll));
  EXPECT_EQ(std::strlen(poll.key(0)), 700'000u);
  ASSERT_TRUE(reader.Next(&poll));
  ASSERT_EQ(poll.rows(), 100'000u);
  for (size_t i = 0; i < poll.rows(); ++i) {
    ASSERT_EQ(std::strlen(poll.key(i)), 1 + i % 13);
    ASSERT_EQ(poll.values(i)[0].bits, 1u);
  }
  EXPECT_EQ(poll.first_line, 3u);
  EXPECT_FALSE(reader.Next(&poll));
  EXPECT_FALSE(reader.Next(&poll));
}

struct BadFile {
  const char *text;
  const char *error;  // after the file's name
  int polls_before = 0;
};

TEST_F(PollFileTest, NamesLineValueAndExpectation) {
  const BadFile bad_files[] = {
      {"", ": is empty"},
      {"tim,k,a\n", ":1: header: 'tim': expected 'time'"},
      {"time,k\n", ":1: header: expected time,KEY,NAME[:TYPE]"},
      {"time,k,a:u16\n", ":1: header: type: 'u16': expected i32, u32, i64 or u64"},
      {"time,k,a,b,a:i32\n", ":1: header: 'a': expected each column name only once"},
      {"time,k,k\n", ":1: header: 'k': expected each column name only once"},
      {"time,k,a,\n", ":1: header: field 4 has no name"},
      {"time,k,a\tb\n", ":1: header: 'a?b': expected a name in UTF-8 without commas or control characters"},
      {"time,k,a\n1,x,1\n2,x\n", ":3: 2 fields (expected 3: time, k and 1 value)", 1},
      {"time,k,a\n1,x,1\n2,x,1,2\n", ":3: 4 fields (expected 3", 1},
      {"time,k,a\n1,x,1\n2\n", ":3: 1 field (expected 3", 1},
      {"time,k,a\n1,x,1\n\n", ":3: time: '': expected whole seconds"},
      {"time,k,a\n1,x,1\n1.5,x,1\n", ":3: time: '1.5': expected whole seconds"},
      {"time,k,a\n-1,x,1\n", ":2: time: '-1': expected whole seconds"},
      {"time,k,a\n5,x,1\n4,x,1\n", ":3: time 4 goes back (expected 5 or later)", 1},
      {"time,k,a\n1,,1\n", ":2: k: is empty"},
      {"time,k,a\n1,\"x,1\n", ":2: k: closing quote is missing"},
      {"time,k,a\n1,\"x\"y,1\n", ":2: k: text behind the closing quote"},
      {"time,k,\"a\"\n", ":1: header: '\"a\"': expected a name without quotes"},
      {"time,k,a\n1,a\x7f,1\n", ":2: k: 'a?': expected a name in UTF-8 without"},
      {"time,k,a\n1,\"a,b\",1\n", ":2: k: 'a,b': expected a name in UTF-8 without commas"},
      {"time,k,a\n1,\xe9t\xc3\xa9\xed\xa0\x80\xe2\x82,1\n",
       ":2: k: '?t\xc3\xa9"
       R"(?????': expected)"},
      {"time,k,a\n1,\xc0\xaf,1\n",
       ":2: k: '"
       R"(??': expected)"},
      {"time,k,a\n1,\xf4\x90\x80\x80,1\n",
       ":2: k: '"
       R"(????': expected)"},
      {"time,k,a\n1700000000000,x,1\n", ":2: time: '1700000000000': expected whole seconds since 1970, at most"},
      {"time,k,a\n1,x,1\n1,y,1\ntime,k,b\n", ":4: header: 'time,k,b': expected that of the first line, or a row",
       1},
      {"time,k,a\n1,x,+1\n", ":2: a: '+1': expected a number from 0 to 18446744073709551615"},
      {"time,k,a\n1,x,18446744073709551616\n", ":2: a: '18446744073709551616': expected a number from 0"},
      {"time,k,a:u32\n1,x,-1\n", ":2: a: '-1': expected a number from 0 to 4294967295"},
      {"time,k,a:i32\n1,x,2147483648\n", ":2: a: '2147483648': expected a number from -2147483648 to 2147483647"},
      {"time,k,a:i64,b\n1,x,1,1\n2,x,1,1\n2,y,1e3,1\n", ":4: a: '1e3': expected a number", 1},
  };
  for (const BadFile &bad : bad_files) {
    SCOPED_TRACE(bad.text);
    Write("f.csv", bad.text);
    std::string error;
    const std::string text = Rewritten("f.csv", &error);
    EXPECT_EQ(error.rfind(std::string("f.csv") + bad.error, 0), 0u) << error;
    int polls = 0;
    for (size_t at = text.find("--\n"); at != std::string::npos; at = text.find("--\n", at + 1)) ++polls;
    EXPECT_EQ(polls, bad.polls_before);
  }
}

}  // namespace
}  // namespace zorstat
