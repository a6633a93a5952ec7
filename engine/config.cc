// The configuration calls: create, change, delete and read DGs, objects and configured instance names.

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/memory.h"
#include "engine/registry.h"

namespace zor {
namespace {

// The next identifier to hand out: one rising sequence for all engines and DGs of the process.
std::atomic<std::uint32_t> next_object_id = 0;

constexpr std::uint32_t kDefaultBuckets = 100;

std::uint32_t AllocateObjectId(Engine *engine, const char *dg_name) {
  std::uint32_t id;
  do {
    id = next_object_id.fetch_add(1, std::memory_order_relaxed);
  } while (id == 0 || zor_process_engine_get_object_name_byid(engine, dg_name, id));
  return id;
}

// DGs and objects carry the same four settings.
template <class Record>
void ApplySettings(Record &record, const zor_process_attr_t &attr) {
  if (attr.flags) *attr.flags = record.flags = record.flags | *attr.flags;
  if (attr.buckets) record.no_of_buckets = *attr.buckets;
  if (attr.clear_type) {
    record.clear_interval_type = *attr.clear_type;
    if (attr.clear_interval) record.clear_interval = *attr.clear_interval;
  }
}

template <class Record>
void ClearFlags(Record &record, const zor_process_attr_t &attr) {
  if (attr.flags) *attr.flags = record.flags = static_cast<std::uint16_t>(record.flags & ~*attr.flags);
}

template <class Record>
void ReadSettings(const Record &record, const zor_process_attr_t &attr) {
  if (attr.flags) *attr.flags = record.flags;
  if (attr.buckets) *attr.buckets = record.no_of_buckets;
  if (attr.clear_type) *attr.clear_type = record.clear_interval_type;
  if (attr.clear_interval) *attr.clear_interval = record.clear_interval;
}

// The record that get or get-next means: the named one, its successor, or the first. Sets *name to what it found;
// get-next sets it to null at the end of the walk.
template <class Record>
Record *Select(kel_hashset_t &set, std::uint32_t operation, const char **name) {
  void *record = *name ? kel_ext_hash_name_get(&set, *name) : kel_hashset_first(&set);
  if (record && *name && operation == ZOR_PROCESS_OPER_GET_NEXT) record = kel_hashset_next(&set, record);
  auto *selected = static_cast<Record *>(record);
  if (selected) {
    *name = selected->name;
  } else if (operation == ZOR_PROCESS_OPER_GET_NEXT) {
    *name = nullptr;
  }
  return selected;
}

Dg *CreateDg(Engine &engine, const char *name) {
  auto dg = Allocate<Dg>();
  Owned<char> copy(dg ? strdup(name) : nullptr);
  if (!copy) return nullptr;
  dg->name = copy.get();
  dg->no_of_buckets = kDefaultBuckets;
  dg->key_column = -1;
  dg->poll_state = 1;
  kel_ext_hash_name_init(&dg->directory.rows);
  kel_ext_hash_name_init(&dg->objects);
  if (kel_hashset_insert(&engine.dgs, dg.get()) != 0) return nullptr;
  HandOver(copy);
  return dg.release();
}

Object *CreateObject(Dg &dg, const char *name) {
  auto object = Allocate<Object>();
  Owned<char> copy(object ? strdup(name) : nullptr);
  Owned<char> dg_name(copy ? strdup(dg.name) : nullptr);
  if (!dg_name) return nullptr;
  object->name = copy.get();
  object->dg_name = dg_name.get();
  if (kel_hashset_insert(&dg.objects, object.get()) != 0) return nullptr;
  BindColumn(dg, name, object.get());
  HandOver(copy, dg_name);
  return object.release();
}

// A name that the set already holds is accepted and kept once.
std::uint32_t AddInstance(kel_hashset_t &instances, const char *name) {
  auto instance = Allocate<Instance>();
  Owned<char> copy(instance ? strdup(name) : nullptr);
  if (!copy) return ZOR_PROCESS_ERROR_NO_MEMORY;
  instance->name = copy.get();
  if (kel_hashset_insert(&instances, instance.get()) != 0) {
    return Find<Instance>(instances, name) ? ZOR_PROCESS_SUCCESS : ZOR_PROCESS_ERROR_NO_MEMORY;
  }
  HandOver(copy, instance);
  return ZOR_PROCESS_SUCCESS;
}

std::uint32_t SetRange(Object &object, std::uint32_t range_type, const std::uint64_t *bounds) {
  std::uint64_t given[2] = {};
  if (range_type != 0) std::memcpy(given, bounds, sizeof given);
  object.range_type = range_type;
  std::free(object.range);
  object.range = nullptr;
  if (range_type == 0) return ZOR_PROCESS_SUCCESS;
  object.range = static_cast<std::uint64_t *>(std::malloc(sizeof given));
  if (!object.range) return ZOR_PROCESS_ERROR_NO_MEMORY;
  std::memcpy(object.range, given, sizeof given);
  return ZOR_PROCESS_SUCCESS;
}

std::uint32_t SetObject(Engine &engine, Dg &dg, const char *name, const zor_process_object_attr_t *attr) {
  if (!name) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  Object *object = Find<Object>(dg.objects, name);
  if (!object) object = CreateObject(dg, name);
  if (!object) return ZOR_PROCESS_ERROR_NO_MEMORY;
  if (!attr) return ZOR_PROCESS_SUCCESS;
  if (attr->id) {
    if (*attr->id == 0) *attr->id = AllocateObjectId(&engine, dg.name);
    object->id = *attr->id;
  }
  if (attr->range_type && *attr->range_type != 0 && !attr->range) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  if (attr->common) ApplySettings(*object, *attr->common);
  if (attr->value_kind) object->value_kind = *attr->value_kind;
  if (!attr->range_type) return ZOR_PROCESS_SUCCESS;
  return SetRange(*object, *attr->range_type, attr->range);
}

std::uint32_t DeleteObject(Dg &dg, const char *name, const zor_process_object_attr_t *attr) {
  if (!name) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  Object *object = Find<Object>(dg.objects, name);
  if (!object) return ZOR_PROCESS_ERROR_OBJECT_NOT_FOUND;
  if (!attr) {
    BindColumn(dg, name, nullptr);
    DestroyObject(dg.objects, *object);
  } else if (attr->common) {
    ClearFlags(*object, *attr->common);
  }
  return ZOR_PROCESS_SUCCESS;
}

std::uint32_t GetObject(Dg &dg, std::uint32_t operation, const char **name, const zor_process_object_attr_t *attr) {
  if (!attr) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  const Object *object = Select<Object>(dg.objects, operation, name);
  if (!object) return ZOR_PROCESS_ERROR_OBJECT_NOT_FOUND;
  if (attr->common) ReadSettings(*object, *attr->common);
  if (attr->id) *attr->id = object->id;
  if (attr->value_kind) *attr->value_kind = object->value_kind;
  if (!attr->range_type) return ZOR_PROCESS_SUCCESS;
  *attr->range_type = object->range_type;
  if (object->range_type == 0) return ZOR_PROCESS_SUCCESS;
  if (!attr->range) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  if (object->range) std::memcpy(attr->range, object->range, 2 * sizeof *object->range);
  return ZOR_PROCESS_SUCCESS;
}

std::uint32_t SetInstance(Object &object, const char *name) {
  if (!name) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  if (!object.instances) object.instances = CreateSet();
  if (!object.instances) return ZOR_PROCESS_ERROR_NO_MEMORY;
  return AddInstance(*object.instances, name);
}

std::uint32_t DeleteInstance(Object &object, const char *name) {
  if (!name) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  Instance *instance = object.instances ? Find<Instance>(*object.instances, name) : nullptr;
  if (!instance) return ZOR_PROCESS_ERROR_INSTANCE_NOT_FOUND;
  DestroyInstance(*object.instances, *instance);
  return ZOR_PROCESS_SUCCESS;
}

}  // namespace
}  // namespace zor

