#include "simulator/storage/partition_store.h"

#include <vector>

#include "simulator/storage/gpt_store.h"
#include "simulator/storage/mbr_store.h"
#include "simulator/storage/on_disk.h"
#include "simulator/storage/sector_io.h"

namespace simulator {
namespace {

DWORD ReadMaster(BlockDevice& device, BootRecord& master) {
  std::vector<std::byte> sector(device.sector_size());
  const DWORD error = ReadSectors(device, 0, sector);
  if (error == ERROR_SUCCESS) master = Load<BootRecord>(sector);
  return error;
}

// Believed: a sector 0 that is neither protective nor a sound master boot record makes a RAW disk.
PARTITION_STYLE StyleOf(const BlockDevice& device, const BootRecord& master) {
  if (IsProtective(master)) return PARTITION_STYLE_GPT;
  if (IsMasterBootRecord(master, device.sector_count())) return PARTITION_STYLE_MBR;
  return PARTITION_STYLE_RAW;
}

DWORD ZeroSector(BlockDevice& device, std::uint64_t sector) {
  return WriteSectors(device, sector, std::vector<std::byte>(device.sector_size()));
}

// Takes the table out of sector 0 and keeps its boot code. A GPT disk loses its headers too; the
// entry arrays stay.
DWORD CreateRaw(BlockDevice& device) {
  std::vector<std::byte> sector(device.sector_size());
  DWORD error = ReadSectors(device, 0, sector);
  if (error != ERROR_SUCCESS) return error;
  auto record = Load<BootRecord>(sector);
  const bool was_gpt = IsProtective(record);
  record.disk_signature = 0;
  record.entries = {};
  record.boot_signature = 0;
  Store(record, sector);
  error = WriteSectors(device, 0, sector);
  if (error != ERROR_SUCCESS || !was_gpt) return error;
  error = ZeroSector(device, kGptPrimaryHeaderSector);
  if (error != ERROR_SUCCESS) return error;
  return ZeroSector(device, device.sector_count() - 1);
}

// A layout without rows stands for an empty disk of its style.
DWORD CreateFromLayout(BlockDevice& device, const DRIVE_LAYOUT_INFORMATION_EX& header) {
  switch (header.PartitionStyle) {
    case PARTITION_STYLE_MBR:
      return CreateMbr(device, header.Mbr.Signature);
    case PARTITION_STYLE_GPT:
      return CreateGpt(device, {header.Gpt.DiskId, header.Gpt.MaxPartitionCount});
    case PARTITION_STYLE_RAW:
      return CreateRaw(device);
    default:
      return ERROR_NOT_SUPPORTED;
  }
}

}  // namespace

DWORD ReadLayout(BlockDevice& device, DiskLayout& layout) {
  BootRecord master{};
  const DWORD error = ReadMaster(device, master);
  if (error != ERROR_SUCCESS) return error;
  switch (StyleOf(device, master)) {
    case PARTITION_STYLE_GPT:
      return ReadGptLayout(device, layout);
    case PARTITION_STYLE_MBR:
      return ReadMbrLayout(device, master, layout);
    default:
      layout = {};
      layout.header.PartitionStyle = PARTITION_STYLE_RAW;
      return ERROR_SUCCESS;
  }
}

DWORD CreateDisk(BlockDevice& device, const CREATE_DISK& request) {
  auto header = DRIVE_LAYOUT_INFORMATION_EX();
  header.PartitionStyle = static_cast<DWORD>(request.PartitionStyle);
  if (request.PartitionStyle == PARTITION_STYLE_GPT) {
    header.Gpt.DiskId = request.Gpt.DiskId;
    header.Gpt.MaxPartitionCount = request.Gpt.MaxPartitionCount;
  } else {
    header.Mbr.Signature = request.Mbr.Signature;
  }
  return CreateFromLayout(device, header);
}

DWORD WriteLayout(BlockDevice& device, DiskLayout& layout, const StoreSwitches& switches) {
  if (layout.rows.empty()) return CreateFromLayout(device, layout.header);
  if (layout.header.PartitionStyle == PARTITION_STYLE_MBR) {
    return WriteMbrLayout(device, layout, switches);
  }
  if (layout.header.PartitionStyle != PARTITION_STYLE_GPT) return ERROR_NOT_SUPPORTED;
  BootRecord master{};
  const DWORD error = ReadMaster(device, master);
  if (error != ERROR_SUCCESS) return error;
  // Believed: a GPT layout for an MBR disk is refused.
  if (StyleOf(device, master) == PARTITION_STYLE_MBR) return ERROR_INVALID_PARAMETER;
  return WriteGptLayout(device, layout);
}

}  // namespace simulator
