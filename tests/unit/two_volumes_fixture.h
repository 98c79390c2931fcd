// Disks with two NTFS volumes each.
#pragma once

#include <cstdint>
#include <string>

#include "simulator/disk.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

namespace testing_support {

inline constexpr std::uint64_t kFirstOffset = 2048 * 512;
inline constexpr std::uint64_t kSecondOffset = 34816 * 512;

// Disk 1 has them, without letters.
class TwoVolumesTest : public MachineTest {
 protected:
  TwoVolumesTest() : disk_(AttachVolumes(1)) {}

  // A disk of 64 MiB with volumes of 15 MiB.
  simulator::Disk& AttachVolumes(std::uint32_t number, std::uint32_t signature = 0x1A2B3C4D) {
    machine_.switches().automount = false;
    simulator::Disk& disk = NewDisk(number, 64 << 20);
    WriteMbr(disk, {{7, 2048, 30720}, {7, 34816, 30720}}, {}, 2048, signature);
    WriteNtfsBootSector(disk, 2048, 30719);
    WriteNtfsBootSector(disk, 34816, 30719);
    machine_.UpdateProperties(disk);
    machine_.calls().Clear();
    return disk;
  }

  std::string PathAt(std::uint64_t offset, std::uint32_t disk = 1) {
    return machine_.FindVolumeAt(disk, offset)->path;
  }
  std::string RootAt(std::uint64_t offset) { return PathAt(offset) + "\\"; }

  simulator::Disk& disk_;
};

}  // namespace testing_support
