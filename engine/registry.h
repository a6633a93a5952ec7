// The records under an engine handle: finding them, walking them, releasing them.
#ifndef ZOR_ENGINE_REGISTRY_H_
#define ZOR_ENGINE_REGISTRY_H_

#include <cstdint>

#include "engine/rows.h"
#include "zor/engine.h"
#include "zor/platform.h"

namespace zor {

using Engine = zor_process_engine_t;
// A DG with what the engine keeps beside the public record.
struct Dg : zor_process_dg_t {
  RowDirectory directory;
  std::uint64_t periods_ended;  // of baselines
};
using Object = zor_process_object_t;
using Instance = zor_process_object_instance_t;
// An instance entry of any data type: its head. What it holds is reached through the typed tables alone.
using EntryHead = kel_hashset_record_t;

// The record of that name, or null; a null name finds nothing.
template <class Record>
Record *Find(kel_hashset_t &set, const char *name) {
  return name ? static_cast<Record *>(kel_ext_hash_name_get(&set, name)) : nullptr;
}

Dg *FindDg(Engine *engine, const char *name);

// All records of a set in walking order: for (Column &column : Records<Column>(set)). The set must not change
// during the walk.
template <class Record>
class Records {
 public:
  explicit Records(kel_hashset_t &set) : set_(&set) {}

  class Iterator {
   public:
    Iterator(kel_hashset_t *set, void *record) : set_(set), record_(record) {}
    Record &operator*() const { return *static_cast<Record *>(record_); }
    bool operator!=(const Iterator &other) const { return record_ != other.record_; }
    Iterator &operator++() {
      record_ = kel_hashset_next(set_, record_);
      return *this;
    }

   private:
    kel_hashset_t *set_;
    void *record_;
  };

  Iterator begin() const { return {set_, kel_hashset_first(set_)}; }
  Iterator end() const { return {set_, nullptr}; }

 private:
  kel_hashset_t *set_;
};

// A set under a separately allocated handle; null without memory.
kel_hashset_t *CreateSet();

// Each takes its record out of the set that holds it and frees it with all that it owns.
void DestroyDg(Engine &engine, Dg &dg);
void DestroyObject(kel_hashset_t &objects, Object &object);
void DestroyInstance(kel_hashset_t &instances, Instance &instance);

// A record that is in no set (yet).
void FreeColumn(Column &column);

// Tells the column that feeds an object of this name, if there is one, that the object is there or (null) gone.
void BindColumn(Dg &dg, const char *name, Object *object);

// Drops everything collected; configuration stays.
void ResetData(Dg &dg);

}  // namespace zor

#endif  // ZOR_ENGINE_REGISTRY_H_
