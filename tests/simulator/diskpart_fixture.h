// A machine with a folder as drive X, on which diskpart runs scripts against disk 1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/simulated_machine.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace testing_support {

// The statuses that a failing line ends with.
inline constexpr DWORD kSyntaxError = 0x80070057;
inline constexpr DWORD kObjectNotFound = 0x80042405;
inline constexpr DWORD kOperationDenied = 0x8004240A;
inline constexpr DWORD kNotEnoughSpace = 0x8004240F;
inline constexpr DWORD kIncompatibleFileSystem = 0x80042425;
inline constexpr DWORD kVolumeTooSmall = 0x8004242C;
inline constexpr DWORD kVolumeTooBig = 0x8004242D;
inline constexpr DWORD kNotConvertible = 0x80042559;
inline constexpr DWORD kBadDriveLetter = 0x8004255E;
inline constexpr DWORD kDiskOffline = 0x8004280A;

class DiskpartTest : public ::testing::Test {
 protected:
  DiskpartTest() { machine_.MapFolder('X', folder_.path()); }

  // A new sparse image attached as disk 1.
  simulator::Disk& AttachDisk(std::uint64_t size);

  struct Range {
    std::uint64_t offset;
    std::uint64_t length;
  };
  // Puts a GPT with basic data partitions on the disk.
  void MakeGpt(simulator::Disk& disk, const std::vector<Range>& partitions);
  // Puts an MBR on the disk: one primary of 8 MiB at 1 MiB, another of 8 MiB at 16 MiB, and an
  // extended one at 32 MiB with a logical one of 8 MiB at 33 MiB.
  void MakeMbr(simulator::Disk& disk);

  // Runs the bytes as a script; the console text goes to `output_`.
  DWORD RunScript(std::string_view script);
  DWORD Run(std::initializer_list<std::string_view> lines);
  // The same behind "select disk 1".
  DWORD RunOnDisk(std::initializer_list<std::string_view> lines);

  bool Printed(std::string_view text) const { return output_.find(text) != std::string::npos; }

  testing_support::TempFolder folder_;
  simulator::SimulatedMachine machine_;
  std::string output_;
};

simulator::DiskLayout LayoutOf(simulator::Disk& disk);
std::vector<std::byte> Bytes(simulator::Disk& disk, std::uint64_t offset, std::size_t length);
void Fill(simulator::Disk& disk, std::uint64_t offset, std::size_t length, std::byte value);

}  // namespace testing_support
