// Control codes as the record of calls names them.
#pragma once

namespace campaign {

inline constexpr char kGetStyle[] = "DeviceIoControl/IOCTL_DISK_GET_PARTITION_INFO_EX";
inline constexpr char kGetLayout[] = "DeviceIoControl/IOCTL_DISK_GET_DRIVE_LAYOUT_EX";
inline constexpr char kSetLayout[] = "DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX";
inline constexpr char kCreateDisk[] = "DeviceIoControl/IOCTL_DISK_CREATE_DISK";
inline constexpr char kUpdate[] = "DeviceIoControl/IOCTL_DISK_UPDATE_PROPERTIES";
inline constexpr char kDeviceNumber[] = "DeviceIoControl/IOCTL_STORAGE_GET_DEVICE_NUMBER";
inline constexpr char kExtents[] = "DeviceIoControl/IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS";
inline constexpr char kDismount[] = "DeviceIoControl/FSCTL_DISMOUNT_VOLUME";

}  // namespace campaign
