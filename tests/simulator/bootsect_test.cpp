#include "simulator/commands/bootsect.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/disk.h"
#include "simulator/diskpart_fixture.h"
#include "simulator/seam_fixture.h"
#include "simulator/storage/fat32_format.h"

namespace simulator {
namespace {

using testing_support::Bytes;
using testing_support::kMegabyte;

constexpr std::uint64_t kNtfs = 1 * kMegabyte;
constexpr std::uint64_t kFat = 16 * kMegabyte;
constexpr std::uint64_t kNothing = 60 * kMegabyte;
constexpr std::uint64_t kBackupSector = 6;

using Sector = std::vector<std::byte>;

// Places of bytes that differ, as "first-last".
std::string Changed(const Sector& before, const Sector& after) {
  const auto differs = [&](std::size_t i) { return before[i] != after[i]; };
  std::size_t first = 0;
  while (first < before.size() && !differs(first)) ++first;
  if (first == before.size()) return "nothing";
  std::size_t last = before.size() - 1;
  while (!differs(last)) --last;
  return std::to_string(first) + "-" + std::to_string(last);
}

bool Same(const Sector& before, const Sector& after, std::size_t from, std::size_t to) {
  const auto begin = static_cast<std::ptrdiff_t>(from);
  return std::equal(before.begin() + begin, before.begin() + static_cast<std::ptrdiff_t>(to),
                    after.begin() + begin);
}

bool Holds(const Sector& sector, std::string_view text) {
  std::string bytes;
  for (const std::byte byte : sector) bytes += static_cast<char>(byte);
  return bytes.find(text) != std::string::npos;
}

// Disk 1: NTFS as N, FAT32 as F, a partition without a file system as R. What can be code is full
// of ones, so that a byte that changes shows.
class Bootsect : public testing_support::SeamTest {
 protected:
  void SetUp() override {
    Disk& disk = AttachMbr(1,
                           {testing_support::MbrRow(kNtfs, 8 * kMegabyte),
                            testing_support::MbrRow(kFat, 40 * kMegabyte, 0x0C),
                            testing_support::MbrRow(kNothing, kMegabyte)},
                           {kNtfs});
    ASSERT_EQ(FormatFat32(disk.device(), {kFat, 40 * kMegabyte, 0, 1}), ERROR_SUCCESS);
    machine_.Mount(*machine_.FindVolumeAt(1, kFat));
    machine_.SetLetter(1, kNtfs, 'N');
    machine_.SetLetter(1, kFat, 'F');
    machine_.SetLetter(1, kNothing, 'R');
    const Sector ones(512, std::byte{1});
    Put(0, 0, 440, ones);
    Put(kNtfs, 0x54, 510, ones);
    for (const std::uint64_t sector : {kFat, kFat + kBackupSector * 512})
      Put(sector, 0x5A, 510, ones);
  }

  void Put(std::uint64_t sector, std::size_t from, std::size_t to, const Sector& bytes) {
    const auto part = std::span(bytes).subspan(from, to - from);
    ASSERT_TRUE(machine_.FindDisk(1)->device().Write(sector + from, part));
  }
  Sector At(std::uint64_t offset) { return Bytes(*machine_.FindDisk(1), offset, 512); }
  DWORD Run(const std::vector<std::string>& words) {
    return RunBootsect(machine_.system(), words).exit_status;
  }
};

TEST_F(Bootsect, LeavesTheParametersOfNtfsAndTheMarkAlone) {
  const Sector before = At(kNtfs);
  EXPECT_EQ(Run({"/nt60", "N:", "/force", "/mbr"}), 0U);
  const Sector after = At(kNtfs);
  EXPECT_EQ(Changed(before, after), "0-509");
  EXPECT_TRUE(Same(before, after, 3, 0x54));
  EXPECT_NE(before[0x54], after[0x54]);
  EXPECT_EQ(after[0], std::byte{0xEB});
  EXPECT_EQ(after[1], std::byte{0x52});
  EXPECT_TRUE(Holds(after, "boot code"));
}

TEST_F(Bootsect, LeavesTheParametersOfFat32AloneInBothBootSectors) {
  const Sector before = At(kFat);
  const Sector backup_before = At(kFat + kBackupSector * 512);
  ASSERT_EQ(Run({"/nt60", "f:", "/force", "/mbr"}), 0U);
  EXPECT_EQ(Changed(before, At(kFat)), "90-509");
  EXPECT_EQ(Changed(backup_before, At(kFat + kBackupSector * 512)), "90-509");
  EXPECT_TRUE(Holds(At(kFat), "boot code"));
  EXPECT_EQ(At(kFat), At(kFat + kBackupSector * 512));
}

TEST_F(Bootsect, ReplacesTheMasterBootCodeUpToTheSignature) {
  const Sector before = At(0);
  EXPECT_EQ(Run({"/nt60", "N:", "/force", "/mbr"}), 0U);
  EXPECT_EQ(Changed(before, At(0)), "0-439");
  EXPECT_TRUE(Holds(At(0), "master boot code"));
}

TEST_F(Bootsect, LeavesTheMasterBootCodeAloneUnlessAsked) {
  const Sector before = At(0);
  const Sector boot = At(kNtfs);
  EXPECT_EQ(Run({"/NT60", "N:"}), 0U);
  EXPECT_EQ(Changed(before, At(0)), "nothing");
  EXPECT_NE(boot, At(kNtfs));
}

TEST_F(Bootsect, TouchesNoOtherSector) {
  std::vector<std::byte> before = Bytes(*machine_.FindDisk(1), 0, 64 * kMegabyte);
  ASSERT_EQ(Run({"/nt60", "N:", "/force", "/mbr"}), 0U);
  const std::vector<std::byte> after = Bytes(*machine_.FindDisk(1), 0, 64 * kMegabyte);
  std::copy_n(after.begin(), 512, before.begin());
  const auto boot = static_cast<std::ptrdiff_t>(kNtfs);
  std::copy_n(after.begin() + boot, 512, before.begin() + boot);
  EXPECT_TRUE(before == after);
}

TEST_F(Bootsect, RefusesWithoutChangingAnything) {
  const std::vector<std::byte> before = Bytes(*machine_.FindDisk(1), 0, 64 * kMegabyte);
  EXPECT_EQ(Run({"/nt60", "Q:", "/force", "/mbr"}), 1U);  // no such volume
  EXPECT_EQ(Run({"/nt60", "X:", "/force", "/mbr"}), 1U);  // a folder
  EXPECT_EQ(Run({"/nt60", "R:", "/force", "/mbr"}), 1U);  // no file system
  EXPECT_EQ(Run({"/nt60", "/force", "/mbr"}), 1U);
  EXPECT_EQ(Run({"N:", "/force", "/mbr"}), 1U);
  EXPECT_EQ(Run({"/nt60", "NN:", "/mbr"}), 1U);
  EXPECT_EQ(Run({"/nt60", "N:", "F:"}), 1U);
  EXPECT_EQ(Run({"/nt60", "N:", "/mrb"}), 1U);
  EXPECT_TRUE(before == Bytes(*machine_.FindDisk(1), 0, 64 * kMegabyte));
}

TEST_F(Bootsect, IsRegistered) {
  EXPECT_EQ(win32::system("bootsect /nt60 N: /force /mbr >> \"X:\\result.log\""), 0);
  EXPECT_EQ(win32::system("bootsect /nt60 Q: /force /mbr >> \"X:\\result.log\""), 1);
}

}  // namespace
}  // namespace simulator
