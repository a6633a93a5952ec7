#include "collector.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <numeric>

#include "contest.h"

namespace bench {
namespace {

constexpr const char *kDg = "ifstats";

std::string ColumnName(std::uint32_t column) { return "counter_" + std::to_string(column); }

}  // namespace

RowOrder::RowOrder(std::uint32_t rows, Order order) : rows_(rows), order_(order), random_(rows) {
  std::iota(rows_.begin(), rows_.end(), 0u);
}

void RowOrder::Next() {
  if (order_ == Order::kShuffled) std::shuffle(rows_.begin(), rows_.end(), random_);
}

std::vector<Key> MakeKeys(std::uint32_t count) {
  std::vector<Key> keys(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    std::snprintf(keys[i].data(), keys[i].size(), "GigabitEthernet%03u/%05u", i / 1000, i % 1000);
  }
  return keys;
}

Poll::Poll(const Shape &shape, Order order)
    : columns_(shape.columns),
      order_(shape.instances, order),
      names_(MakeKeys(shape.instances)),
      keys_(names_),
      values_(std::size_t{kValueRows} * shape.columns),
      uniform_(0, shape.last) {}

void Poll::Next() {
  std::generate(values_.begin(), values_.end(), [this] { return uniform_(random_); });
  if (order_.stable()) return;
  order_.Next();
  for (std::uint32_t i = 0; i < rows(); ++i) keys_[i] = names_[order_.rows()[i]];
}

Collector::Collector(const Shape &shape, Order order) : shape_(shape), poll_(shape, order) {
  kel_ext_hash_name_init(&engine_.dgs);
  Configure();
  SendTemplate();
  BuildRow();
}

Collector::~Collector() {
  const char *name = kDg;
  zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_DELETE, &name, nullptr);
  kel_hashset_free(&engine_.dgs);
}

void Collector::Configure() {
  const char *dg = kDg;
  zor_process_attr_t attr = {&shape_.flags, &shape_.buckets, nullptr, nullptr};
  Check(zor_process_engine_set_dg(&engine_, ZOR_PROCESS_OPER_SET, &dg, &attr));
  zor_process_engine_set_poll_interval(&engine_, kDg, 10);
  for (std::uint32_t i = 0; i < shape_.columns; ++i) {
    const std::string name = ColumnName(i);
    const char *object = name.c_str();
    std::uint32_t range_type = ZOR_PROCESS_DATA_TYPE_UINT64;
    std::uint64_t range[2] = {0, shape_.last};
    zor_process_object_attr_t object_attr = {nullptr, nullptr, nullptr, &range_type, range};
    Check(zor_process_engine_set_object(&engine_, ZOR_PROCESS_OPER_SET, kDg, &object, &object_attr));
  }
}

void Collector::SendTemplate() {
  std::vector<std::string> names = {"name"};
  for (std::uint32_t i = 0; i < shape_.columns; ++i) names.push_back(ColumnName(i));
  std::vector<zor_process_column_t> columns;
  for (const std::string &name : names) columns.push_back({name.c_str(), ZOR_PROCESS_VALUE_UNSIGNED, 0, 8, 0});
  columns[0].type = ZOR_PROCESS_VALUE_STRING;
  columns[0].flags = ZOR_PROCESS_COLUMN_KEY;
  std::vector<void *> pointers;
  for (zor_process_column_t &column : columns) pointers.push_back(&column);
  const zor_process_msg_t msg = {0, ZOR_PROCESS_MSG_TEMPLATE, static_cast<std::int32_t>(pointers.size()),
                                 pointers.data()};
  Check(zor_process_engine_process_data(&engine_, kDg, &msg));
}

void Collector::BuildRow() {
  cells_.assign(shape_.columns + 1, {ZOR_PROCESS_VALUE_UNSIGNED, 8, nullptr});
  cells_[0].type = ZOR_PROCESS_VALUE_STRING;
  for (zor_process_cell_t &cell : cells_) columns_.push_back(&cell);
}