std::uint32_t zor_process_engine_set_dg(zor_process_engine_t *engine, std::uint32_t operation, const char **name,
                                        zor_process_attr_t *attr) {
  using namespace zor;
  if (!engine || !name) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  switch (operation) {
    case ZOR_PROCESS_OPER_SET: {
      if (!*name || !attr) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
      Dg *dg = FindDg(engine, *name);
      if (!dg) dg = CreateDg(*engine, *name);
      if (!dg) return ZOR_PROCESS_ERROR_NO_MEMORY;
      ApplySettings(*dg, *attr);
      return ZOR_PROCESS_SUCCESS;
    }
    case ZOR_PROCESS_OPER_DELETE:
    case ZOR_PROCESS_OPER_CLEAR: {
      if (!*name) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
      Dg *dg = FindDg(engine, *name);
      if (!dg) return ZOR_PROCESS_ERROR_DG_NOT_FOUND;
      if (operation == ZOR_PROCESS_OPER_CLEAR) {
        ResetData(*dg);
      } else if (attr) {
        ClearFlags(*dg, *attr);
      } else {
        DestroyDg(*engine, *dg);
      }
      return ZOR_PROCESS_SUCCESS;
    }
    case ZOR_PROCESS_OPER_GET:
    case ZOR_PROCESS_OPER_GET_NEXT: {
      if (!attr) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
      const Dg *dg = Select<Dg>(engine->dgs, operation, name);
      if (!dg) return ZOR_PROCESS_ERROR_DG_NOT_FOUND;
      ReadSettings(*dg, *attr);
      return ZOR_PROCESS_SUCCESS;
    }
    default:
      return ZOR_PROCESS_ERROR_OPER_NOT_FOUND;
  }
}

