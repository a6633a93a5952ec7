#include "engine/registry.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "zor/entry.h"

namespace zor {
namespace {

// Walks a set with a destroyer that removes the record in hand, then releases the set.
template <class Owner>
void DestroyAll(kel_hashset_t &set, kel_hashset_callback_t destroyer, Owner &owner) {
  kel_hashset_iterate(&set, destroyer, &owner);
  kel_hashset_free(&set);
}

void DestroyInstanceEntry(void *record, void *context) {
  auto &column = *static_cast<Column *>(context);
  kel_hashset_remove(&column.instances, record);
  g_zor_poi_entry_destroy_funcs[column.data_type - 1](record);
}

void ReleaseOperEntries(Dg &dg) {
  if (!dg.oper_entries) return;
  const auto destroy = [](void *record, void *context) {
    kel_hashset_remove(static_cast<kel_hashset_t *>(context), record);
    FreeColumn(*static_cast<Column *>(record));
  };
  DestroyAll(*dg.oper_entries, destroy, *dg.oper_entries);
  ReleaseRows(dg.directory);  // in which the entries were
  std::free(dg.oper_entries);
  dg.oper_entries = nullptr;
}

}  // namespace

// Most engines have one DG, or few: the first is looked at before the set is asked.
Dg *FindDg(Engine *engine, const char *name) {
  if (!engine || !name) return nullptr;
  auto *first = static_cast<Dg *>(kel_hashset_first(&engine->dgs));
  return first && std::strcmp(first->name, name) == 0 ? first : Find<Dg>(engine->dgs, name);
}

kel_hashset_t *CreateSet() {
  auto *set = static_cast<kel_hashset_t *>(std::calloc(1, sizeof(kel_hashset_t)));
  if (set) kel_ext_hash_name_init(set);
  return set;
}

void FreeColumn(Column &column) {
  std::free(column.name);
  std::free(column.dg_name);
  DestroyAll(column.instances, DestroyInstanceEntry, column);
  std::free(&column);
}

void BindColumn(Dg &dg, const char *name, Object *object) {
  Column *column = dg.oper_entries ? Find<Column>(*dg.oper_entries, name) : nullptr;
  if (!column) return;
  column->object = object;
  if (!object) dg.directory.is_uniform = false;
}

void DestroyInstance(kel_hashset_t &instances, Instance &instance) {
  kel_hashset_remove(&instances, &instance);
  std::free(instance.name);
  std::free(&instance);
}

void DestroyObject(kel_hashset_t &objects, Object &object) {
  kel_hashset_remove(&objects, &object);
  std::free(object.range);
  if (object.instances) {
    const auto destroy = [](void *record, void *context) {
      DestroyInstance(*static_cast<kel_hashset_t *>(context), *static_cast<Instance *>(record));
    };
    DestroyAll(*object.instances, destroy, *object.instances);
    std::free(object.instances);
  }
  std::free(object.dg_name);
  std::free(object.name);
  std::free(&object);
}

void DestroyDg(Engine &engine, Dg &dg) {
  kel_hashset_remove(&engine.dgs, &dg);
  ReleaseOperEntries(dg);
  std::free(dg.name);
  const auto destroy = [](void *record, void *context) {
    DestroyObject(*static_cast<kel_hashset_t *>(context), *static_cast<Object *>(record));
  };
  DestroyAll(dg.objects, destroy, dg.objects);
  std::free(&dg);
}

void ResetData(Dg &dg) {
  ReleaseOperEntries(dg);
  dg.poll_count = 0;
  dg.key_column = -1;
  dg.status = ZOR_PROCESS_SUCCESS;
  dg.no_of_samples = 0;
  dg.poll_state = 1;
}

}  // namespace zor

const char *zor_process_engine_get_object_name_byid(zor_process_engine_t *engine, const char *dg_name,
                                                    std::uint32_t id) {
  zor::Dg *dg = zor::FindDg(engine, dg_name);
  if (!dg) return nullptr;
  for (const zor::Object &object : zor::Records<zor::Object>(dg->objects)) {
    if (object.id == id) return object.name;
  }
  return nullptr;
}

std::uint32_t zor_process_object_get_id_byname(zor_process_engine_t *engine, const char *dg_name,
                                               const char *object_name) {
  zor::Dg *dg = zor::FindDg(engine, dg_name);
  if (!dg || !object_name) return 0;
  const std::size_t length = std::strlen(object_name);
  for (const zor::Object &object : zor::Records<zor::Object>(dg->objects)) {
    if (std::strncmp(object.name, object_name, length) == 0) return object.id;
  }
  return 0;
}
