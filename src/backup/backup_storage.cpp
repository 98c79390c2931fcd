#include "backup/backup_storage.h"

#include <algorithm>
#include <cstring>

#include "platform/guard.h"

namespace velkora {
namespace {

// Keeps the husks reachable, so that they count as held and not as lost. Nothing walks it.
BackupStorage* first_released = nullptr;

void RequireLive(const BackupStorage* storage) {
  if (storage->released) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
}

void CopyBlock(BackupBlock& record, std::uint64_t offset, const std::vector<std::byte>& bytes) {
  record.offset = offset;
  if (bytes.empty()) return;
  record.data = new std::byte[bytes.size()];
  std::copy(bytes.begin(), bytes.end(), record.data);
  record.length = bytes.size();
}

}  // namespace

void FillBackupStorage(BackupStorage** storage, const char* device_id, const BlockMap& blocks) {
  if (*storage == nullptr) *storage = new BackupStorage{};
  BackupStorage& object = **storage;
  RequireLive(&object);
  const std::size_t path_bytes = std::strlen(device_id) + 1;
  // A path that the object held before is overwritten, and its memory left behind.
  object.device_path = new char[path_bytes];
  std::memcpy(object.device_path, device_id, path_bytes);
  for (const auto& [offset, bytes] : blocks) {
    // There is no record for a further block; its offset would be stored through a null pointer.
    if (object.count >= kStorageBlocks) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
    BackupBlock*& record = object.blocks[object.count];
    record = new BackupBlock{};
    ++object.count;
    CopyBlock(*record, offset, bytes);
  }
}

std::string LoadBackupStorage(const BackupStorage* storage, BlockMap& blocks) {
  RequireLive(storage);
  for (std::uint32_t i = 0; i < storage->count; ++i) {
    const BackupBlock* record = storage->blocks[i];
    if (record == nullptr) continue;
    SelectBytes(blocks, record->offset, {record->data, record->length});
  }
  return storage->device_path;
}

std::uint32_t BlockCount(const BackupStorage* storage) {
  RequireLive(storage);
  return storage->count;
}

void ReleaseBlocks(BackupStorage* storage) {
  RequireLive(storage);
  delete[] storage->device_path;
  storage->device_path = nullptr;
  for (std::uint32_t i = 0; i < storage->count; ++i) {
    BackupBlock*& record = storage->blocks[i];
    if (record == nullptr) continue;
    delete[] record->data;
    delete record;
    record = nullptr;
  }
}

void FreeBackupStorage(BackupStorage* storage) {
  RequireLive(storage);
  storage->released = true;
  storage->next_released = first_released;
  first_released = storage;
}

}  // namespace velkora
