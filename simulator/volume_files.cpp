#include "simulator/volume_files.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "simulator/memory_files.h"
#include "simulator/simulated_machine.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/system.h"
#include "simulator/text.h"
#include "simulator/volume.h"
#include "simulator/volume_path.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

DWORD MissingOnHost(const fs::path& path) {
  if (fs::is_directory(path)) return ERROR_ACCESS_DENIED;
  if (fs::exists(path)) return ERROR_SUCCESS;
  return fs::is_directory(path.parent_path()) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

DWORD ReadOnHost(const fs::path& path, std::string& content) {
  const DWORD error = MissingOnHost(path);
  if (error != ERROR_SUCCESS) return error;
  std::ifstream file(path, std::ios::binary);
  if (!file) return ERROR_ACCESS_DENIED;
  content.assign(std::istreambuf_iterator<char>(file), {});
  return ERROR_SUCCESS;
}

DWORD WriteOnHost(const fs::path& path, std::string_view content) {
  std::error_code failure;
  fs::create_directories(path.parent_path(), failure);
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content << std::flush;
  return file ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

DWORD RemoveOnHost(const fs::path& path) {
  const DWORD error = MissingOnHost(path);
  if (error != ERROR_SUCCESS) return error;
  std::error_code failure;
  return fs::remove(path, failure) ? ERROR_SUCCESS : ERROR_ACCESS_DENIED;
}

// The folders in front of the last name, each made unless it is there.
DWORD MakeFolders(Fat32Files& files, std::string_view path) {
  const auto names = SplitPath(path);
  if (!names || names->empty()) return ERROR_INVALID_NAME;
  std::string folder;
  for (std::size_t i = 0; i + 1 < names->size(); ++i) {
    folder.append("\\").append((*names)[i]);
    const DWORD error = files.MakeFolder(folder);
    if (error != ERROR_SUCCESS && error != ERROR_ALREADY_EXISTS) return error;
  }
  return ERROR_SUCCESS;
}

DWORD WriteTo(Fat32Files& files, std::string_view path, std::string_view content) {
  const DWORD error = MakeFolders(files, path);
  return error == ERROR_SUCCESS ? files.Write(path, content) : error;
}

DWORD WriteTo(MemoryFiles& files, std::string_view path, std::string_view content) {
  return files.Write(path, content);
}

DWORD AttributesOf(const Fat32Entry& entry) {
  return entry.attributes == 0 ? FILE_ATTRIBUTE_NORMAL : DWORD{entry.attributes};
}

DWORD ListFolder(Fat32Files& fat32, std::string_view path, std::vector<ListedFile>& files) {
  std::vector<Fat32Entry> entries;
  const DWORD error = fat32.List(path, entries);
  if (error != ERROR_SUCCESS) return error;
  files.clear();
  const auto names = SplitPath(path);
  if (names && !names->empty()) {
    for (const char* link : {".", ".."}) files.push_back({link, {}, FILE_ATTRIBUTE_DIRECTORY, 0});
  }
  for (const Fat32Entry& entry : entries) {
    const bool is_long = entry.name != entry.short_name;
    files.push_back(
        {entry.name, is_long ? entry.short_name : std::string(), AttributesOf(entry), entry.size});
  }
  return ERROR_SUCCESS;
}

// Calls `operation` with the files of a volume that is mounted.
template <typename Operation>
DWORD WithFiles(System& system, const Volume& volume, const Operation& operation) {
  if (volume.fat32 != nullptr) return operation(*volume.fat32);
  const VolumeExtent& extent = volume.extents.front();
  return operation(system.memory_files(extent.disk_number, extent.offset));
}

}  // namespace

VolumeFiles::VolumeFiles(SimulatedMachine& machine) : VolumeFiles(machine.system()) {}

DWORD WriteVolumeFile(System& system, const Volume& volume, std::string_view path_on_volume,
                      std::string_view content) {
  return WithFiles(system, volume,
                   [&](auto& files) { return WriteTo(files, path_on_volume, content); });
}

template <typename Operation>
DWORD VolumeFiles::OnVolume(std::string_view path, const Operation& operation) {
  VolumePath place;
  const DWORD error = FindVolumePath(system_, path, place);
  if (error != ERROR_SUCCESS) return error;
  return WithFiles(system_, *place.volume,
                   [&](auto& files) { return operation(files, place.inner); });
}

bool VolumeFiles::Exists(std::string_view path) {
  if (const auto host_path = system_.HostPath(WithoutVerbatimPrefix(path)))
    return fs::exists(*host_path);
  const auto look = [](auto& files, std::string_view inner) -> DWORD {
    return files.Exists(inner) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
  };
  return OnVolume(path, look) == ERROR_SUCCESS;
}

DWORD VolumeFiles::Read(std::string_view path, std::string& content) {
  if (const auto host_path = system_.HostPath(WithoutVerbatimPrefix(path)))
    return ReadOnHost(*host_path, content);
  return OnVolume(path,
                  [&](auto& files, std::string_view inner) { return files.Read(inner, content); });
}

DWORD VolumeFiles::Write(std::string_view path, std::string_view content) {
  if (const auto host_path = system_.HostPath(WithoutVerbatimPrefix(path)))
    return WriteOnHost(*host_path, content);
  return OnVolume(
      path, [&](auto& files, std::string_view inner) { return WriteTo(files, inner, content); });
}

DWORD VolumeFiles::Remove(std::string_view path) {
  if (const auto host_path = system_.HostPath(WithoutVerbatimPrefix(path)))
    return RemoveOnHost(*host_path);
  return OnVolume(path, [](auto& files, std::string_view inner) { return files.Remove(inner); });
}

DWORD VolumeFiles::SetAttributes(std::string_view path, DWORD attributes) {
  if (const auto host_path = system_.HostPath(WithoutVerbatimPrefix(path))) {
    return fs::is_directory(*host_path) ? ERROR_SUCCESS : MissingOnHost(*host_path);
  }
  return OnVolume(path, [&](auto& files, std::string_view inner) {
    return files.SetAttributes(inner, attributes);
  });
}

DWORD VolumeFiles::List(std::string_view path, std::vector<ListedFile>& files) {
  if (system_.HostPath(WithoutVerbatimPrefix(path))) return ERROR_NOT_SUPPORTED;
  VolumePath place;
  const DWORD error = FindVolumePath(system_, path, place);
  if (error != ERROR_SUCCESS) return error;
  if (place.volume->fat32 == nullptr) return ERROR_NOT_SUPPORTED;
  return ListFolder(*place.volume->fat32, place.inner, files);
}

}  // namespace simulator
