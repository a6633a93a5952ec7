// Named hash sets: an open-addressing table finds a record by name, and the records' own two link words chain them
// in the order of insertion, so that a walk needs no storage and survives the removal of the record in hand.

#include <pthread.h>
#include <sys/random.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "zor/platform.h"

namespace {

using Record = kel_hashset_record_t;

// Slots are two arrays in one allocation: hashes are compared before a record is touched, and 12 bytes do for both.
struct Table {
  Record **records;       // null: the slot is free
  std::uint32_t *hashes;  // behind the records
  std::size_t mask;       // number of slots - 1, a power of two less one
  std::size_t used;
  Record *first;
  Record *last;
};

constexpr std::size_t kInitialSlots = 8;

Record *Previous(const Record *record) { return static_cast<Record *>(record->links[0]); }
Record *Next(const Record *record) { return static_cast<Record *>(record->links[1]); }
Table *TableOf(const kel_hashset_t *set) { return static_cast<Table *>(set->impl); }

// Every bit of both factors reaches the low bits, which index the table.
std::uint64_t Fold(std::uint64_t a, std::uint64_t b) {
  __extension__ using Wide = unsigned __int128;
  const Wide product = static_cast<Wide>(a) * b;
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

template <class Word>
std::uint64_t Load(const char *text) {
  Word word;
  std::memcpy(&word, text, sizeof word);
  return word;
}

// All of a text of at most 16 bytes, in two words that may overlap.
struct Ends {
  std::uint64_t front, back;
};

Ends LoadEnds(const char *text, std::size_t size) {
  if (size >= 8) return {Load<std::uint64_t>(text), Load<std::uint64_t>(text + size - 8)};
  if (size >= 4) return {Load<std::uint32_t>(text), Load<std::uint32_t>(text + size - 4)};
  if (size >= 2) return {Load<std::uint16_t>(text), Load<std::uint16_t>(text + size - 2)};
  return {size == 1 ? Load<std::uint8_t>(text) : 0, 0};
}

// Drawn before the process has its first table, and constant from then on.
std::uint64_t hash_key[4];
pthread_once_t hash_key_drawn = PTHREAD_ONCE_INIT;

// Does not wait for randomness: early in a boot, and where the system has none to give, addresses and time must do.
void DrawHashKey() {
  if (getrandom(hash_key, sizeof hash_key, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof hash_key)) return;
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::uint64_t seed = static_cast<std::uint64_t>(now.tv_nsec) << 32 ^ reinterpret_cast<std::uintptr_t>(&now);
  for (std::uint64_t &word : hash_key) {
    seed += reinterpret_cast<std::uintptr_t>(&word);
    word = Fold(seed ^ 0x9E3779B97F4A7C15u, 0xD6E8FEB86659FD93u);
  }
}

// The names may be chosen by someone who wants them all in one slot. So each factor of a product is hidden by a
// word of the key, or by a state that depends on it: who does not know the key finds no word of a name that makes a
// factor zero. The last product spreads names that differ in a byte or two.
std::uint32_t HashName(const char *name) {
  std::size_t left = std::strlen(name);
  std::uint64_t state = hash_key[0] ^ left;
  for (; left > 16; name += 16, left -= 16) {
    state = Fold(Load<std::uint64_t>(name) ^ hash_key[1], Load<std::uint64_t>(name + 8) ^ state);
  }
  const Ends ends = LoadEnds(name, left);
  state = Fold(ends.front ^ hash_key[1], ends.back ^ state);
  return static_cast<std::uint32_t>(Fold(state ^ hash_key[2], hash_key[3]));
}

// The slot that holds the name, or the free one where it would go.
std::size_t FindSlot(const Table *table, std::uint32_t hash, const char *name) {
  std::size_t at = hash & table->mask;
  while (table->records[at] && (table->hashes[at] != hash || std::strcmp(table->records[at]->name, name) != 0)) {
    at = (at + 1) & table->mask;
  }
  return at;
}

void Occupy(Table *table, std::size_t at, std::uint32_t hash, Record *record) {
  table->records[at] = record;
  table->hashes[at] = hash;
}

bool Resize(Table *table, std::size_t slot_count) {
  Table resized = *table;
  resized.records = static_cast<Record **>(std::calloc(slot_count, sizeof(Record *) + sizeof(std::uint32_t)));
  if (!resized.records) return false;
  resized.hashes = reinterpret_cast<std::uint32_t *>(resized.records + slot_count);
  resized.mask = slot_count - 1;
  for (std::size_t i = 0; table->records && i <= table->mask; ++i) {
    if (!table->records[i]) continue;
    std::size_t at = table->hashes[i] & resized.mask;
    while (resized.records[at]) at = (at + 1) & resized.mask;
    Occupy(&resized, at, table->hashes[i], table->records[i]);
  }
  std::free(table->records);
  *table = resized;
  return true;
}

// Closes the gap by moving up every later slot of the run that may stand there, so that no tombstones are needed.
void Vacate(Table *table, std::size_t gap) {
  for (std::size_t i = (gap + 1) & table->mask; table->records[i]; i = (i + 1) & table->mask) {
    const std::size_t home = table->hashes[i] & table->mask;
    if (((i - home) & table->mask) >= ((i - gap) & table->mask)) {
      Occupy(table, gap, table->hashes[i], table->records[i]);
      gap = i;
    }
  }
  table->records[gap] = nullptr;
}

}  // namespace

void kel_ext_hash_name_init(kel_hashset_t *set) { set->impl = nullptr; }

void *kel_ext_hash_name_get(kel_hashset_t *set, const char *name) {
  const Table *table = TableOf(set);
  return table && name ? table->records[FindSlot(table, HashName(name), name)] : nullptr;
}

int kel_hashset_insert(kel_hashset_t *set, void *record) {
  auto *inserted = static_cast<Record *>(record);
  if (!set->impl) {
    auto *fresh = static_cast<Table *>(std::calloc(1, sizeof(Table)));
    if (!fresh || !Resize(fresh, kInitialSlots)) {
      std::free(fresh);
      return 1;
    }
    pthread_once(&hash_key_drawn, DrawHashKey);
    set->impl = fresh;
  }
  Table *table = TableOf(set);
  const std::uint32_t hash = HashName(inserted->name);
  if (table->records[FindSlot(table, hash, inserted->name)]) return 1;
  const std::size_t slot_count = table->mask + 1;
  if ((table->used + 1) * 5 > slot_count * 4 && !Resize(table, slot_count * 2)) return 1;

  Occupy(table, FindSlot(table, hash, inserted->name), hash, inserted);
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
  const std::size_t at = FindSlot(table, HashName(removed->name), removed->name);
  if (table->records[at] != removed) return;
  Vacate(table, at);
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
  std::free(TableOf(set)->records);
  std::free(set->impl);
  set->impl = nullptr;
}
