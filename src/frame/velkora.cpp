#include "frame/velkora.h"

#include "convert/gpt_to_mbr.h"
#include "convert/mbr_to_gpt.h"
#include "disk/device_handle.h"
#include "frame/disk_records.h"
#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/guard.h"
#include "platform/win32.h"

namespace velkora {
namespace {

// Refuses only a plain contradiction between the record and the system; a raw disk on either side
// passes.
bool CheckDiskStyle(const Velkora& converter) {
  PARTITION_INFORMATION_EX information{};
  DWORD returned = 0;
  if (!win32::DeviceIoControl(converter.disk_handle, IOCTL_DISK_GET_PARTITION_INFO_EX, nullptr, 0,
                              &information, sizeof information, &returned, nullptr)) {
    LogEx(kLogModule, kLogError, "DeviceIoControl with IOCTL_DISK_GET_PARTITION_INFO_EX error %lu",
          static_cast<unsigned long>(win32::GetLastError()));
    return false;
  }
  const PARTITION_STYLE style = information.PartitionStyle;
  const DiskType type = converter.disk_info->disk_type;
  if ((style == PARTITION_STYLE_MBR && type == DiskType::kGpt) ||
      (style == PARTITION_STYLE_GPT && type == DiskType::kMbr)) {
    LogEx(kLogModule, kLogError, "Disk type (GPT/MBR) check conflict! stop convert.");
    return false;
  }
  return true;
}

bool ConvertByType(Velkora& converter) {
  switch (converter.disk_info->disk_type) {
    case DiskType::kGpt:
      return ConvertGptToMbr(converter);
    case DiskType::kMbr:
      return ConvertMbrToGpt(converter);
    default:
      LogEx(kLogModule, kLogWarning, "Disk type is raw!");
      return false;
  }
}

// Opens the disk, converts it, and closes it in any case.
bool ConvertDisk(Velkora& converter) {
  const DiskInfo& disk = *converter.disk_info;
  converter.disk_handle = GetDeviceHandleById(FieldText(disk.id).c_str());
  if (converter.disk_handle == INVALID_HANDLE_VALUE) return false;
  bool converted = false;
  win32::Catching([&] {
    GetGlobalContext().is_system = disk.is_system;
    converted = CheckDiskStyle(converter) && ConvertByType(converter);
  });
  CloseDeviceHandle(converter.disk_handle);
  return converted;
}

}  // namespace

std::int32_t Velkora::Convert(DiskInfo* disk, VelkoraCallback progress) {
  disk_info = disk;
  callback = progress;
  bool converted = false;
  win32::Catching([&] {
    LogDiskInfo(*disk);
    converted = ConvertDisk(*this);
  });
  return converted ? 0 : 1;
}

void Velkora::Stop() {
  win32::Catching([] {
    GetGlobalContext().stop_requested.exchange(1);
    LogEx(kLogModule, kLogProgress, "Set Convert Stop!");
  });
}

}  // namespace velkora
