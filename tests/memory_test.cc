// Memory per instance is what docs/memory.md says.

#include <malloc.h>

#include <numeric>

#include "engine_fixture.h"

namespace {

constexpr std::size_t kKeyLength = 8;

std::size_t RoundUp(std::size_t size, std::size_t step) { return (size + step - 1) / step * step; }

// What malloc takes for a block.
std::size_t Block(std::size_t size) { return std::max<std::size_t>(32, RoundUp(size + 8, 16)); }

// A set of n records: its head, and slots of 12 bytes, at most four fifths of them used.
std::size_t Set(std::size_t n) {
  std::size_t slots = 8;
  while (n * 5 > slots * 4) slots *= 2;
  return Block(48) + Block(12 * slots);
}

struct Shape {
  const char *name;
  std::uint32_t type_code;
  std::uint16_t flags;
  std::uint32_t buckets;
  std::size_t columns, instances;
  std::uint32_t clear_count = 0, polls = 1;  // of a baseline
};

std::size_t EntryBytes(const Shape &shape) {
  const bool wide = shape.type_code >= 3;
  std::size_t size = 80 + kKeyLength + 1;
  if (shape.flags == ZOR_PROCESS_FLAG_BASELINE) {
    const std::size_t width = wide ? 8 : 4;
    std::size_t bytes = Block(size) + Block(wide ? 200 : 168);
    bytes += 2 * Block(width * ((13 * shape.clear_count - 13) / 10000 + 2));
    if (shape.polls >= shape.clear_count) bytes += Block(2 * shape.buckets);
    return bytes;
  }
  size += wide ? 32 : 24;
  if (shape.flags != ZOR_PROCESS_FLAG_SUMMARY) size += (wide ? 48 : 32) + RoundUp(2 * shape.buckets, 8);
  return Block(size);
}

std::size_t FormulaBytes(const Shape &shape) {
  const std::size_t row = Block(32 + 8 * shape.columns + kKeyLength + 1);
  return shape.columns * (shape.instances * EntryBytes(shape) + Set(shape.instances)) + shape.instances * row +
         Set(shape.instances) + Block(8 * shape.columns);
}

std::size_t AllocatedBytes() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

class MemoryTest : public EngineTest, public ::testing::WithParamInterface<Shape> {};

TEST_P(MemoryTest, IsThatOfTheFormula) {
  const Shape &shape = GetParam();
  MakeDg(0, 1, shape.clear_count);
  std::vector<std::string> names;
  std::vector<Column> columns = {{"key", 0}};
  for (std::size_t i = 0; i < shape.columns; ++i) names.push_back("c" + std::to_string(i));
  for (const std::string &name : names) {
    ASSERT_EQ(MakeObject(name.c_str(), shape.flags, 0, 0, 0, 0, shape.buckets), 0u);
    columns.push_back({name.c_str(), shape.type_code});
  }
  ASSERT_EQ(Template(columns), 0u);
  const std::vector<std::optional<Value>> values(shape.columns, Value(std::uint64_t{5}));
  const std::size_t before = AllocatedBytes();
  for (std::uint32_t poll = 0; poll < shape.polls; ++poll) {
    for (std::size_t i = 0; i < shape.instances; ++i) {
      ASSERT_EQ(Row(std::to_string(10000000 + i).c_str(), values), 0u);
    }
  }
  const double measured = static_cast<double>(AllocatedBytes() - before);
  const double formula = static_cast<double>(FormulaBytes(shape));
  EXPECT_NEAR(measured / formula, 1, 0.005);
  std::printf("%s: %.1f bytes per statistic\n", shape.name,
              measured / static_cast<double>(shape.instances * shape.columns));
}

INSTANTIATE_TEST_SUITE_P(Shapes, MemoryTest,
                         ::testing::Values(Shape{"SummaryOfOneColumn", 1, 1, 100, 1, 1000},
                                           Shape{"Percentiles", 4, 4, 100, 10, 1000},
                                           Shape{"NarrowPercentiles", 2, 4, 1000, 3, 500},
                                           Shape{"ManyBuckets", 4, 6, 40000, 1, 20},
                                           Shape{"BaselineLearning", 4, 8, 100, 2, 1000, 20000},
                                           Shape{"BaselineAnalyzing", 1, 8, 500, 2, 1000, 10, 10}),
                         [](const auto &info) { return std::string(info.param.name); });

}  // namespace
