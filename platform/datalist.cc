// Data lists in memory: the 64-bit handle is the address of the list.

#include "zor/datalist.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct Item {
  char *bytes;  // the name with its NUL, then the text: one allocation
  std::uint32_t text_offset;
  std::uint32_t size;
};

struct DataList {
  Item *items;
  std::uint32_t count;
  std::uint32_t capacity;
};

// NOLINTNEXTLINE(performance-no-int-to-ptr): a handle is an integer, which a real platform fills as it likes.
DataList *ListOf(std::uint64_t handle) { return reinterpret_cast<DataList *>(handle); }

bool Reserve(DataList *list) {
  if (list->count < list->capacity) return true;
  const std::uint32_t capacity = list->capacity ? list->capacity * 2 : 16;
  void *items = std::realloc(list->items, capacity * sizeof(Item));
  if (!items) return false;
  list->items = static_cast<Item *>(items);
  list->capacity = capacity;
  return true;
}

}  // namespace

std::uint64_t zor_datalist_create(void) {
  return reinterpret_cast<std::uint64_t>(std::calloc(1, sizeof(DataList)));
}

int vamra_edm_datalist_add(std::uint64_t datalist, const char *name, std::int32_t, std::int32_t, const void *text,
                           std::int32_t size) {
  DataList *list = ListOf(datalist);
  if (!list || !name || !text || size < 0 || !Reserve(list)) return 1;
  const std::size_t name_size = std::strlen(name) + 1;
  const auto text_size = static_cast<std::size_t>(size);
  auto *bytes = static_cast<char *>(std::malloc(name_size + text_size));
  if (!bytes) return 1;
  std::memcpy(bytes, name, name_size);
  std::memcpy(bytes + name_size, text, text_size);
  list->items[list->count++] = {bytes, static_cast<std::uint32_t>(name_size), static_cast<std::uint32_t>(size)};
  return 0;
}

std::uint32_t zor_datalist_count(std::uint64_t datalist) { return datalist ? ListOf(datalist)->count : 0; }

int zor_datalist_get(std::uint64_t datalist, std::uint32_t index, zor_datalist_item_t *item) {
  if (index >= zor_datalist_count(datalist)) return 1;
  const Item &found = ListOf(datalist)->items[index];
  *item = {found.bytes, found.bytes + found.text_offset, found.size};
  return 0;
}

void zor_datalist_free(std::uint64_t datalist) {
  DataList *list = ListOf(datalist);
  if (!list) return;
  for (std::uint32_t i = 0; i < list->count; ++i) std::free(list->items[i].bytes);
  std::free(list->items);
  std::free(list);
}
