#include "simulator/disk_device.h"

#include "platform/win32_device_types.h"
#include "simulator/system.h"
#include "simulator/write_rules.h"

namespace simulator {
namespace {

constexpr std::size_t kLayoutHeaderLength = offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry);
constexpr std::size_t kRowLength = sizeof(PARTITION_INFORMATION_EX);

// A style is looked at as a number first: a caller's buffer may hold anything, which would be no
// value of the enumeration.
bool StartsWithKnownStyle(std::span<const std::byte> bytes) {
  DWORD style = 0;
  std::memcpy(&style, bytes.data(), sizeof style);
  return style <= PARTITION_STYLE_RAW;
}

// Believed: a row of an unknown style is error 87.
DWORD ParseLayout(std::span<const std::byte> in, DiskLayout& layout) {
  if (in.size() < sizeof(DRIVE_LAYOUT_INFORMATION_EX)) return ERROR_BAD_LENGTH;
  std::memcpy(&layout.header, in.data(), kLayoutHeaderLength);
  const std::size_t count = layout.header.PartitionCount;
  if ((in.size() - kLayoutHeaderLength) / kRowLength < count) return ERROR_BAD_LENGTH;
  for (std::size_t i = 0; i < count; ++i) {
    const auto bytes = in.subspan(kLayoutHeaderLength + i * kRowLength, kRowLength);
    if (!StartsWithKnownStyle(bytes)) return ERROR_INVALID_PARAMETER;
    PARTITION_INFORMATION_EX row;
    std::memcpy(&row, bytes.data(), kRowLength);
    layout.rows.push_back(row);
  }
  return ERROR_SUCCESS;
}

DWORD AnswerWithLayout(const DiskLayout& layout, std::span<std::byte> out, DWORD& returned) {
  const std::size_t length = kLayoutHeaderLength + layout.rows.size() * kRowLength;
  if (out.size() < length) return ERROR_INSUFFICIENT_BUFFER;
  std::memcpy(out.data(), &layout.header, kLayoutHeaderLength);
  for (std::size_t i = 0; i < layout.rows.size(); ++i) {
    std::memcpy(out.data() + kLayoutHeaderLength + i * kRowLength, &layout.rows[i], kRowLength);
  }
  returned = static_cast<DWORD>(length);
  return ERROR_SUCCESS;
}

}  // namespace

DWORD DiskDevice::CheckRange(std::size_t length) {
  const BlockDevice& device = disk_.device();
  if (!IsAligned(device.sector_size(), position(), length)) return ERROR_INVALID_PARAMETER;
  const bool inside = position() <= device.size() && length <= device.size() - position();
  return inside ? ERROR_SUCCESS : ERROR_SECTOR_NOT_FOUND;
}

DWORD DiskDevice::Read(std::span<std::byte> buffer, DWORD& done) {
  if (!readable()) return ERROR_ACCESS_DENIED;
  const DWORD error = CheckRange(buffer.size());
  if (error != ERROR_SUCCESS) return error;
  if (!disk_.device().Read(position(), buffer)) return ERROR_READ_FAULT;
  Advance(buffer.size());
  done = static_cast<DWORD>(buffer.size());
  return ERROR_SUCCESS;
}

DWORD DiskDevice::Write(std::span<const std::byte> data, DWORD& done) {
  if (!writable()) return ERROR_ACCESS_DENIED;
  const DWORD error = CheckRange(data.size());
  if (error != ERROR_SUCCESS) return error;
  if (!DiskWriteAllowed(system_.volumes(), disk_.number(), position(), data.size())) {
    return ERROR_ACCESS_DENIED;
  }
  if (!disk_.device().Write(position(), data)) return ERROR_WRITE_FAULT;
  Advance(data.size());
  done = static_cast<DWORD>(data.size());
  return ERROR_SUCCESS;
}

DWORD DiskDevice::Answer(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
                         DWORD& returned) {
  switch (code) {
    case IOCTL_DISK_GET_PARTITION_INFO_EX:
      return GetPartitionInfo(out, returned);
    case IOCTL_DISK_GET_DRIVE_LAYOUT_EX:
      return GetDriveLayout(out, returned);
    case IOCTL_DISK_SET_DRIVE_LAYOUT_EX:
      return SetDriveLayout(in, out, returned);
    case IOCTL_DISK_CREATE_DISK:
      return CreateDisk(in);
    case IOCTL_DISK_UPDATE_PROPERTIES:
      system_.UpdateProperties(disk_);
      return ERROR_SUCCESS;
    case IOCTL_STORAGE_GET_DEVICE_NUMBER:
      return AnswerWith(STORAGE_DEVICE_NUMBER{FILE_DEVICE_DISK, disk_.number(), 0}, out, returned);
    case IOCTL_STORAGE_QUERY_PROPERTY:
      return QueryProperty(disk_.identity, in, out, returned);
    case IOCTL_DISK_GET_DRIVE_GEOMETRY_EX:
      return QueryGeometry(disk_.device().size(), disk_.device().sector_size(), out, returned);
    case FSCTL_DISMOUNT_VOLUME:
    case FSCTL_MOVE_FILE:
      return ERROR_INVALID_PARAMETER;  // a disk is no volume
    default:
      return ERROR_INVALID_FUNCTION;
  }
}

DWORD DiskDevice::FlushWritten() {
  return disk_.device().Flush() ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}

DWORD DiskDevice::GetPartitionInfo(std::span<std::byte> out, DWORD& returned) {
  DiskLayout layout;
  const DWORD error = disk_.Layout(layout);
  if (error != ERROR_SUCCESS) return error;
  PARTITION_INFORMATION_EX info{};
  info.PartitionStyle = static_cast<PARTITION_STYLE>(layout.header.PartitionStyle);
  info.PartitionLength.QuadPart = static_cast<LONGLONG>(disk_.device().size());
  return AnswerWith(info, out, returned);
}

DWORD DiskDevice::GetDriveLayout(std::span<std::byte> out, DWORD& returned) {
  DiskLayout layout;
  const DWORD error = disk_.Layout(layout);
  return error != ERROR_SUCCESS ? error : AnswerWithLayout(layout, out, returned);
}

DWORD DiskDevice::SetDriveLayout(std::span<const std::byte> in, std::span<std::byte> out,
                                 DWORD& returned) {
  DiskLayout layout;
  DWORD error = ParseLayout(in, layout);
  if (error == ERROR_SUCCESS) error = system_.SetLayout(disk_, layout);
  if (error != ERROR_SUCCESS || out.empty()) return error;
  // Believed: a buffer that is too short for the answer is left alone, and the call succeeds.
  AnswerWithLayout(layout, out, returned);
  return ERROR_SUCCESS;
}

DWORD DiskDevice::CreateDisk(std::span<const std::byte> in) {
  if (in.size() < sizeof(CREATE_DISK)) return ERROR_BAD_LENGTH;
  if (!StartsWithKnownStyle(in)) return ERROR_NOT_SUPPORTED;
  CREATE_DISK request;
  std::memcpy(&request, in.data(), sizeof request);
  return system_.CreateDisk(disk_, request);
}

}  // namespace simulator
