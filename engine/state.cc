// The collected data of a DG as bytes, and back: for collectors that are to go on after a restart.

#include "entry/state.h"

#include <cstdint>
#include <cstring>

#include "engine/instances.h"
#include "engine/registry.h"
#include "zor/entry.h"

namespace zor {
namespace {

constexpr std::uint64_t kMagic = 0x31617461'64726f7a;  // "zordata1", where bytes have the order of x86

void WriteName(StateWriter &archive, const char *name) {
  const std::uint64_t size = std::strlen(name) + 1;
  archive.Fields(size);
  archive.Bytes(name, size);
}

// Null after a failure.
const char *ReadName(StateReader &archive) {
  std::uint64_t size = 0;
  archive.Fields(size);
  const char *name = archive.Take(size);
  archive.Expect(name && size != 0 && std::memchr(name, '\0', size) == name + size - 1);
  return archive.result() == ZOR_PROCESS_SUCCESS ? name : nullptr;
}

void TransferColumnName(StateWriter &archive, const Column &column) { WriteName(archive, column.name); }
void TransferColumnName(StateReader &archive, const Column &column) {
  const char *name = ReadName(archive);
  archive.Expect(name && std::strcmp(name, column.name) == 0);
}

void TransferEntries(StateWriter &archive, Dg &dg, std::uint32_t i) {
  Column &column = *dg.directory.columns[i].column;
  std::uint64_t count = 0;
  for ([[maybe_unused]] const EntryHead &entry : Records<EntryHead>(column.instances)) ++count;
  archive.Fields(count);
  for (EntryHead &entry : Records<EntryHead>(column.instances)) {
    WriteName(archive, entry.name);
    TransferEntry(archive, column.data_type, &entry);
  }
}

void TransferEntries(StateReader &archive, Dg &dg, std::uint32_t i) {
  const Column &column = *dg.directory.columns[i].column;
  std::uint64_t count = 0;
  archive.Fields(count);
  archive.Expect(count == 0 || column.object);
  for (; count != 0; --count) {
    const char *name = ReadName(archive);
    if (!name) return;
    Row *row = FindRow(dg.directory, name).row;
    archive.Expect(!row || !row->slots[i].entry);
    if (archive.result() != ZOR_PROCESS_SUCCESS) return;
    if (const std::uint32_t result = CreateRowEntry(dg, name, i, nullptr, row); result != ZOR_PROCESS_SUCCESS) {
      return archive.Fail(result);
    }
    archive.Expect(row && row->slots[i].entry);  // an instance that the object watches
    if (archive.result() != ZOR_PROCESS_SUCCESS) return;
    TransferEntry(archive, column.data_type, row->slots[i].entry);
  }
}

template <class Archive>
void Transfer(Archive &archive, Dg &dg) {
  archive.Same(kMagic, dg.directory.column_count);
  archive.Fields(dg.poll_count, dg.no_of_samples, dg.poll_state);
  for (std::uint32_t i = 0; i < dg.directory.column_count; ++i) {
    const Column &column = *dg.directory.columns[i].column;
    TransferColumnName(archive, column);
    archive.Same(column.data_type, column.flags);
    TransferEntries(archive, dg, i);
  }
}

// Where a DG has a template, its columns are there afterwards.
std::uint32_t FindColumns(Dg &dg) {
  if (!dg.oper_entries) return ZOR_PROCESS_ERROR_IN_TEMPLATE;
  if (dg.directory.columns || IndexColumns(dg.directory, *dg.oper_entries)) return ZOR_PROCESS_SUCCESS;
  return ZOR_PROCESS_ERROR_NO_MEMORY;
}

bool HasInstances(const Dg &dg) {
  for (std::uint32_t i = 0; i < dg.directory.column_count; ++i) {
    if (kel_hashset_first(&dg.directory.columns[i].column->instances)) return true;
  }
  return false;
}

}  // namespace
}  // namespace zor

std::uint32_t zor_process_engine_save_dg_data(zor_process_engine_t *engine, const char *dg_name, void *data,
                                              std::size_t *size) {
  zor::Dg *dg = zor::FindDg(engine, dg_name);
  if (!dg) return ZOR_PROCESS_ERROR_DG_NOT_FOUND;
  if (!size) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  if (const std::uint32_t result = zor::FindColumns(*dg); result != ZOR_PROCESS_SUCCESS) return result;
  zor::StateWriter archive(data, *size);
  zor::Transfer(archive, *dg);
  *size = archive.size();
  return ZOR_PROCESS_SUCCESS;
}

std::uint32_t zor_process_engine_load_dg_data(zor_process_engine_t *engine, const char *dg_name, const void *data,
                                              std::size_t size) {
  zor::Dg *dg = zor::FindDg(engine, dg_name);
  if (!dg) return ZOR_PROCESS_ERROR_DG_NOT_FOUND;
  if (!data) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  if (const std::uint32_t result = zor::FindColumns(*dg); result != ZOR_PROCESS_SUCCESS) return result;
  if (zor::HasInstances(*dg)) return ZOR_PROCESS_ERROR_INVALID_PARAMS;
  zor::StateReader archive(data, size);
  zor::Transfer(archive, *dg);
  archive.Expect(archive.left() == 0);
  if (archive.result() != ZOR_PROCESS_SUCCESS) zor::ResetData(*dg);
  return archive.result();
}
