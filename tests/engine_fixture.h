// An engine with one DG, fed as a collector feeds it.
#ifndef ZOR_TESTS_ENGINE_FIXTURE_H_
#define ZOR_TESTS_ENGINE_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "api.h"
#include "zor/datalist.h"

using ValueTypes = ::testing::Types<std::int32_t, std::uint32_t, std::int64_t, std::uint64_t>;

// What a function writes to standard output.
template <class Function>
std::string Printed(Function function) {
  ::testing::internal::CaptureStdout();
  function();
  return ::testing::internal::GetCapturedStdout();
}

// Record lines without their second, which is the clock's.
inline std::string WithoutTime(const std::string &records) {
  std::string out;
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (records.compare(i, 2, ": ") == 0) i = records.find(',', i);
    out += records.at(i);
  }
  return out;
}

// A value of any of the four types, in a cell; its width is that of the column.
struct Value {
  std::uint64_t bits;
  template <class V>
  Value(V v) : bits(0) {  // implicit: rows read as lists of numbers
    std::memcpy(&bits, &v, sizeof v);
  }
};

struct Column {
  const char *name;
  std::uint32_t type_code;  // ZOR_PROCESS_DATA_TYPE_*, or 0 for the key
};

class EngineTest : public ::testing::Test {
 protected:
  EngineTest() { kel_ext_hash_name_init(&engine.dgs); }
  ~EngineTest() override {
    const char *name = nullptr;
    zor_process_attr_t nothing = {};
    for (; zor_process_engine_set_dg(&engine, ZOR_PROCESS_OPER_GET, &name, &nothing) == 0; name = nullptr) {
      zor_process_engine_set_dg(&engine, ZOR_PROCESS_OPER_DELETE, &name, nullptr);
    }
    kel_hashset_free(&engine.dgs);
  }

  std::uint32_t SetDg(std::uint32_t operation, const char *name, zor_process_attr_t *attr = nullptr) {
    return zor_process_engine_set_dg(&engine, operation, &name, attr);
  }

  void MakeDg(std::uint16_t flags, std::uint32_t clear_type = 0, std::uint32_t clear_interval = 0) {
    zor_process_attr_t attr = {&flags, nullptr, &clear_type, &clear_interval};
    ASSERT_EQ(SetDg(ZOR_PROCESS_OPER_SET, "ifstats", &attr), 0u);
    zor_process_engine_set_poll_interval(&engine, "ifstats", 10);
  }

  std::uint32_t MakeObject(const char *name, std::uint16_t flags, std::uint32_t value_kind = 0,
                           std::uint32_t range_type = 0, std::uint64_t low = 0, std::uint64_t high = 0,
                           std::uint32_t buckets = 0) {
    std::uint64_t range[2] = {low, high};
    zor_process_attr_t common = {&flags, &buckets, nullptr, nullptr};
    zor_process_object_attr_t attr = {nullptr, &common, &value_kind, &range_type, range};
    return zor_process_engine_set_object(&engine, ZOR_PROCESS_OPER_SET, "ifstats", &name, &attr);
  }

  std::uint32_t AddInstance(const char *object, const char *name) {
    return zor_process_engine_set_object_instance(&engine, ZOR_PROCESS_OPER_SET, "ifstats", object, &name);
  }

  std::uint32_t Send(std::uint32_t kind, std::size_t count = 0, void **columns = nullptr) {
    const zor_process_msg_t msg = {0, kind, static_cast<std::int32_t>(count), columns};
    return zor_process_engine_process_data(&engine, "ifstats", &msg);
  }

  std::uint32_t Template(const std::vector<Column> &columns) {
    std::vector<zor_process_column_t> records;
    for (const auto &[name, code] : columns) {
      records.push_back({name, code == 0 ? 2u : code % 2, 0, code >= 3 ? 8u : 4u, code == 0 ? 1u : 0u});
    }
    std::vector<void *> pointers;
    for (auto &record : records) pointers.push_back(&record);
    return Send(ZOR_PROCESS_MSG_TEMPLATE, pointers.size(), pointers.data());
  }

  // The key in column 0, then the values; an absent value is an empty cell.
  std::uint32_t Row(const char *key, const std::vector<std::optional<Value>> &values) {
    std::vector<zor_process_cell_t> cells = {{2, 0, key}};
    for (const auto &value : values) cells.push_back({0, value ? 8u : 0u, value ? &value->bits : nullptr});
    std::vector<void *> pointers;
    for (auto &cell : cells) pointers.push_back(&cell);
    return Send(ZOR_PROCESS_MSG_ROW, 0, pointers.data());
  }

  std::uint32_t EndOfPoll() { return Send(ZOR_PROCESS_MSG_END_OF_POLL); }

  // A mask of 0 concerns nothing and lifts the latch.
  std::uint32_t Clear(std::uint16_t mask) { return zor_process_engine_clear_dg_data(&engine, "ifstats", mask, 0); }

  zor_process_data_cursor_t Cursor() const { return {"ifstats", nullptr, nullptr, nullptr, 0}; }

  // A text that the library handed over; "(null)" for none. CR is left out of line ends.
  static std::string Take(char *text) {
    std::string taken = text ? text : "(null)";
    std::free(text);
    std::erase(taken, '\r');
    return taken;
  }

  std::string Next(zor_process_data_cursor_t &cursor, std::uint32_t mode = ZOR_PROCESS_OUTPUT_RECORD) {
    return Take(zor_process_engine_get_next_object_instance_data(&engine, &cursor, mode));
  }

  bool Ends(zor_process_data_cursor_t &cursor) { return Next(cursor) == "(null)" && !cursor.entry; }

  // All clear buffers in walking order, taken over.
  std::string Collect() {
    std::string records;
    zor_process_data_cursor_t cursor = Cursor();
    for (Next(cursor, 0); cursor.entry; Next(cursor, 0)) {
      char *text = zor_process_engine_get_clear_buffer(&cursor);
      zor_process_engine_set_clear_buffer(&cursor, nullptr);
      if (text) records += Take(text);
    }
    return records;
  }

  // The items that a report appends to a data list.
  std::vector<std::string> Report(std::uint32_t flags, const char *object = nullptr, const char *instance = nullptr,
                                  const std::uint32_t *percentile = nullptr) {
    zor_process_print_handle_t handle = {zor_datalist_create(), 0, {}, nullptr, 0};
    const zor_process_data_cursor_t dg = Cursor();
    zor_process_engine_print_object_instance_data_with_handle(&engine, &dg, object, instance, percentile, flags,
                                                              &handle);
    std::vector<std::string> items;
    zor_datalist_item_t item;
    for (std::uint32_t i = 0; zor_datalist_get(handle.datalist, i, &item) == 0; ++i) {
      EXPECT_EQ(item.name, "buf" + std::to_string(i + 1));
      EXPECT_EQ(item.size, std::strlen(item.text) + 1);
      items.push_back(item.text);
    }
    EXPECT_EQ(static_cast<std::size_t>(handle.buf_count), items.size());
    zor_datalist_free(handle.datalist);
    pvg_prt_handle = nullptr;
    return items;
  }

  zor_process_engine_t engine = {};
};

#endif  // ZOR_TESTS_ENGINE_FIXTURE_H_
