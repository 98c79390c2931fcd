// Files of a FAT32 volume that are in use, by their ids.
#include <algorithm>
#include <utility>

#include "simulator/storage/fat32_files.h"
#include "simulator/storage/fat32_session.h"
#include "simulator/text.h"

namespace simulator {
namespace {

// What answers for a file whose slot somebody has given free.
constexpr DWORD kErrorFileInvalid = 1006;

bool IsRoot(std::string_view path) {
  if (IsPlainName(FileNameOf(path))) return false;
  const auto names = SplitPath(path);
  return names && names->empty();
}

}  // namespace

DWORD Fat32Files::Look(const Fat32FileId& id, Fat32Entry& entry) {
  const Session session(*this);
  const Fat32Entry* found = nullptr;
  const DWORD error = LookAt(id, found);
  if (error == ERROR_SUCCESS) entry = *found;
  return error;
}

DWORD Fat32Files::Chain(const Fat32FileId& id, Fat32Chain& chain) {
  const Session session(*this);
  return ChainOf(id, chain);
}

DWORD Fat32Files::ReadPart(const Fat32FileId& id, std::uint64_t offset, std::span<std::byte> buffer,
                           std::size_t& done) {
  const Session session(*this);
  done = 0;
  const Fat32Entry* entry = nullptr;
  DWORD error = LookAt(id, entry);
  if (error != ERROR_SUCCESS || offset >= entry->size) return error;
  Fat32Chain chain;
  error = clusters_.Walk(entry->first_cluster, chain);
  if (error != ERROR_SUCCESS) return error;
  if (std::uint64_t{chain.size()} * clusters_.cluster_bytes() < entry->size) {
    return ERROR_FILE_CORRUPT;
  }
  const auto wanted = buffer.first(std::min<std::uint64_t>(buffer.size(), entry->size - offset));
  error = clusters_.ReadPart(chain, offset, wanted);
  if (error == ERROR_SUCCESS) done = wanted.size();
  return error;
}

DWORD Fat32Files::Move(const Fat32FileId& id, std::size_t index, std::size_t count,
                       std::uint32_t target) {
  const Session session(*this);
  const Fat32Entry* entry = nullptr;
  DWORD error = LookAt(id, entry);
  if (error != ERROR_SUCCESS) return error;
  const std::uint32_t first_cluster = entry->first_cluster;
  if (entry->is_folder) error = index == 0 ? ERROR_INVALID_PARAMETER : ForgetFolder(first_cluster);
  Fat32Chain chain;
  if (error == ERROR_SUCCESS) error = clusters_.Walk(first_cluster, chain);
  if (error != ERROR_SUCCESS || index >= chain.size()) return error;
  for (std::size_t left = std::min(count, chain.size() - index); left > 0;) {
    const std::size_t piece = std::min(left, clusters_.most_moved_at_once());
    error = MovePiece(id, chain, index, piece, target);
    if (error != ERROR_SUCCESS) return error;
    target += static_cast<std::uint32_t>(piece);
    index += piece;
    left -= piece;
  }
  return ERROR_SUCCESS;
}

DWORD Fat32Files::MovePiece(const Fat32FileId& id, Fat32Chain& chain, std::size_t index,
                            std::size_t count, std::uint32_t target) {
  DWORD error = ERROR_SUCCESS;
  if (clusters_.MustSaveBefore(chain, index, count, target)) error = WriteAll();
  if (error == ERROR_SUCCESS) error = clusters_.MovePiece(chain, index, count, target);
  if (error == ERROR_SUCCESS && index == 0) error = ChangeFirstCluster(id, target);
  return error == ERROR_SUCCESS ? WriteInTime() : error;
}

// A folder of which a part moves is read anew from where it lies then.
DWORD Fat32Files::ForgetFolder(std::uint32_t first_cluster) {
  const DWORD error = WriteAll();
  folders_.erase(first_cluster);
  return error;
}

DWORD Fat32Files::ChangeFirstCluster(const Fat32FileId& id, std::uint32_t cluster) {
  const Fat32Entry* found = nullptr;
  const DWORD error = LookAt(id, found);
  if (error != ERROR_SUCCESS) return error;
  Fat32Entry entry = *found;
  entry.first_cluster = cluster;
  return ChangeEntry(id, entry);
}

DWORD Fat32Files::Usage(std::span<const std::uint8_t>& bits, std::uint32_t& cluster_count) {
  const Session session(*this);
  if (open_error_ != ERROR_SUCCESS) return open_error_;
  cluster_count = clusters_.cluster_count();
  return clusters_.Usage(bits);
}

DWORD Fat32Files::FindFile(std::string_view path, Fat32FileId& id) {
  if (IsRoot(path)) {
    id = {};
    return open_error_;
  }
  Folder* folder = nullptr;
  std::string_view name;
  const DWORD error = OpenParent(path, folder, name);
  if (error != ERROR_SUCCESS) return error;
  const Fat32Entry* entry = folder->directory.Find(name);
  if (entry == nullptr) return ERROR_FILE_NOT_FOUND;
  // Believed: a first cluster that cannot be is noticed when the file is opened, and not later.
  const bool has_cluster = clusters_.IsCluster(entry->first_cluster);
  const bool may_be_empty = !entry->is_folder && entry->size == 0 && entry->first_cluster == 0;
  if (!has_cluster && !may_be_empty) return ERROR_FILE_CORRUPT;
  id = {folder->cluster, entry->own_slot()};
  return ERROR_SUCCESS;
}

DWORD Fat32Files::LookAt(const Fat32FileId& id, const Fat32Entry*& entry) {
  if (open_error_ != ERROR_SUCCESS) return open_error_;
  if (id.is_root()) {
    root_entry_.is_folder = true;
    root_entry_.attributes = kFat32AttributeFolder;
    root_entry_.first_cluster = clusters_.root();
    entry = &root_entry_;
    return ERROR_SUCCESS;
  }
  Folder* folder = nullptr;
  const DWORD error = LoadFolder(id.folder, folder);
  if (error != ERROR_SUCCESS) return error;
  entry = folder->directory.At(id.slot);
  return entry == nullptr ? kErrorFileInvalid : ERROR_SUCCESS;
}

DWORD Fat32Files::ChainOf(const Fat32FileId& id, Fat32Chain& chain) {
  const Fat32Entry* entry = nullptr;
  const DWORD error = LookAt(id, entry);
  if (error != ERROR_SUCCESS) return error;
  chain.reserve(std::min(entry->size / clusters_.cluster_bytes() + 1, clusters_.cluster_count()));
  return clusters_.Walk(entry->first_cluster, chain);
}

}  // namespace simulator
