#include "simulator/volume_file_device.h"

#include <utility>

#include "simulator/fat32_controls.h"
#include "simulator/system.h"
#include "simulator/volume_device.h"

namespace simulator {

VolumeFileDevice::VolumeFileDevice(System& system, const Volume& volume, const Fat32FileId& id,
                                   std::string path, DWORD access)
    : DeviceObject(access),
      system_(system),
      path_(std::move(path)),
      id_(id),
      arrival_(volume.arrival),
      dismount_count_(volume.dismount_count) {}

Fat32Files* VolumeFileDevice::Files() const {
  const Volume* volume = system_.FindVolumeByArrival(arrival_);
  if (volume == nullptr || volume->dismount_count != dismount_count_) return nullptr;
  return volume->fat32.get();
}

DWORD VolumeFileDevice::Read(std::span<std::byte> buffer, DWORD& done) {
  if (!readable()) return ERROR_ACCESS_DENIED;
  Fat32Files* files = Files();
  if (files == nullptr) return ERROR_NOT_READY;
  Fat32Entry entry;
  DWORD error = files->Look(id_, entry);
  if (error != ERROR_SUCCESS) return error;
  if (entry.is_folder) return ERROR_INVALID_FUNCTION;
  std::size_t bytes = 0;
  error = files->ReadPart(id_, position(), buffer, bytes);
  if (error != ERROR_SUCCESS) return error;
  Advance(bytes);
  done = static_cast<DWORD>(bytes);
  return ERROR_SUCCESS;
}

DWORD VolumeFileDevice::Answer(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
                               DWORD& returned) {
  Fat32Files* files = Files();
  if (files == nullptr) return ERROR_NOT_READY;
  switch (code) {
    case FSCTL_GET_RETRIEVAL_POINTERS:
      return GetRetrievalPointers(*files, id_, in, out, returned);
    case FSCTL_DISMOUNT_VOLUME:
    case FSCTL_MOVE_FILE:
      return ERROR_INVALID_PARAMETER;  // a file is no volume
    default:
      return ERROR_INVALID_FUNCTION;
  }
}

DWORD VolumeFileDevice::End(std::uint64_t& end) {
  Fat32Files* files = Files();
  if (files == nullptr) return ERROR_NOT_READY;
  Fat32Entry entry;
  const DWORD error = files->Look(id_, entry);
  end = entry.size;
  return error;
}

DWORD VolumeFileDevice::FlushWritten() {
  Fat32Files* files = Files();
  if (files == nullptr) return ERROR_NOT_READY;
  const DWORD error = files->Flush();
  if (error != ERROR_SUCCESS) return error;
  return FlushDisksOf(system_, *system_.FindVolumeByArrival(arrival_));
}

DWORD OpenVolumeFile(System& system, const VolumePath& place, const OpenRequest& request,
                     std::unique_ptr<HandleObject>& object, bool& existed) {
  const Volume& volume = *place.volume;
  if (volume.fat32 == nullptr) return ERROR_PATH_NOT_FOUND;
  Fat32FileId id;
  Fat32Entry entry;
  DWORD error = volume.fat32->Find(place.inner, id);
  if (error == ERROR_SUCCESS) error = volume.fat32->Look(id, entry);
  if (error != ERROR_SUCCESS) return error;
  existed = true;
  if (request.disposition != OPEN_EXISTING) return ERROR_NOT_SUPPORTED;
  if (entry.is_folder && (request.flags & FILE_FLAG_BACKUP_SEMANTICS) == 0) {
    return ERROR_ACCESS_DENIED;
  }
  const bool read_only = !entry.is_folder && (entry.attributes & FILE_ATTRIBUTE_READONLY) != 0;
  if (read_only && (request.access & GENERIC_WRITE) != 0) return ERROR_ACCESS_DENIED;
  object = std::make_unique<VolumeFileDevice>(system, volume, id, std::string(request.path),
                                              request.access);
  return ERROR_SUCCESS;
}

}  // namespace simulator
