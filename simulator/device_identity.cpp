#include "simulator/device_identity.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/win32_device_types.h"

namespace simulator {
namespace {

constexpr std::size_t kTextsOffset = offsetof(STORAGE_DEVICE_DESCRIPTOR, RawDeviceProperties);
constexpr std::size_t kGeometryLength = offsetof(DISK_GEOMETRY_EX, Data);

// Disks of any size are told to have these.
constexpr DWORD kTracksPerCylinder = 255;
constexpr DWORD kSectorsPerTrack = 63;

std::string PaddedNumber(std::uint32_t number) {
  const std::string digits = std::to_string(number);
  return std::string(digits.size() < 8 ? 8 - digits.size() : 0, '0') + digits;
}

std::vector<std::byte> Descriptor(const DeviceIdentity& identity) {
  // Where the structure has its raw properties, the texts begin.
  const std::string text = identity.serial_number.value_or("");
  std::vector<std::byte> bytes(
      std::max(sizeof(STORAGE_DEVICE_DESCRIPTOR), kTextsOffset + text.size() + 1));
  std::transform(text.begin(), text.end(), bytes.begin() + kTextsOffset,
                 [](char c) { return static_cast<std::byte>(c); });
  bytes.resize(identity.told_size.value_or(static_cast<DWORD>(bytes.size())));

  STORAGE_DEVICE_DESCRIPTOR fixed{};
  fixed.Version = sizeof(STORAGE_DEVICE_DESCRIPTOR);
  fixed.Size = static_cast<DWORD>(bytes.size());
  fixed.BusType = BusTypeSata;
  fixed.SerialNumberOffset = identity.told_serial_offset.value_or(
      identity.serial_number ? static_cast<DWORD>(kTextsOffset) : 0);
  std::memcpy(bytes.data(), &fixed, std::min(kTextsOffset, bytes.size()));
  return bytes;
}

bool AsksForDescriptor(std::span<const std::byte> in) {
  // Both are looked at as numbers: a caller may ask for what is no value of the enumerations.
  DWORD property = 0;
  DWORD kind = 0;
  std::memcpy(&property, in.data() + offsetof(STORAGE_PROPERTY_QUERY, PropertyId), sizeof property);
  std::memcpy(&kind, in.data() + offsetof(STORAGE_PROPERTY_QUERY, QueryType), sizeof kind);
  return property == StorageDeviceProperty && kind == PropertyStandardQuery;
}

}  // namespace

DeviceIdentity DefaultIdentity(std::uint32_t number) {
  DeviceIdentity identity;
  identity.interface_path = "\\\\?\\scsi#disk&ven_sim&prod_disk#4&5ac1b2e&0&" +
                            PaddedNumber(number) + "#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}";
  identity.serial_number = "SIM-" + PaddedNumber(number);
  return identity;
}

DWORD QueryProperty(const DeviceIdentity& identity, std::span<const std::byte> in,
                    std::span<std::byte> out, DWORD& returned) {
  if (in.size() < sizeof(STORAGE_PROPERTY_QUERY)) return ERROR_INVALID_PARAMETER;
  if (!AsksForDescriptor(in)) return ERROR_INVALID_FUNCTION;
  if (out.size() < sizeof(STORAGE_DESCRIPTOR_HEADER)) return ERROR_BAD_LENGTH;
  std::vector<std::byte> bytes = Descriptor(identity);
  if (bytes.size() < sizeof(STORAGE_DESCRIPTOR_HEADER)) {
    // The header tells even a size that it does not fit in.
    const STORAGE_DESCRIPTOR_HEADER header{sizeof(STORAGE_DEVICE_DESCRIPTOR),
                                           static_cast<DWORD>(bytes.size())};
    bytes.resize(sizeof header);
    std::memcpy(bytes.data(), &header, sizeof header);
  }
  const std::size_t length = std::min(bytes.size(), out.size());
  std::memcpy(out.data(), bytes.data(), length);
  returned = static_cast<DWORD>(length);
  return ERROR_SUCCESS;
}

DWORD QueryGeometry(std::uint64_t disk_size, std::uint32_t sector_size, std::span<std::byte> out,
                    DWORD& returned) {
  if (out.size() < kGeometryLength) return ERROR_INSUFFICIENT_BUFFER;
  DISK_GEOMETRY_EX geometry{};
  const std::uint64_t cylinder = std::uint64_t{kTracksPerCylinder} * kSectorsPerTrack * sector_size;
  geometry.Geometry.Cylinders.QuadPart = static_cast<LONGLONG>(disk_size / cylinder);
  geometry.Geometry.MediaType = FixedMedia;
  geometry.Geometry.TracksPerCylinder = kTracksPerCylinder;
  geometry.Geometry.SectorsPerTrack = kSectorsPerTrack;
  geometry.Geometry.BytesPerSector = sector_size;
  geometry.DiskSize.QuadPart = static_cast<LONGLONG>(disk_size);
  const std::size_t length = std::min(sizeof geometry, out.size());
  std::memcpy(out.data(), &geometry, length);
  returned = static_cast<DWORD>(length);
  return ERROR_SUCCESS;
}

}  // namespace simulator