void Collector::Deliver() {
  const zor_process_msg_t row = {0, ZOR_PROCESS_MSG_ROW, 0, columns_.data()};
  for (std::uint32_t i = 0; i < poll_.rows(); ++i) {
    const std::uint64_t *values = poll_.Values(i % Poll::kValueRows);
    cells_[0].value = poll_.KeyOf(i);
    for (std::uint32_t c = 0; c < shape_.columns; ++c) cells_[c + 1].value = values + c;
    Check(zor_process_engine_process_data(&engine_, kDg, &row));
  }
  const zor_process_msg_t end = {0, ZOR_PROCESS_MSG_END_OF_POLL, 0, nullptr};
  Check(zor_process_engine_process_data(&engine_, kDg, &end));
  ++polls_;
}

void Collector::Clear() {
  Check(zor_process_engine_clear_dg_data(&engine_, kDg, ZOR_PROCESS_FLAGS_CLEARED, 0));
  polls_ = 0;
}

std::uint64_t Collector::CollectBuffers() {
  std::uint64_t length = 0;
  zor_process_data_cursor_t cursor = {kDg, nullptr, nullptr, nullptr, 0};
  for (;;) {
    std::free(zor_process_engine_get_next_object_instance_data(&engine_, &cursor, 0));
    if (!cursor.entry) return length;
    if (char *text = zor_process_engine_get_clear_buffer(&cursor)) {
      zor_process_engine_set_clear_buffer(&cursor, nullptr);
      length += std::strlen(text);
      std::free(text);
    }
  }
}

double Collector::Time(std::uint32_t polls) {
  double time = 0;
  for (std::uint32_t i = 0; i < polls; ++i) {
    Prepare();
    time += Nanoseconds([this] { Deliver(); });
  }
  return time / (polls * shape_.Samples());
}

const char *Collector::Fault() {
  if (status_ != 0) return "a call of the library failed";
  auto *dg = static_cast<zor_process_dg_t *>(kel_ext_hash_name_get(&engine_.dgs, kDg));
  std::size_t entries = 0;
  for (void *o = kel_hashset_first(dg->oper_entries); o; o = kel_hashset_next(dg->oper_entries, o)) {
    kel_hashset_t &instances = static_cast<zor_process_object_oper_entry_t *>(o)->instances;
    for (void *i = kel_hashset_first(&instances); i; i = kel_hashset_next(&instances, i), ++entries) {
      const auto &entry = *static_cast<zor_process_object_instance_entry_uint64_t *>(i);
      if (entry.summary && entry.summary->u32_no_of_samples != polls_) return "a summary missed samples";
      if (!entry.range_counters || entry.range_counters->u16_no_of_samples != polls_ % 65536) {
        return "a distribution missed samples";
      }
    }
  }
  return entries == std::size_t{shape_.instances} * shape_.columns ? nullptr : "instances are missing";
}

Floor::Floor(const Shape &shape, Order order) : columns_(shape.columns), order_(shape.instances, order) {
  const std::size_t blocks = std::size_t{shape.instances} * shape.columns;
  blocks_.reserve(blocks);
  for (std::size_t i = 0; i < blocks; ++i) {
    blocks_.emplace_back(static_cast<std::uint64_t *>(std::calloc(1, kBlockSize)));
    if (!blocks_.back()) std::abort();
  }
}

inline void Floor::Touch(std::size_t row) const {
  const Block *blocks = &blocks_[row * columns_];
  for (std::uint32_t c = 0; c < columns_; ++c) {
    for (const std::size_t word : kWords) ++blocks[c][word];
  }
}

double Floor::Time(std::uint32_t polls) {
  double time = 0;
  for (std::uint32_t i = 0; i < polls; ++i) {
    order_.Next();
    const std::vector<std::uint32_t> &rows = order_.rows();
    const bool stable = order_.stable();
    time += Nanoseconds([&] {
      for (std::size_t row = 0; row < rows.size(); ++row) Touch(stable ? row : rows[row]);
    });
  }
  polls_ += polls;
  return time / (static_cast<double>(polls) * static_cast<double>(blocks_.size()));
}

const char *Floor::Fault() const {
  for (const Block &block : blocks_) {
    for (const std::size_t word : kWords) {
      if (block[word] != polls_) return "the floor missed samples";
    }
  }
  return nullptr;
}

}  // namespace bench
