// Named hash sets: an open-addressing table finds a record by name, and the records' own two link words chain them
// in the order of insertion, so that a walk needs no storage and survives the removal of the record in hand.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "zor/platform.h"

namespace {

using Record = kel_hashset_record_t;

struct Slot {
  std::uint64_t hash;
  Record *record;  // null: the slot is free
};

struct Table {
  Slot *slots;
  std::size_t mask;  // number of slots - 1, a power of two less one
  std::size_t used;
  Record *first;
  Record *last;
};

constexpr std::size_t kInitialSlots = 8;

Record *Previous(const Record *record) { return static_cast<Record *>(record->links[0]); }
Record *Next(const Record *record) { return static_cast<Record *>(record->links[1]); }
Table *TableOf(const kel_hashset_t *set) { return static_cast<Table *>(set->impl); }

// Multiply-and-fold over 8-byte words: every bit of a word reaches the low bits, which index the table.
std::uint64_t HashName(const char *name) {
  __extension__ using Wide = unsigned __int128;
  constexpr std::uint64_t kMultiplier = 0x9E3779B97F4A7C15u;
  std::size_t left = std::strlen(name);
  std::uint64_t hash = left;
  while (left > 0) {
    std::uint64_t word = 0;
    const std::size_t size = left < sizeof word ? left : sizeof word;
    std::memcpy(&word, name, size);
    const Wide product = static_cast<Wide>(hash ^ word ^ kMultiplier) * kMultiplier;
    hash = static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
    name += size;
    left -= size;
  }
  return hash;
}

// The slot that holds the name, or the free one where it would go.
Slot *FindSlot(const Table *table, std::uint64_t hash, const char *name) {
  for (std::size_t i = hash & table->mask;; i = (i + 1) & table->mask) {
    Slot *slot = &table->slots[i];
    if (!slot->record || (slot->hash == hash && std::strcmp(slot->record->name, name) == 0)) return slot;
  }
}

bool Resize(Table *table, std::size_t slot_count) {
  auto *slots = static_cast<Slot *>(std::calloc(slot_count, sizeof(Slot)));
  if (!slots) return false;
  const std::size_t mask = slot_count - 1;
  for (std::size_t i = 0; table->slots && i <= table->mask; ++i) {
    if (!table->slots[i].record) continue;
    std::size_t at = table->slots[i].hash & mask;
    while (slots[at].record) at = (at + 1) & mask;
    slots[at] = table->slots[i];
  }
  std::free(table->slots);
  table->slots = slots;
  table->mask = mask;
  return true;
}

// Closes the gap by moving up every later slot of the run that may stand there, so that no tombstones are needed.
void Vacate(Table *table, std::size_t gap) {
  for (std::size_t i = (gap + 1) & table->mask; table->slots[i].record; i = (i + 1) & table->mask) {
    const std::size_t home = table->slots[i].hash & table->mask;
    if (((i - home) & table->mask) >= ((i - gap) & table->mask)) {
      table->slots[gap] = table->slots[i];
      gap = i;
    }
  }
  table->slots[gap].record = nullptr;
}

}  // namespace

void kel_ext_hash_name_init(kel_hashset_t *set) { set->impl = nullptr; }

void *kel_ext_hash_name_get(kel_hashset_t *set, const char *name) {
  const Table *table = TableOf(set);
  return table && name ? FindSlot(table, HashName(name), name)->record : nullptr;
}

int kel_hashset_insert(kel_hashset_t *set, void *record) {
  auto *inserted = static_cast<Record *>(record);
  if (!set->impl) {
    auto *fresh = static_cast<Table *>(std::calloc(1, sizeof(Table)));
    if (!fresh || !Resize(fresh, kInitialSlots)) {
      std::free(fresh);
      return 1;
    }
    set->impl = fresh;
  }
  Table *table = TableOf(set);
  const std::uint64_t hash = HashName(inserted->name);
  if (FindSlot(table, hash, inserted->name)->record) return 1;
  const std::size_t slot_count = table->mask + 1;
  if ((table->used + 1) * 4 > slot_count * 3 && !Resize(table, slot_count * 2)) return 1;

  *FindSlot(table, hash, inserted->name) = {hash, inserted};
  ++table->used;
  inserted->links[0] = table->last;
  inserted->links[1] = nullptr;
  if (table->last) {
    table->last->links[1] = inserted;
  } else {
    table->first = inserted;
  }
  table->last = inserted;
  return 0;
}

void kel_hashset_remove(kel_hashset_t *set, void *record) {
  Table *table = TableOf(set);
  auto *removed = static_cast<Record *>(record);
  if (!table) return;
  const Slot *slot = FindSlot(table, HashName(removed->name), removed->name);
  if (slot->record != removed) return;
  Vacate(table, static_cast<std::size_t>(slot - table->slots));
  --table->used;
  Record *previous = Previous(removed);
  Record *next = Next(removed);
  if (previous) {
    previous->links[1] = next;
  } else {
    table->first = next;
  }
  if (next) {
    next->links[0] = previous;
  } else {
    table->last = previous;
  }
}

void *kel_hashset_get(kel_hashset_t *set, void *key_record) {
  return kel_ext_hash_name_get(set, static_cast<const Record *>(key_record)->name);
}

void *kel_hashset_first(kel_hashset_t *set) { return set->impl ? TableOf(set)->first : nullptr; }

void *kel_hashset_next(kel_hashset_t *, void *record) { return Next(static_cast<const Record *>(record)); }

void kel_hashset_iterate(kel_hashset_t *set, kel_hashset_callback_t callback, void *context) {
  for (void *record = kel_hashset_first(set); record;) {
    void *next = kel_hashset_next(set, record);
    callback(record, context);
    record = next;
  }
}

void kel_hashset_free(kel_hashset_t *set) {
  if (!set->impl) return;
  std::free(TableOf(set)->slots);
  std::free(set->impl);
  set->impl = nullptr;
}
