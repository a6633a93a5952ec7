#include "engine/instances.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <optional>

#include "base/memory.h"
#include "entry/instance_entry.h"
#include "zor/entry.h"

namespace zor {
namespace {

constexpr std::uint32_t kClearHours = 2;
constexpr std::uint32_t kDefaultClearCount = 2000;

// Samples per clear interval of the object, or of the DG where the object sets none.
std::uint32_t ClearCount(const Dg &dg, const Object &object) {
  const bool own = object.clear_interval_type != 0;
  const std::uint32_t type = own ? object.clear_interval_type : dg.clear_interval_type;
  const std::uint32_t interval = own ? object.clear_interval : dg.clear_interval;
  if (type == kClearPolls) return interval;
  if (type != kClearHours) return kDefaultClearCount;
  const std::uint32_t seconds = interval * 3600;
  return seconds / dg.poll_interval + (seconds % dg.poll_interval != 0 ? 1 : 0);
}

// Two bounds of a column's data type, as the create function of that type reads them.
struct Range {
  std::array<std::uint64_t, 2> storage = {};
};

template <class V>
Range RangeOf(std::uint64_t low, std::uint64_t high) {
  const std::array<V, 2> bounds = {static_cast<V>(low), static_cast<V>(high)};
  Range range;
  std::memcpy(range.storage.data(), bounds.data(), sizeof bounds);
  return range;
}

// Whether 64-bit bounds of the given range type fit the value type.
template <class V>
bool Fits(std::uint32_t range_type, std::uint64_t low, std::uint64_t high) {
  if (range_type == ZOR_PROCESS_DATA_TYPE_UINT64) {
    constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<V>::max());
    return low <= kMax && high <= kMax;
  }
  if constexpr (std::is_signed_v<V>) {
    return range_type == ZOR_PROCESS_DATA_TYPE_INT64 &&
           static_cast<std::int64_t>(low) >= std::numeric_limits<V>::min() &&
           static_cast<std::int64_t>(high) <= std::numeric_limits<V>::max();
  }
  return false;
}

template <class V>
std::optional<Range> ConvertRange(std::uint32_t range_type, std::uint64_t low, std::uint64_t high) {
  if (range_type > ZOR_PROCESS_DATA_TYPE_UINT64) return Range{};  // bounds 0 and 0
  if (!Fits<V>(range_type, low, high)) return std::nullopt;
  return RangeOf<V>(low, high);
}

std::optional<Range> ConvertRange(const Object &object, std::uint32_t data_type) {
  const auto convert = [&](auto value) {
    return ConvertRange<decltype(value)>(object.range_type, object.range[0], object.range[1]);
  };
  return WithValueType(data_type, convert);
}

EntrySettings SettingsOf(const Dg &dg, Column &column, const void *range) {
  const Object &object = *column.object;
  const std::uint32_t buckets = object.no_of_buckets != 0 ? object.no_of_buckets : dg.no_of_buckets;
  return {column.data_type,
          object.value_kind,
          column.flags,
          range,
          static_cast<std::uint16_t>(buckets),
          ClearCount(dg, object),
          &column};
}

bool Watches(const Object &object, const char *key) {
  return !object.instances || Find<Instance>(*object.instances, key);
}

// Creates the row of a key, with places for the entries that it is about to have.
Row *CreateRow(Dg &dg, const char *key, void *const *cells) {
  RowDirectory &directory = dg.directory;
  Scratch<std::size_t> sizes(directory.column_count);
  if (!sizes.get()) return nullptr;
  for (std::uint32_t i = 0; i < directory.column_count; ++i) {
    Column &column = *directory.columns[i].column;
    const bool has_value = !cells || ValueOf(cells[column.column]);
    const bool has_entry = has_value && column.object && Watches(*column.object, key);
    sizes[i] = has_entry ? BlockSize(SettingsOf(dg, column, nullptr)) : 0;
  }
  return CreateRow(directory, key, sizes.get());
}

// Creates the entry of an instance seen for the first time.
std::uint32_t CreateInstance(Dg &dg, std::uint32_t i, Row &row) {
  Column &column = *dg.directory.columns[i].column;
  std::optional<Range> range;
  if (column.object->range) {
    range = ConvertRange(*column.object, column.data_type);
    if (!range) return ZOR_PROCESS_ERROR_INVALID_RANGE;
  }
  const EntrySettings settings = SettingsOf(dg, column, range ? range->storage.data() : nullptr);
  void *place = row.slots[i].place;
  if (place && PlaceSize(place) < BlockSize(settings)) place = nullptr;  // the object wants more than it did
  const EntryPlace own = {place, row.name};
  void *created = CreateEntry(settings, row.name, own);
  if (!created) return ZOR_PROCESS_ERROR_NO_MEMORY;
  if (kel_hashset_insert(&column.instances, created) != 0) {
    g_zor_poi_entry_destroy_funcs[column.data_type - 1](created);
    return ZOR_PROCESS_ERROR_NO_MEMORY;
  }
  SetEntry(dg.directory, row, i, created);
  return ZOR_PROCESS_SUCCESS;
}

}  // namespace

std::uint32_t CreateRowEntry(Dg &dg, const char *key, std::uint32_t i, void *const *cells, Row *&row) {
  if (!Watches(*dg.directory.columns[i].column->object, key)) return ZOR_PROCESS_SUCCESS;
  if (!row) row = CreateRow(dg, key, cells);
  if (!row) return ZOR_PROCESS_ERROR_NO_MEMORY;
  return CreateInstance(dg, i, *row);
}

}  // namespace zor
