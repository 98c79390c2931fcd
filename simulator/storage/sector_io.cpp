#include "simulator/storage/sector_io.h"

namespace simulator {
namespace {

bool OnDisk(const BlockDevice& device, std::uint64_t sector, std::size_t bytes) {
  const std::uint64_t count = bytes / device.sector_size();
  return sector <= device.sector_count() && count <= device.sector_count() - sector;
}

}  // namespace

DWORD ReadSectors(BlockDevice& device, std::uint64_t sector, std::span<std::byte> buffer) {
  if (!OnDisk(device, sector, buffer.size())) return ERROR_SECTOR_NOT_FOUND;
  return device.Read(sector * device.sector_size(), buffer) ? ERROR_SUCCESS : ERROR_READ_FAULT;
}

DWORD WriteSectors(BlockDevice& device, std::uint64_t sector, std::span<const std::byte> data) {
  if (!OnDisk(device, sector, data.size())) return ERROR_SECTOR_NOT_FOUND;
  return device.Write(sector * device.sector_size(), data) ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}

}  // namespace simulator
