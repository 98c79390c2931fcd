// A FAT32 volume with files, on a disk with a table, as the machine mounts it.
#pragma once

#include "disk/device_handle.h"
#include "fat32_values.h"
#include "frame/global_context.h"
#include "simulator/disk.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

namespace testing_support {

// Disk 1 has a FAT32 volume of 40 MiB with clusters of 512 bytes, at 1 MiB, and an NTFS volume
// behind it. New files take the lowest free clusters, in the order in which they are added.
class Fat32MountedVolume : public MachineTest {
 protected:
  static constexpr std::uint64_t kMib = 1024 * 1024;
  static constexpr std::uint64_t kStart = kMib;
  // So many that the clusters are a multiple of eight: the bitmap of a full volume has no spare
  // bits, which would count as free.
  static constexpr std::uint64_t kSectors = 40 * 2048 - 4;
  // What a test takes off; the 10 MiB that stay keep it quick.
  static constexpr std::uint64_t kSizeMib = 30;

  Fat32MountedVolume() : disk_(NewDisk(1, 64 * kMib)) {
    WriteMbr(disk_, {{12, 2048, kSectors}, {7, 43 * 2048, 10 * 2048}});
    EXPECT_EQ(simulator::FormatFat32(disk_.device(), {kStart, kSectors * 512, 2048, 1}),
              ERROR_SUCCESS);
    WriteNtfsBootSector(disk_, 43 * 2048, 10 * 2048 - 1);
    machine_.UpdateProperties(disk_);
    velkora::GetGlobalContext().is_system = 1;  // diskpart leaves no process handle behind
  }

  std::string Path() { return machine_.FindVolumeAt(1, kStart)->path; }
  simulator::Fat32Files Files() { return {disk_.device(), kStart}; }

  void Add(std::string_view path, std::size_t clusters, char fill = 'f') {
    machine_.AddFile(1, kStart, path, std::string(clusters * 512, fill));
  }
  void MakeFolder(std::string_view path) {
    EXPECT_EQ(Files().MakeFolder(path), ERROR_SUCCESS) << path;
  }
  void Remove(std::string_view path) { EXPECT_EQ(Files().Remove(path), ERROR_SUCCESS) << path; }
  std::string Content(std::string_view path) {
    std::string content;
    EXPECT_EQ(Files().Read(path, content), ERROR_SUCCESS) << path;
    return content;
  }
  DWORD AttributesOf(std::string_view path) {
    simulator::Fat32Files files = Files();
    simulator::Fat32FileId id;
    simulator::Fat32Entry entry;
    EXPECT_EQ(files.Find(path, id), ERROR_SUCCESS) << path;
    EXPECT_EQ(files.Look(id, entry), ERROR_SUCCESS) << path;
    return entry.attributes;
  }
  // The clusters of a file or folder, by their FAT numbers.
  simulator::Fat32Chain Chain(std::string_view path) {
    simulator::Fat32Files files = Files();
    simulator::Fat32FileId id;
    simulator::Fat32Chain chain;
    EXPECT_EQ(files.Find(path, id), ERROR_SUCCESS) << path;
    EXPECT_EQ(files.Chain(id, chain), ERROR_SUCCESS) << path;
    return chain;
  }

  // The volume as it was formatted.
  std::uint64_t FirstFat() { return kStart + 32 * 512; }
  std::uint64_t FatBytes() {
    const Sector boot = ReadSector(disk_, 2048);
    return (boot[36] + boot[37] * 256U) * 512;
  }
  // Where a cluster lies on the disk.
  std::uint64_t PositionOf(std::uint64_t cluster) {
    return FirstFat() + 2 * FatBytes() + (cluster - 2) * 512;
  }
  std::uint64_t TotalClusters() { return kSectors - 32 - 2 * FatBytes() / 512; }
  std::uint64_t Boundary() { return TotalClusters() - kSizeMib * 2048 + 1; }

  // Fills the volume up to, not including, a FAT cluster; Remove("\\filler") makes room again.
  void FillUpTo(std::uint64_t cluster) {
    Add("\\mark", 1);
    const std::uint64_t next = Chain("\\mark").front();
    Remove("\\mark");
    Add("\\filler", cluster - next);
  }

  simulator::Disk& disk_;
};

}  // namespace testing_support
