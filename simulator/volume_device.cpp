#include "simulator/volume_device.h"

#include <algorithm>

#include "simulator/disk.h"
#include "simulator/fat32_controls.h"
#include "simulator/system.h"
#include "simulator/write_rules.h"

namespace simulator {
namespace {

constexpr DWORD kErrorNotLocked = 158;
// Believed: a volume whose partition went away answers like a dismounted one.
constexpr DWORD kErrorVolumeGone = ERROR_NOT_READY;

constexpr std::size_t kExtentsHeaderLength = offsetof(VOLUME_DISK_EXTENTS, Extents);

}  // namespace

DWORD FlushDisksOf(System& system, const Volume& volume) {
  for (const VolumeExtent& extent : volume.extents) {
    Disk* disk = system.FindDisk(extent.disk_number);
    if (disk == nullptr) return kErrorVolumeGone;
    if (!disk->device().Flush()) return ERROR_WRITE_FAULT;
  }
  return ERROR_SUCCESS;
}

VolumeDevice::VolumeDevice(System& system, const Volume& volume, DWORD access)
    : DeviceObject(access),
      system_(system),
      path_(volume.path),
      arrival_(volume.arrival),
      dismount_count_(volume.dismount_count) {}

VolumeDevice::~VolumeDevice() {
  Unlock();
}

Volume* VolumeDevice::Find() const {
  return system_.FindVolumeByArrival(arrival_);
}

bool VolumeDevice::IsUsable(const Volume* volume) const {
  return volume != nullptr && volume->dismount_count == dismount_count_;
}

// A transfer at or behind the end does nothing and succeeds; one that crosses it is trimmed. Known
// of reads from FAT volumes, believed of the rest.
DWORD VolumeDevice::FindRange(const Volume& volume, std::size_t length, Range& range) const {
  if (volume.extents.size() != 1) return ERROR_NOT_READY;
  const VolumeExtent& extent = volume.extents.front();
  Disk* disk = system_.FindDisk(extent.disk_number);
  if (disk == nullptr) return ERROR_NOT_READY;
  if (!IsAligned(disk->device().sector_size(), position(), length)) return ERROR_INVALID_PARAMETER;
  const std::uint64_t left = position() < extent.length ? extent.length - position() : 0;
  range.device = &disk->device();
  range.offset = extent.offset + std::min(position(), extent.length);
  range.length = static_cast<std::size_t>(std::min<std::uint64_t>(length, left));
  // A table may claim more than the disk has, and more than 64 bits hold.
  const std::uint64_t size = range.device->size();
  const bool inside =
      range.offset >= extent.offset && range.offset <= size && range.length <= size - range.offset;
  return inside || range.length == 0 ? ERROR_SUCCESS : ERROR_SECTOR_NOT_FOUND;
}

DWORD VolumeDevice::Read(std::span<std::byte> buffer, DWORD& done) {
  if (!readable()) return ERROR_ACCESS_DENIED;
  const Volume* volume = Find();
  if (!IsUsable(volume)) return kErrorVolumeGone;
  Range range;
  const DWORD error = FindRange(*volume, buffer.size(), range);
  if (error != ERROR_SUCCESS || range.length == 0) return error;
  if (!range.device->Read(range.offset, buffer.first(range.length))) return ERROR_READ_FAULT;
  Advance(range.length);
  done = static_cast<DWORD>(range.length);
  return ERROR_SUCCESS;
}

DWORD VolumeDevice::Write(std::span<const std::byte> data, DWORD& done) {
  if (!writable()) return ERROR_ACCESS_DENIED;
  const Volume* volume = Find();
  if (!IsUsable(volume)) return kErrorVolumeGone;
  Range range;
  const DWORD error = FindRange(*volume, data.size(), range);
  if (error != ERROR_SUCCESS || range.length == 0) return error;
  if (!VolumeWriteAllowed(*volume, position(), range.length)) return ERROR_ACCESS_DENIED;
  if (!range.device->Write(range.offset, data.first(range.length))) return ERROR_WRITE_FAULT;
  Advance(range.length);
  done = static_cast<DWORD>(range.length);
  return ERROR_SUCCESS;
}

DWORD VolumeDevice::Answer(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
                           DWORD& returned) {
  switch (code) {
    case IOCTL_STORAGE_GET_DEVICE_NUMBER:
      return GetDeviceNumber(out, returned);
    case IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS:
      return GetExtents(out, returned);
    case FSCTL_LOCK_VOLUME:
      return Lock();
    case FSCTL_UNLOCK_VOLUME:
      return Unlock();
    case FSCTL_DISMOUNT_VOLUME:
      return Dismount();
    case FSCTL_GET_VOLUME_BITMAP:
      return OnFat32(
          [&](const Volume& volume) { return GetVolumeBitmap(*volume.fat32, in, out, returned); });
    case FSCTL_MOVE_FILE:
      return OnFat32([&](const Volume& volume) { return MoveClusters(system_, volume, in); });
    default:
      return ERROR_INVALID_FUNCTION;
  }
}

DWORD VolumeDevice::FlushWritten() {
  const Volume* volume = Find();
  return IsUsable(volume) ? FlushDisksOf(system_, *volume) : kErrorVolumeGone;
}

// A dismounted volume has no file system that could answer. Of the file systems that Windows
// mounts, the machine knows the inside of FAT32 alone.
template <typename Operation>
DWORD VolumeDevice::OnFat32(const Operation& operation) const {
  const Volume* volume = Find();
  if (!IsUsable(volume) || volume->dismounted) return kErrorVolumeGone;
  return volume->fat32 == nullptr ? ERROR_INVALID_FUNCTION : operation(*volume);
}

// Only a volume on one partition has a number.
DWORD VolumeDevice::GetDeviceNumber(std::span<std::byte> out, DWORD& returned) const {
  const Volume* volume = Find();
  if (volume == nullptr) return kErrorVolumeGone;
  if (volume->extents.size() != 1) return ERROR_INVALID_FUNCTION;
  const STORAGE_DEVICE_NUMBER number{FILE_DEVICE_DISK, volume->extents.front().disk_number,
                                     volume->partition_number};
  return AnswerWith(number, out, returned);
}

DWORD VolumeDevice::GetExtents(std::span<std::byte> out, DWORD& returned) const {
  const Volume* volume = Find();
  if (volume == nullptr) return kErrorVolumeGone;
  if (volume->extents.empty()) return ERROR_INVALID_FUNCTION;
  if (out.size() < sizeof(VOLUME_DISK_EXTENTS)) return ERROR_INSUFFICIENT_BUFFER;
  const auto count = static_cast<DWORD>(volume->extents.size());
  const std::size_t length = kExtentsHeaderLength + count * sizeof(DISK_EXTENT);
  std::memcpy(out.data(), &count, sizeof count);
  if (out.size() < length) {
    returned = static_cast<DWORD>(kExtentsHeaderLength);
    return ERROR_MORE_DATA;
  }
  for (std::size_t i = 0; i < count; ++i) {
    DISK_EXTENT extent{};
    extent.DiskNumber = volume->extents[i].disk_number;
    extent.StartingOffset.QuadPart = static_cast<LONGLONG>(volume->extents[i].offset);
    extent.ExtentLength.QuadPart = static_cast<LONGLONG>(volume->extents[i].length);
    std::memcpy(out.data() + kExtentsHeaderLength + i * sizeof extent, &extent, sizeof extent);
  }
  returned = static_cast<DWORD>(length);
  return ERROR_SUCCESS;
}

DWORD VolumeDevice::Lock() {
  Volume* volume = Find();
  if (!IsUsable(volume)) return kErrorVolumeGone;
  if (volume->locked) return ERROR_ACCESS_DENIED;
  volume->locked = true;
  holds_lock_ = true;
  return ERROR_SUCCESS;
}

DWORD VolumeDevice::Unlock() {
  if (!holds_lock_) return kErrorNotLocked;
  holds_lock_ = false;
  Volume* volume = Find();
  if (volume == nullptr) return kErrorVolumeGone;
  volume->locked = false;
  return ERROR_SUCCESS;
}

// All other handles of the volume are of no use from here on; this one stays good.
DWORD VolumeDevice::Dismount() {
  Volume* volume = Find();
  if (!IsUsable(volume) || volume->dismounted) return ERROR_NOT_READY;
  if (volume->locked && !holds_lock_) return ERROR_ACCESS_DENIED;
  const DWORD error = volume->fat32 == nullptr ? ERROR_SUCCESS : volume->fat32->Flush();
  if (error != ERROR_SUCCESS) return error;
  volume->mounted = false;
  volume->fat32.reset();
  volume->dismounted = true;
  dismount_count_ = ++volume->dismount_count;
  return ERROR_SUCCESS;
}

}  // namespace simulator
