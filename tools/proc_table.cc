#include "proc_table.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <initializer_list>
#include <set>

#include "error.h"
#include "file.h"
#include "notes.h"
#include "text.h"

namespace zorstat {
namespace {

constexpr std::string_view kSpace = " \t";
constexpr size_t kLargestFile = size_t{64} * 1024 * 1024;  // 300,000 interfaces

// Takes the next word off the line; empty at its end.
std::string_view TakeWord(std::string_view *line) {
  const size_t start = line->find_first_not_of(kSpace);
  line->remove_prefix(start == std::string_view::npos ? line->size() : start);
  const std::string_view word = line->substr(0, line->find_first_of(kSpace));
  line->remove_prefix(word.size());
  return word;
}

// "  eth0: 1 2 3"; the two heading lines have no colon. The name of an alias has a colon of its own.
bool TakeInterface(std::string_view *line, std::string_view *key) {
  const size_t colon = line->rfind(':');
  if (colon == std::string_view::npos) return false;
  std::string_view name = line->substr(0, colon);
  *key = TakeWord(&name);
  line->remove_prefix(colon + 1);
  return true;
}

// "   8       0 sda 1 2 3".
bool TakeDevice(std::string_view *line, std::string_view *key) {
  TakeWord(line);
  TakeWord(line);
  *key = TakeWord(line);
  return true;
}

// "cpu  1 2 3", "cpu0 1 2 3"; lines of other words follow.
bool TakeCpu(std::string_view *line, std::string_view *key) {
  *key = TakeWord(line);
  return key->starts_with("cpu") && key->find_first_not_of("0123456789", 3) == std::string_view::npos;
}

// Units of what a poll interval has brought.
const Unit kCount{"", 1, true};
const Unit kBytes{"bytes", 1, true};
const Unit kSectors{"bytes", 512, true};  // in this file, whatever the device's own are
const Unit kTime{"ms", 1, true};
const Unit kShare{"percent", 0.1, true};  // of the time that passed, in ms
const Unit kTicks{"percent", 100.0 / static_cast<double>(sysconf(_SC_CLK_TCK)), true};  // of a CPU

struct ColumnUnit {
  std::string_view column;
  const Unit &unit;
};

}  // namespace

struct ProcTable::Kind {
  std::string_view name;
  std::string_view file;
  std::string_view key;
  TakeKey take_key;
  std::initializer_list<const char *> columns;
  std::string_view gauge;
  const Unit &unit;
  std::initializer_list<ColumnUnit> units;  // of columns with another one

  const Unit &UnitOf(std::string_view column) const {
    const auto is_it = [&](const ColumnUnit &other) { return other.column == column; };
    const auto *const found = std::find_if(units.begin(), units.end(), is_it);
    return found == units.end() ? unit : found->unit;
  }
};

const ProcTable::Kind ProcTable::kKinds[] = {
    {"net",
     "net/dev",
     "interface",
     TakeInterface,
     {"rx_bytes", "rx_packets", "rx_errs", "rx_drop", "rx_fifo", "rx_frame", "rx_compressed", "rx_multicast",
      "tx_bytes", "tx_packets", "tx_errs", "tx_drop", "tx_fifo", "tx_colls", "tx_carrier", "tx_compressed"},
     "",
     kCount,
     {{"rx_bytes", kBytes}, {"tx_bytes", kBytes}}},
    {"disk",
     "diskstats",
     "device",
     TakeDevice,
     {"reads", "reads_merged", "sectors_read", "read_ms", "writes", "writes_merged", "sectors_written", "write_ms",
      "in_flight", "io_ms", "weighted_io_ms", "discards", "discards_merged", "sectors_discarded", "discard_ms",
      "flushes", "flush_ms"},
     "in_flight",
     kCount,
     {{"sectors_read", kSectors},
      {"sectors_written", kSectors},
      {"sectors_discarded", kSectors},
      {"read_ms", kTime},
      {"write_ms", kTime},
      {"discard_ms", kTime},
      {"flush_ms", kTime},
      {"weighted_io_ms", kTime},
      {"io_ms", kShare}}},
    {"cpu",
     "stat",
     "cpu",
     TakeCpu,
     {"user", "nice", "system", "idle", "iowait", "irq", "softirq", "steal", "guest", "guest_nice"},
     "",
     kTicks,
     {}},
};

ProcTable::ProcTable(std::string_view kind, const std::string &root) {
  for (const Kind &candidate : kKinds) {
    if (candidate.name != kind) continue;
    path_ = fmt::format("{}/{}", root, candidate.file);
    take_key_ = candidate.take_key;
    table_.key = candidate.key;
    for (const char *column : candidate.columns) {
      table_.columns.push_back(
          {column, ZOR_PROCESS_DATA_TYPE_UINT64, column != candidate.gauge, candidate.UnitOf(column)});
    }
  }
  if (take_key_ == nullptr) throw SettingsError(Refusal("source", kind, "net, disk or cpu"));
}

void ProcTable::Read(Poll *poll) {
  ReadFile(path_, kLargestFile, &text_);
  Parse(text_, poll);
}

void ProcTable::Parse(std::string_view text, Poll *poll) {
  poll->Clear();
  std::set<std::string_view> keys;
  for (uint64_t number = 1; !text.empty(); ++number) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    std::string_view key;
    if (!take_key_(&line, &key)) continue;
    if (key.empty()) throw Error(fmt::format("{}:{}: expected a {} and its counters", path_, number, table_.key));
    if (!IsName(key)) {
      LeaveOut(number, key, kName);
      continue;
    }
    if (!keys.insert(key).second) {
      LeaveOut(number, key, "each key once in a poll");
      continue;
    }
    Value *values = poll->AddRow(key, table_.columns.size());
    // Older kernels have fewer columns, newer ones may have more.
    for (size_t i = 0; i < table_.columns.size(); ++i) {
      const std::string_view word = TakeWord(&line);
      if (word.empty()) break;
      const auto number_read = ParseNumber<uint64_t>(word);
      if (!number_read) {
        throw Error(Refusal(fmt::format("{}:{}: {}", path_, number, table_.columns[i].name), Printable(word),
                            TypeValues(table_.columns[i].type)));
      }
      values[i] = *number_read;
    }
  }
}

// Others may choose keys as they like, and as many.
void ProcTable::LeaveOut(std::uint64_t line, std::string_view key, std::string_view reason) {
  if (left_out_.size() == kNamed || !left_out_.emplace(key).second) return;
  Complain(Refusal(fmt::format("{}:{}: row left out: {}", path_, line, table_.key), Printable(key), reason));
  if (left_out_.size() == kNamed) Complain(fmt::format("{}: of more such rows there is no note", path_));
}

}  // namespace zorstat
