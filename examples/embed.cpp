// A collector in C++17: polls the interfaces of /proc/net/dev and prints the records of every third poll.
//
//   c++ -std=c++17 embed.cpp $(pkg-config --cflags --libs zor_process) -o embed
//   ./embed [POLLS [SECONDS]]                 6 polls, one every 10 seconds
//
// or with CMake: find_package(zor_process), target_link_libraries(embed PRIVATE zor::process).
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "zor/process.hpp"

using zor::process::Column;
using zor::process::Engine;
using zor::process::Group;
using zor::process::Interval;
using zor::process::Statistics;
using zor::process::Status;
using zor::process::Template;
using zor::process::Values;

namespace {

// The columns of the table that is polled; two of those of /proc/net/dev.
struct NetTable {
  Template columns{"interface"};
  Column<std::uint64_t> received = columns.column<std::uint64_t>("rx_bytes");
  Column<std::uint64_t> sent = columns.column<std::uint64_t>("tx_bytes");
};

Status Configure(Group &group, const NetTable &table) {
  for (const char *object : {"rx_bytes", "tx_bytes"}) {
    Status added = group.object(object, {Statistics::summary | Statistics::percentile, Values::counter});
    if (!added) return added;
  }
  return group.start(table.columns);
}

// A line is "  NAME: rx_bytes, seven more, tx_bytes, ..."; two lines of headings come first.
Status PollOnce(Group &group, const NetTable &table) {
  auto poll = group.poll();
  if (!poll) return poll.error();
  std::ifstream file("/proc/net/dev");
  std::string line;
  while (std::getline(file, line)) {
    const auto colon = line.find(':');
    if (colon == std::string::npos) continue;
    std::istringstream name(line.substr(0, colon));
    std::istringstream values(line.substr(colon + 1));
    std::string interface;
    std::uint64_t received = 0;
    std::uint64_t sent = 0;
    std::uint64_t other = 0;
    name >> interface;
    values >> received;
    for (int i = 0; i < 7; ++i) values >> other;
    if (values >> sent) poll->row(interface, {table.received(received), table.sent(sent)});
  }
  return poll->end();  // the first failure of the poll, of its rows too
}

int Run(int polls, double seconds) {
  Engine engine;
  const NetTable table;
  auto group = engine.group("net", {std::chrono::seconds(10), Interval::polls(3)});
  Status status = group ? Configure(*group, table) : Status(group.error());
  for (int i = 0; status && i < polls; ++i) {
    if (i > 0) std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    status = PollOnce(*group, table);
    std::cout << group->take_records() << std::flush;
  }
  if (status) return std::cout ? EXIT_SUCCESS : EXIT_FAILURE;
  std::cerr << "embed: " << status.error().message << '\n';
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char **argv) {
  return Run(argc > 1 ? std::atoi(argv[1]) : 6, argc > 2 ? std::atof(argv[2]) : 10);
}
