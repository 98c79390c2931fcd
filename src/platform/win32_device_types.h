// What a disk tells of itself, and the device setup services, in the manner of win32_types.h: the
// SDK's own on Windows, the same names and layouts elsewhere.
//
// Public source: Microsoft's documentation of ntddstor.h, winioctl.h and setupapi.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/win32_types.h"

#ifdef _WIN32

#include <setupapi.h>

#else

inline constexpr DWORD IOCTL_DISK_GET_DRIVE_GEOMETRY_EX = 0x700A0;
inline constexpr DWORD IOCTL_STORAGE_QUERY_PROPERTY = 0x2D1400;
inline constexpr DWORD DIGCF_PRESENT = 2;
inline constexpr DWORD DIGCF_DEVICEINTERFACE = 0x10;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;

enum STORAGE_PROPERTY_ID { StorageDeviceProperty = 0 };
enum STORAGE_QUERY_TYPE { PropertyStandardQuery = 0 };
enum STORAGE_BUS_TYPE { BusTypeSata = 11 };
enum MEDIA_TYPE { FixedMedia = 12 };

struct STORAGE_PROPERTY_QUERY {
  STORAGE_PROPERTY_ID PropertyId;
  STORAGE_QUERY_TYPE QueryType;
  BYTE AdditionalParameters[1];
};

struct STORAGE_DESCRIPTOR_HEADER {
  DWORD Version;
  DWORD Size;
};

struct STORAGE_DEVICE_DESCRIPTOR {
  DWORD Version;
  DWORD Size;
  BYTE DeviceType;
  BYTE DeviceTypeModifier;
  BOOLEAN RemovableMedia;
  BOOLEAN CommandQueueing;
  DWORD VendorIdOffset;
  DWORD ProductIdOffset;
  DWORD ProductRevisionOffset;
  DWORD SerialNumberOffset;
  STORAGE_BUS_TYPE BusType;
  DWORD RawPropertiesLength;
  BYTE RawDeviceProperties[1];
};

struct DISK_GEOMETRY {
  LARGE_INTEGER Cylinders;
  MEDIA_TYPE MediaType;
  DWORD TracksPerCylinder;
  DWORD SectorsPerTrack;
  DWORD BytesPerSector;
};

struct DISK_GEOMETRY_EX {
  DISK_GEOMETRY Geometry;
  LARGE_INTEGER DiskSize;
  BYTE Data[1];
};

using HDEVINFO = void*;

struct SP_DEVINFO_DATA {
  DWORD cbSize;
  GUID ClassGuid;
  DWORD DevInst;
  std::uintptr_t Reserved;
};

struct SP_DEVICE_INTERFACE_DATA {
  DWORD cbSize;
  GUID InterfaceClassGuid;
  DWORD Flags;
  std::uintptr_t Reserved;
};

struct SP_DEVICE_INTERFACE_DETAIL_DATA_A {
  DWORD cbSize;
  char DevicePath[1];
};

#endif

static_assert(IOCTL_DISK_GET_DRIVE_GEOMETRY_EX == 0x700A0);
static_assert(IOCTL_STORAGE_QUERY_PROPERTY == 0x2D1400);
static_assert((DIGCF_PRESENT | DIGCF_DEVICEINTERFACE) == 18);
static_assert(sizeof(STORAGE_PROPERTY_QUERY) == 12);
static_assert(offsetof(STORAGE_PROPERTY_QUERY, QueryType) == 4);
static_assert(sizeof(STORAGE_DESCRIPTOR_HEADER) == 8);
static_assert(offsetof(STORAGE_DESCRIPTOR_HEADER, Size) == 4);
static_assert(sizeof(STORAGE_DEVICE_DESCRIPTOR) == 40);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, Size) == 4);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset) == 24);
static_assert(offsetof(STORAGE_DEVICE_DESCRIPTOR, RawDeviceProperties) == 36);
static_assert(sizeof(DISK_GEOMETRY_EX) == 40);
static_assert(offsetof(DISK_GEOMETRY_EX, DiskSize) == 24);
static_assert(offsetof(DISK_GEOMETRY_EX, Data) == 32);
static_assert(sizeof(SP_DEVINFO_DATA) == 32);
static_assert(sizeof(SP_DEVICE_INTERFACE_DATA) == 32);
static_assert(sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A) == 8);
static_assert(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath) == 4);
