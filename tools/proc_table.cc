#include "proc_table.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <limits>
#include <set>
#include <system_error>

#include "error.h"
#include "file.h"
#include "notes.h"
#include "text.h"

namespace zorstat {
namespace {

constexpr std::string_view kSpace = " \t";
constexpr std::string_view kPairSpace = " \t:=";  // between names and values, and between pairs of these
constexpr size_t kLargestBootId = 100;
constexpr size_t kLargestFile = size_t{64} * 1024 * 1024;  // 300,000 interfaces

// Takes the next word off the text; empty at its end.
std::string_view TakeWord(std::string_view *text, std::string_view space = kSpace) {
  const size_t start = text->find_first_not_of(space);
  text->remove_prefix(start == std::string_view::npos ? text->size() : start);
  const std::string_view word = text->substr(0, text->find_first_of(space));
  text->remove_prefix(word.size());
  return word;
}

// Of a line that is a row, these find the key and leave the values; false for others.

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

// "TCP: inuse 1 mem 2", "some avg10=0.00 total=1".
bool TakeFirst(std::string_view *line, std::string_view *key) {
  *key = TakeWord(line, kPairSpace);
  return true;
}

// How values are named.
enum class Names {
  kColumns,  // not at all: they come in the order of the columns
  kPairs,    // each by the word before it
  kHeading   // in the line before theirs, which begins with the same key
};

// Behind the name of a process in its file stat.
constexpr std::string_view kStatNames =
    "state ppid pgrp session tty_nr tpgid flags minor_faults cminflt major_faults cmajflt cpu_ticks cpu_ticks "
    "cutime cstime priority nice threads itrealvalue starttime vsize rss_bytes";

const auto kPageSize = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
const double kTick = 100.0 / static_cast<double>(sysconf(_SC_CLK_TCK));  // per cent of a CPU

}  // namespace

struct ProcTable::Line {
  const std::string &path;
  std::uint64_t number;
  std::string_view rest;  // not yet taken

  std::string place() const { return fmt::format("{}:{}", path, number); }

  // The next line of the text; false at its end.
  bool TakeFrom(std::string_view *text) {
    if (text->empty()) return false;
    ++number;
    rest = text->substr(0, text->find('\n'));
    text->remove_prefix(std::min(rest.size() + 1, text->size()));
    return true;
  }
};

// What a value is: a counter if its unit is of what a poll interval has brought, else a gauge.
struct ProcTable::Quantity {
  Unit unit;
  std::uint64_t scale = 1;          // of samples to the file's values
  std::string_view file_unit = {};  // that stands behind them
};

struct ProcTable::Kind {
  using TakeKey = bool (*)(std::string_view *line, std::string_view *key);
  struct Columns {
    const Quantity &quantity;
    std::string_view names;
  };

  std::string_view name;
  std::initializer_list<const char *> files;  // empty: those of each process
  std::string_view key;
  TakeKey take_key;      // null: a file is one row, with a pair in each line,
  std::string_view row;  // and this key
  Names names;
  std::string_view columns;
  const Quantity &quantity;
  std::initializer_list<Columns> others;  // columns that are another one

