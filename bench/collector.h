// A collector: a table of rows with a key and counter columns, delivered to an engine poll by poll.
#ifndef ZOR_BENCH_COLLECTOR_H_
#define ZOR_BENCH_COLLECTOR_H_

#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "zor/process.h"

namespace bench {

struct Shape {
  std::uint32_t instances = 0;
  std::uint32_t columns = 10;
  std::uint32_t buckets = 100;
  std::uint64_t last = 999999;  // values are uniform over 0 to last, and this is the counted range
  std::uint16_t flags = ZOR_PROCESS_FLAG_PERCENTILE;

  double Samples() const { return static_cast<double>(instances) * columns; }
};

enum class Order { kStable, kShuffled };

// The order of the rows of a poll. Two of the same size and kind go through the same orders.
class RowOrder {
 public:
  RowOrder(std::uint32_t rows, Order order);
  void Next();
  const std::vector<std::uint32_t> &rows() const { return rows_; }
  bool stable() const { return order_ == Order::kStable; }

 private:
  std::vector<std::uint32_t> rows_;
  Order order_;
  std::mt19937_64 random_;
};

using Key = std::array<char, 32>;

// Keys of 24 characters, such as "GigabitEthernet012/00345".
std::vector<Key> MakeKeys(std::uint32_t count);

// The data of a poll. A collector has just read what it delivers: so keys lie in memory in the order of delivery,
// and values, those of a few rows, are in the cache.
class Poll {
 public:
  Poll(const Shape &shape, Order order);
  void Next();  // new values, and rows in a new order if they are shuffled

  std::uint32_t rows() const { return static_cast<std::uint32_t>(keys_.size()); }
  const char *KeyOf(std::uint32_t row) const { return keys_[row].data(); }

  // The values of row r are those of value row r % kValueRows.
  static constexpr std::uint32_t kValueRows = 64;
  const std::uint64_t *Values(std::uint32_t value_row) const { return &values_[std::size_t{value_row} * columns_]; }

 private:
  std::uint32_t columns_;
  RowOrder order_;
  std::vector<Key> names_;
  std::vector<Key> keys_;
  std::vector<std::uint64_t> values_;
  std::mt19937_64 random_;
  std::uniform_int_distribution<std::uint64_t> uniform_;
};

// An engine with one data group, and the row buffer through which it is fed, as a collector does.
class Collector {
 public:
  explicit Collector(const Shape &shape, Order order = Order::kStable);
  ~Collector();
  Collector(const Collector &) = delete;
  Collector &operator=(const Collector &) = delete;

  void Prepare() { poll_.Next(); }
  void Deliver();  // the rows and the end of the poll
  void Clear();
  std::uint64_t CollectBuffers();  // takes all clear buffers; their length

  // Nanoseconds per sample of so many polls, each prepared before its time is taken.
  double Time(std::uint32_t polls);

  // Null when all calls succeeded and each instance of each column has counted all polls since the last clear;
  // else what is wrong.
  const char *Fault();

  zor_process_engine_t *engine() { return &engine_; }

 private:
  void Configure();
  void SendTemplate();
  void BuildRow();
  void Check(std::uint32_t status) { status_ |= status; }

  Shape shape_;
  Poll poll_;
  std::vector<zor_process_cell_t> cells_;  // one row, filled in anew for each that is delivered
  std::vector<void *> columns_;
  zor_process_engine_t engine_ = {};
  std::uint32_t status_ = 0;
  std::uint32_t polls_ = 0;  // since the last clear
};

// What the machine itself needs: a block of 512 bytes per statistic, of which three cache lines change per sample.
class Floor {
 public:
  explicit Floor(const Shape &shape, Order order = Order::kStable);
  double Time(std::uint32_t polls);  // as Collector::Time()
  const char *Fault() const;

 private:
  static constexpr std::size_t kBlockSize = 512;
  static constexpr std::array<std::size_t, 3> kWords = {0, 24, 48};  // on lines of their own

  struct Free {
    void operator()(std::uint64_t *block) const { std::free(block); }
  };
  using Block = std::unique_ptr<std::uint64_t[], Free>;

  void Touch(std::size_t row) const;

  std::uint32_t columns_;
  RowOrder order_;
  std::vector<Block> blocks_;
  std::uint64_t polls_ = 0;
};

}  // namespace bench

#endif  // ZOR_BENCH_COLLECTOR_H_
