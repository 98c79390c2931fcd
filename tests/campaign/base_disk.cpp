#include "campaign/base_disk.h"

#include <map>
#include <memory>
#include <stdexcept>

#include "backup/disk_parser.h"
#include "backup/raw_disk.h"
#include "backup/return_codes.h"
#include "platform/win32.h"
#include "simulator/simulated_machine.h"

namespace campaign {

BaseDisk::BaseDisk(const Scenario& scenario)
    : scenario_(scenario), image_(folder_.path() / "disk.img") {
  const std::filesystem::path scratch = folder_.path() / "scratch";
  std::filesystem::create_directory(scratch);
  scenario.make(image_, scratch);
  std::filesystem::remove_all(scratch);
  size_ = std::filesystem::file_size(image_);
  TakeBlocks();
}

void BaseDisk::TakeBlocks() {
  simulator::SimulatedMachine machine;
  machine.MakeCurrent();
  machine.AttachDisk(1, image_, 512, simulator::Access::kReadOnly);
  HANDLE disk = velkora::OpenDisk("\\\\.\\PhysicalDrive1", "TakeBlocks");
  velkora::PartitionOffsets offsets;
  for (const conversion::Partition& row : scenario_.kept) offsets.push_back(row.offset());
  if (velkora::Parse(disk, offsets, blocks_) != velkora::kBackupDone) {
    throw std::runtime_error("no backup of " + scenario_.name);
  }
  win32::CloseHandle(disk);
}

const BaseDisk& DiskOf(const Scenario& scenario) {
  static std::map<std::string, std::unique_ptr<BaseDisk>> disks;
  std::unique_ptr<BaseDisk>& disk = disks[scenario.name];
  if (!disk) disk = std::make_unique<BaseDisk>(scenario);
  return *disk;
}

Bytes ReadBytes(simulator::BlockDevice& disk, std::uint64_t offset, std::uint64_t length) {
  Bytes bytes(length);
  if (!disk.Read(offset, bytes)) {
    throw std::runtime_error("cannot read at " + std::to_string(offset));
  }
  return bytes;
}

std::uint64_t LoadLittleEndian(const Bytes& bytes, std::size_t offset, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = width; i-- > 0;) {
    value = value << 8 | std::to_integer<std::uint64_t>(bytes.at(offset + i));
  }
  return value;
}

}  // namespace campaign