  const Quantity &QuantityOf(std::string_view column) const {
    for (const Columns &other : others) {
      for (std::string_view rest = other.names; !rest.empty();) {
        if (TakeWord(&rest) == column) return other.quantity;
      }
    }
    return quantity;
  }
};

namespace {

using Quantity = ProcTable::Quantity;

const Quantity kCount{{"", 1, true}};
const Quantity kBytes{{"bytes", 1, true}};
const Quantity kKilobytes{{"bytes", 1024, true}};
const Quantity kPages{{"bytes", static_cast<double>(kPageSize), true}};
const Quantity kSectors{{"bytes", 512, true}};  // in this file, whatever the device's own are
const Quantity kTime{{"ms", 1, true}};
const Quantity kShare{{"percent", 0.1, true}};            // of the time that passed, in ms
const Quantity kPreciseShare{{"percent", 0.0001, true}};  // in us
const Quantity kTicks{{"percent", kTick, true}};
const Quantity kNumberNow{{}};
const Quantity kBytesNow{{"bytes"}};
const Quantity kPagesNow{{"bytes", static_cast<double>(kPageSize)}};
const Quantity kPagesAsBytesNow{{"bytes"}, kPageSize};
const Quantity kKilobytesAsBytesNow{{"bytes"}, 1024, "kB"};

// The same columns on every machine, whatever its kernel has: recordings, histories and settings fit together.
const ProcTable::Kind kKinds[] = {
    {"net",
     {"net/dev"},
     "interface",
     TakeInterface,
     "",
     Names::kColumns,
     "rx_bytes rx_packets rx_errs rx_drop rx_fifo rx_frame rx_compressed rx_multicast "
     "tx_bytes tx_packets tx_errs tx_drop tx_fifo tx_colls tx_carrier tx_compressed",
     kCount,
     {{kBytes, "rx_bytes tx_bytes"}}},
    {"disk",
     {"diskstats"},
     "device",
     TakeDevice,
     "",
     Names::kColumns,
     "reads reads_merged sectors_read read_ms writes writes_merged sectors_written write_ms in_flight io_ms "
     "weighted_io_ms discards discards_merged sectors_discarded discard_ms flushes flush_ms",
     kCount,
     {{kSectors, "sectors_read sectors_written sectors_discarded"},
      {kTime, "read_ms write_ms discard_ms flush_ms weighted_io_ms"},
      {kShare, "io_ms"},
      {kNumberNow, "in_flight"}}},
    {"cpu",
     {"stat"},
     "cpu",
     TakeCpu,
     "",
     Names::kColumns,
     "user nice system idle iowait irq softirq steal guest guest_nice",
     kTicks,
     {}},
    {"mem",
     {"meminfo"},
     "system",
     nullptr,
     "memory",
     Names::kPairs,
     "MemTotal MemFree MemAvailable Buffers Cached SwapCached Active Inactive Active(anon) Inactive(anon) "
     "Active(file) Inactive(file) Unevictable Mlocked SwapTotal SwapFree Zswap Zswapped Dirty Writeback AnonPages "
     "Mapped Shmem KReclaimable Slab SReclaimable SUnreclaim KernelStack PageTables CommitLimit Committed_AS "
     "VmallocUsed Percpu AnonHugePages ShmemHugePages FileHugePages HugePages_Total HugePages_Free HugePages_Rsvd "
     "HugePages_Surp Hugetlb",
     kKilobytesAsBytesNow,
     {{kNumberNow, "HugePages_Total HugePages_Free HugePages_Rsvd HugePages_Surp"}}},
    {"vm",
     {"vmstat"},
     "system",
     nullptr,
     "vm",
     Names::kPairs,
     "pgpgin pgpgout pswpin pswpout pgfault pgmajfault pgfree pgactivate pgdeactivate pgrefill pgscan_kswapd "
     "pgscan_direct pgsteal_kswapd pgsteal_direct pageoutrun slabs_scanned allocstall_normal allocstall_movable "
     "workingset_refault_anon workingset_refault_file workingset_activate_anon workingset_activate_file "
     "compact_stall compact_fail compact_success pgmigrate_success pgmigrate_fail numa_hit numa_miss numa_foreign "
     "numa_local numa_other numa_hint_faults numa_pages_migrated thp_fault_alloc thp_fault_fallback "
     "thp_collapse_alloc thp_split_page zswpin zswpout oom_kill nr_dirtied nr_written nr_dirty nr_writeback "
     "nr_dirty_threshold nr_dirty_background_threshold",
     kCount,
     {{kKilobytes, "pgpgin pgpgout"},
      {kPages, "pswpin pswpout nr_dirtied nr_written"},
      {kPagesNow, "nr_dirty nr_writeback nr_dirty_threshold nr_dirty_background_threshold"}}},
    {"pressure",
     {"pressure/cpu", "pressure/memory", "pressure/io"},
     "resource",
     TakeFirst,
     "",
     Names::kPairs,
     "total",
     kPreciseShare,
     {}},
    {"proc",
     {},
     "process",
     nullptr,
     "",
     Names::kPairs,
     "cpu_ticks minor_faults major_faults threads rss_bytes read_bytes write_bytes",
     kCount,
     {{kTicks, "cpu_ticks"},
      {kNumberNow, "threads"},
      {kPagesAsBytesNow, "rss_bytes"},
      {kBytes, "read_bytes write_bytes"}}},
    {"sock",
     {"net/sockstat"},
     "protocol",
     TakeFirst,
     "",
     Names::kPairs,
     "used inuse orphan tw alloc mem memory",
     kNumberNow,
     {{kPagesNow, "mem"}, {kBytesNow, "memory"}}},
    {"snmp",
     {"net/snmp"},
     "protocol",
     TakeFirst,
     "",
     Names::kHeading,
     "InReceives InHdrErrors InAddrErrors ForwDatagrams InUnknownProtos InDiscards InDelivers OutRequests "
     "OutDiscards OutNoRoutes ReasmReqds ReasmOKs ReasmFails FragOKs FragFails FragCreates InMsgs InErrors "
     "InCsumErrors InDestUnreachs OutMsgs OutErrors OutDestUnreachs ActiveOpens PassiveOpens AttemptFails "
     "EstabResets CurrEstab InSegs OutSegs RetransSegs InErrs OutRsts InDatagrams NoPorts OutDatagrams "
     "RcvbufErrors SndbufErrors MemErrors",
     kCount,
     {{kNumberNow, "CurrEstab"}}},
};

}  // namespace

ProcTable::ProcTable(std::string_view source, const std::string &root, const char *one_more) : root_(root) {
  std::vector<std::string> known;
  for (const Kind &kind : kKinds) {
    known.emplace_back(kind.name);
    if (kind.name == source) kind_ = &kind;
  }
  if (one_more != nullptr) known.emplace_back(one_more);
  if (kind_ == nullptr) throw SettingsError(Refusal("source", source, Alternatives(known)));
  for (const char *file : kind_->files) paths_.push_back(fmt::format("{}/{}", root, file));
  table_.key = kind_->key;
  std::string_view names = kind_->columns;
  for (std::string_view column = TakeWord(&names); !column.empty(); column = TakeWord(&names)) {
    const Quantity &quantity = kind_->QuantityOf(column);
    quantities_.push_back(&quantity);
    table_.columns.push_back(
        {std::string(column), ZOR_PROCESS_DATA_TYPE_UINT64, quantity.unit.per_second, quantity.unit});
  }
  row_.resize(table_.columns.size());
}

std::string ProcTable::Boot() const {
  std::string id;
  try {
    ReadFile(root_ + "/sys/kernel/random/boot_id", kLargestBootId, &id);
  } catch (const Error &) {
    return "";
  }
  return id;
}

bool ProcTable::Read(Poll *poll) {
  poll->Clear();
  if (kind_->files.size() == 0) {
    ReadProcesses(poll);
    return true;
  }
  for (const std::string &path : paths_) {
    ReadFile(path, kLargestFile, &text_);
    Parse(path, text_, poll);
  }
  return true;
}

void ProcTable::ReadProcesses(Poll *poll) {
  std::error_code error;
  for (std::filesystem::directory_iterator entry(root_, error), end; entry != end; entry.increment(error)) {
    const std::string id = entry->path().filename();
    if (id.find_first_not_of("0123456789") != std::string::npos) continue;
    const std::string &directory = entry->path().native();
    if (!ReadFileIfThere(directory + "/stat", kLargestFile, &text_)) continue;  // it has ended meanwhile
    if (!ReadFileIfThere(directory + "/io", kLargestFile, &io_)) io_.clear();
    ParseProcess(directory, text_, io_, poll);
  }
  if (error) throw Error(fmt::format("{}: cannot list: {}", root_, ErrnoText(error.value())));
}

void ProcTable::ParseProcess(const std::string &directory, std::string_view stat, std::string_view io, Poll *poll) {
  // What the name has of parentheses and line ends is before the last one.
  const std::string path = directory + "/stat";
  const size_t start = stat.find('(');
  const size_t end = stat.rfind(')');
  if (start == std::string_view::npos || end == std::string_view::npos || end < start) {
    throw Error(Refusal(path + ":1", Printable(stat), "ID (NAME) STATE ..."));
  }
  const auto line_ends = std::count(stat.begin(), stat.begin() + static_cast<std::ptrdiff_t>(end), '\n');
  std::string process = Printable(stat.substr(start + 1, end - start - 1));
  // To the name of a worker the kernel adds what it does at the time.
  if (process.starts_with("kworker/"))
    process.resize(std::min(process.find_first_of("+-", process.find(':')), process.size()));
  std::replace(process.begin(), process.end(), ',', '?');
  stat.remove_prefix(end + 1);
  Line line{path, static_cast<std::uint64_t>(line_ends), {}};
  line.TakeFrom(&stat);
  TakeInOrder(kStatNames, &line);
  TakePairLines(directory + "/io", io);
  AddRow(fmt::format("{}-{}", process, std::string_view(directory).substr(directory.rfind('/') + 1)), poll);
}

void ProcTable::Parse(const std::string &path, std::string_view text, Poll *poll) {
  if (kind_->take_key == nullptr) {
    TakePairLines(path, text);
    AddRow(kind_->row, poll);
    return;
  }
  const std::string prefix = paths_.size() == 1 ? "" : path.substr(path.rfind('/') + 1) + "-";
  std::set<std::string_view> keys;
  for (Line line{path, 0, {}}; line.TakeFrom(&text);) {
    std::string_view key;
    if (!kind_->take_key(&line.rest, &key)) continue;
    if (key.empty()) throw Error(fmt::format("{}: expected a {} and its values", line.place(), table_.key));
    std::string_view names = kind_->columns;
    if (kind_->names == Names::kHeading) {
      names = line.rest;
      const std::string_view again = line.TakeFrom(&text) ? TakeWord(&line.rest, kPairSpace) : "";
      if (again != key) {
        throw Error(Refusal(line.place(), Printable(again), fmt::format("the values of {}", Printable(key))));
      }
    }
    if (!IsName(key)) {
      LeaveOut(line, key, kName);
    } else if (!keys.insert(key).second) {
      LeaveOut(line, key, "each key once in a poll");
    } else {
      if (kind_->names == Names::kPairs)
        TakePairs(&line);
      else
        TakeInOrder(names, &line);
      AddRow(prefix + std::string(key), poll);
    }
  }
}

// Older kernels have fewer values, newer ones may have more.
void ProcTable::TakeInOrder(std::string_view names, Line *line) {
  for (std::string_view label = TakeWord(&names); !label.empty(); label = TakeWord(&names)) {
    const std::string_view word = TakeWord(&line->rest);
    if (word.empty()) return;
    if (const auto column = Find(label)) AddValue(*column, word, line);
  }
}

void ProcTable::TakePairs(Line *line) {
  while (true) {
    const std::string_view label = TakeWord(&line->rest, kPairSpace);
    if (label.empty()) return;
    const std::string_view word = TakeWord(&line->rest, kPairSpace);
    if (const auto column = Find(label)) AddValue(*column, word, line);
  }
}

void ProcTable::TakePairLines(const std::string &path, std::string_view text) {
  for (Line line{path, 0, {}}; line.TakeFrom(&text);) TakePairs(&line);
}

// In most files names are in the order of the columns.
std::optional<std::size_t> ProcTable::Find(std::string_view name) {
  for (std::size_t i = 0; i < table_.columns.size(); ++i) {
    found_ = (found_ + 1) % table_.columns.size();
    if (table_.columns[found_].name == name) return found_;
  }
  return std::nullopt;
}

// To what the column has of the row already: CPU time is in two parts.
void ProcTable::AddValue(std::size_t column, std::string_view word, Line *line) {
  const auto &[unit, scale, file_unit] = *quantities_[column];
  const auto number = ParseNumber<std::uint64_t>(word);
  const auto place = [&] { return fmt::format("{}: {}", line->place(), table_.columns[column].name); };
  if (!number || *number > std::numeric_limits<std::uint64_t>::max() / scale) {
    throw Error(Refusal(place(), Printable(word), TypeValues(ZOR_PROCESS_DATA_TYPE_UINT64)));
  }
  if (!file_unit.empty()) {
    const std::string_view given = TakeWord(&line->rest);
    if (given != file_unit) throw Error(Refusal(place(), Printable(given), fmt::format("the unit {}", file_unit)));
  }
  Value &value = row_[column];
  value = (value ? std::get<std::uint64_t>(*value) : 0) + *number * scale;
}

// Unless nothing is known of it.
void ProcTable::AddRow(std::string_view key, Poll *poll) {
  const auto has_value = [](const Value &value) { return value.has_value(); };
  if (std::none_of(row_.begin(), row_.end(), has_value)) return;
  std::copy(row_.begin(), row_.end(), poll->AddRow(key, row_.size()));
  std::fill(row_.begin(), row_.end(), std::nullopt);
}

// Others may choose keys as they like, and as many.
void ProcTable::LeaveOut(const Line &line, std::string_view key, std::string_view reason) {
  if (left_out_.size() == kNamed || !left_out_.emplace(key).second) return;
  Complain(Refusal(fmt::format("{}: row left out: {}", line.place(), table_.key), Printable(key), reason));
  if (left_out_.size() == kNamed) Complain(fmt::format("{}: of more such rows there is no note", line.path));
}

}  // namespace zorstat