std::uint32_t zor_process_engine_set_object(zor_process_engine_t *engine, std::uint32_t operation,
                                            const char *dg_name, const char **name,
                                            zor_process_object_attr_t *attr) {
  using namespace zor;
  Dg *dg = FindDg(engine, dg_name);
  if (!dg) return ZOR_PROCESS_ERROR_DG_NOT_FOUND;
  if (!name) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  switch (operation) {
    case ZOR_PROCESS_OPER_SET:
      return SetObject(*engine, *dg, *name, attr);
    case ZOR_PROCESS_OPER_DELETE:
      return DeleteObject(*dg, *name, attr);
    case ZOR_PROCESS_OPER_GET:
    case ZOR_PROCESS_OPER_GET_NEXT:
      return GetObject(*dg, operation, name, attr);
    default:
      return ZOR_PROCESS_ERROR_OPER_NOT_FOUND;
  }
}

std::uint32_t zor_process_engine_set_object_instance(zor_process_engine_t *engine, std::uint32_t operation,
                                                     const char *dg_name, const char *object_name,
                                                     const char **name) {
  using namespace zor;
  Dg *dg = FindDg(engine, dg_name);
  if (!dg) return ZOR_PROCESS_ERROR_DG_NOT_FOUND;
  Object *object = Find<Object>(dg->objects, object_name);
  if (!object) return ZOR_PROCESS_ERROR_OBJECT_NOT_FOUND;
  if (!name) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  switch (operation) {
    case ZOR_PROCESS_OPER_SET:
      return SetInstance(*object, *name);
    case ZOR_PROCESS_OPER_DELETE:
      return DeleteInstance(*object, *name);
    case ZOR_PROCESS_OPER_GET:
    case ZOR_PROCESS_OPER_GET_NEXT:
      if (!object->instances) return ZOR_PROCESS_ERROR_INSTANCE_NOT_FOUND;
      return Select<Instance>(*object->instances, operation, name) ? ZOR_PROCESS_SUCCESS
                                                                   : ZOR_PROCESS_ERROR_INSTANCE_NOT_FOUND;
    default:
      return ZOR_PROCESS_ERROR_OPER_NOT_FOUND;
  }
}
