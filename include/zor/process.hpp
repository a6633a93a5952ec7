/** @file
 * @brief The process engine for C++17 and later: owning handles, results as values, and messages that cannot be
 * malformed, for programs with or without exceptions.
 *
 *     using namespace zor::process;
 *     Engine engine;
 *     auto net = engine.group("net", {std::chrono::seconds(10), Interval::polls(60)});
 *     Status status = net->object("rx_bytes", {Statistics::summary | Statistics::percentile, Values::counter});
 *     Template table("interface");
 *     const auto rx = table.column<std::uint64_t>("rx_bytes");
 *     if (status) status = net->start(table);
 *
 * and then, every 10 seconds:
 *
 *     Poll poll = *net->poll();
 *     poll.row("eth0", {rx(bytes)});
 *     status = poll.end();  // the first failure of the poll, of its rows too
 *     std::cout << net->take_records();
 *
 * What comes of it is text, the record lines; or data, see Group::readings() and Group::take_readings(). Counters
 * may be reset or wrap (Values::counter), instances come and go (GroupSettings::expire).
 *
 * A header over the C interface of zor/engine.h. Every call that can fail returns a Result. What the C interface
 * would report late, or never, is refused when it is asked for; no failure latches a group; records do not wait in
 * clear buffers. A group is not to be changed by C calls as well: it does not see them. One thread at a time, as
 * for all calls of the library.
 *
 * Results are in zor/process/result.hpp, settings in settings.hpp, templates and cells in table.hpp, readings
 * in readings.hpp, walks in walk.hpp, reports in report.hpp; engines, groups and polls in group.hpp, on top of all.
 * What is in namespace detail may change. */
#ifndef ZOR_PROCESS_HPP_
#define ZOR_PROCESS_HPP_

#include "zor/process.h"
#include "zor/process/group.hpp"

#endif /* ZOR_PROCESS_HPP_ */
