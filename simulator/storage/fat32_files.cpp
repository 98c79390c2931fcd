#include "simulator/storage/fat32_files.h"

#include <limits>
#include <utility>

#include "simulator/storage/fat32_session.h"
#include "simulator/text.h"

namespace simulator {
namespace {

constexpr DWORD kSettableAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN |
                                      FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE;

}  // namespace

DWORD Fat32Files::MakeFolder(std::string_view path) {
  const Session session(*this);
  Folder* parent = nullptr;
  std::string_view name;
  DWORD error = WriteAll();
  if (error == ERROR_SUCCESS) error = OpenParent(path, parent, name);
  if (error != ERROR_SUCCESS) return error;
  if (parent->directory.Find(name)) return ERROR_ALREADY_EXISTS;
  Fat32Entry entry;
  entry.name = name;
  entry.is_folder = true;
  // Once for a cluster, and once more with the links, which name it.
  error = clusters_.Write(entry.first_cluster, Fat32Directory::NewFolder(0, 0));
  if (error != ERROR_SUCCESS) return error;
  const std::uint32_t parent_link = parent->cluster == clusters_.root() ? 0 : parent->cluster;
  error = clusters_.Write(entry.first_cluster,
                          Fat32Directory::NewFolder(entry.first_cluster, parent_link));
  if (error == ERROR_SUCCESS) {
    error = parent->directory.Add(entry) ? Save(*parent) : ERROR_INVALID_NAME;
  }
  if (error == ERROR_SUCCESS) return error;
  const DWORD freed = clusters_.Free(entry.first_cluster);
  return freed == ERROR_SUCCESS ? error : freed;
}

DWORD Fat32Files::Write(std::string_view path, std::string_view content) {
  if (content.size() > std::numeric_limits<std::uint32_t>::max()) return ERROR_DISK_FULL;
  const Session session(*this);
  Folder* folder = nullptr;
  std::string_view name;
  DWORD error = WriteAll();
  if (error == ERROR_SUCCESS) error = OpenParent(path, folder, name);
  if (error != ERROR_SUCCESS) return error;
  const Fat32Entry* old = folder->directory.Find(name);
  if (old != nullptr && old->is_folder) return ERROR_ACCESS_DENIED;
  Fat32Entry entry;
  if (old != nullptr) {
    entry = *old;
  } else {
    entry.name = name;
  }
  const std::uint32_t old_cluster = entry.first_cluster;
  entry.attributes |= kFat32AttributeArchive;
  entry.size = static_cast<std::uint32_t>(content.size());
  entry.first_cluster = 0;
  error = clusters_.Write(entry.first_cluster, content);
  if (error != ERROR_SUCCESS) return error;
  if (old != nullptr) folder->directory.Update(entry);
  const bool named = old != nullptr || folder->directory.Add(entry);
  error = named ? Save(*folder) : ERROR_INVALID_NAME;
  const DWORD freed = clusters_.Free(error == ERROR_SUCCESS ? old_cluster : entry.first_cluster);
  return error == ERROR_SUCCESS ? freed : error;
}

DWORD Fat32Files::Remove(std::string_view path) {
  const Session session(*this);
  Folder* folder = nullptr;
  std::string_view name;
  DWORD error = WriteAll();
  if (error == ERROR_SUCCESS) error = OpenParent(path, folder, name);
  if (error != ERROR_SUCCESS) return error;
  const Fat32Entry* entry = folder->directory.Find(name);
  if (entry == nullptr) return ERROR_FILE_NOT_FOUND;
  if (entry->is_folder) return ERROR_ACCESS_DENIED;
  const std::uint32_t first_cluster = entry->first_cluster;
  folder->directory.Remove(*entry);
  error = Save(*folder);
  return error == ERROR_SUCCESS ? clusters_.Free(first_cluster) : error;
}

DWORD Fat32Files::Read(std::string_view path, std::string& content) {
  const Session session(*this);
  Folder* folder = nullptr;
  std::string_view name;
  DWORD error = OpenParent(path, folder, name);
  if (error != ERROR_SUCCESS) return error;
  const Fat32Entry* entry = folder->directory.Find(name);
  if (entry == nullptr) return ERROR_FILE_NOT_FOUND;
  if (entry->is_folder) return ERROR_ACCESS_DENIED;
  std::string bytes;
  error = clusters_.Read(entry->first_cluster, bytes);
  if (error != ERROR_SUCCESS) return error;
  if (bytes.size() < entry->size) return ERROR_FILE_CORRUPT;
  bytes.resize(entry->size);
  content = std::move(bytes);
  return ERROR_SUCCESS;
}

DWORD Fat32Files::List(std::string_view path, std::vector<Fat32Entry>& entries) {
  const Session session(*this);
  const auto split = SplitPath(path);
  if (!split) return ERROR_INVALID_NAME;
  Folder* folder = nullptr;
  const DWORD error = OpenFolder(*split, folder);
  if (error == ERROR_SUCCESS) entries = folder->directory.List();
  return error;
}

bool Fat32Files::Exists(std::string_view path) {
  const Session session(*this);
  const auto split = SplitPath(path);
  if (split && split->empty()) return open_error_ == ERROR_SUCCESS;
  Folder* folder = nullptr;
  std::string_view name;
  if (OpenParent(path, folder, name) != ERROR_SUCCESS) return false;
  return folder->directory.Find(name) != nullptr;
}

DWORD Fat32Files::Find(std::string_view path, Fat32FileId& id) {
  const Session session(*this);
  return FindFile(path, id);
}

DWORD Fat32Files::SetAttributes(std::string_view path, DWORD attributes) {
  const Session session(*this);
  Fat32FileId id;
  DWORD error = FindFile(path, id);
  if (error != ERROR_SUCCESS) return error;
  if (id.is_root()) return ERROR_INVALID_PARAMETER;
  const Fat32Entry* found = nullptr;
  error = LookAt(id, found);
  if (error != ERROR_SUCCESS) return error;
  Fat32Entry entry = *found;
  entry.attributes = static_cast<std::uint8_t>((entry.attributes & ~kSettableAttributes) |
                                               (attributes & kSettableAttributes));
  error = ChangeEntry(id, entry);
  return error == ERROR_SUCCESS ? WriteInTime() : error;
}

DWORD Fat32Files::OpenFolder(const std::vector<std::string_view>& names, Folder*& folder) {
  if (open_error_ != ERROR_SUCCESS) return open_error_;
  DWORD error = LoadFolder(clusters_.root(), folder);
  for (const std::string_view name : names) {
    if (error != ERROR_SUCCESS) return error;
    const Fat32Entry* entry = folder->directory.Find(name);
    if (entry == nullptr || !entry->is_folder) return ERROR_PATH_NOT_FOUND;
    error = LoadFolder(entry->first_cluster, folder);
  }
  return error;
}

// The folder that holds the last name of the path.
DWORD Fat32Files::OpenParent(std::string_view path, Folder*& folder, std::string_view& name) {
  name = FileNameOf(path);
  const std::string_view parent = path.substr(0, path.size() - name.size());
  const bool is_plain = IsPlainName(name);
  if (is_plain && !parent.empty() && parent == last_parent_) {
    return LoadFolder(last_parent_cluster_, folder);
  }
  auto names = SplitPath(path);
  if (!names || names->empty()) return ERROR_INVALID_NAME;
  name = names->back();
  names->pop_back();
  const DWORD error = OpenFolder(*names, folder);
  if (error != ERROR_SUCCESS || !is_plain) return error;
  last_parent_ = parent;
  last_parent_cluster_ = folder->cluster;
  return ERROR_SUCCESS;
}

DWORD Fat32Files::LoadFolder(std::uint32_t cluster, Folder*& folder) {
  const auto found = folders_.find(cluster);
  if (found != folders_.end()) {
    folder = &found->second;
    return ERROR_SUCCESS;
  }
  if (!clusters_.IsCluster(cluster)) return ERROR_FILE_CORRUPT;
  std::string bytes;
  const DWORD error = clusters_.Read(cluster, bytes);
  if (error != ERROR_SUCCESS) return error;
  Folder loaded{cluster, Fat32Directory(std::move(bytes))};
  folder = &folders_.emplace(cluster, std::move(loaded)).first->second;
  return ERROR_SUCCESS;
}

// What could not be written whole is read anew.
DWORD Fat32Files::Save(Folder& folder) {
  std::uint32_t cluster = folder.cluster;
  const DWORD error = clusters_.Write(cluster, folder.directory.bytes());
  if (error != ERROR_SUCCESS) folders_.erase(cluster);
  return error;
}

}  // namespace simulator
