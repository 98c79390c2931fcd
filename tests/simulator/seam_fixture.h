// A current machine with a folder as drive X, and images with tables and boot sectors to attach.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32.h"
#include "simulator/simulated_machine.h"
#include "simulator/storage/block_device.h"
#include "support/temp_folder.h"

namespace testing_support {

inline constexpr std::uint64_t kMegabyte = 1024 * 1024;
// What the last error is before each test: no Windows error that the machine gives.
inline constexpr DWORD kUntouchedError = 777;

inline constexpr GUID kBasicDataType = {
    0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
inline constexpr GUID kEfiSystemType = {
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};
inline constexpr GUID kReservedType = {
    0xE3C9E316, 0x0B5C, 0x4DB8, {0x81, 0x7D, 0xF9, 0x2D, 0xF0, 0x02, 0x15, 0xAE}};

PARTITION_INFORMATION_EX NewRow(PARTITION_STYLE style, std::uint64_t offset, std::uint64_t length);
PARTITION_INFORMATION_EX GptRow(std::uint64_t offset, std::uint64_t length, BYTE id,
                                const GUID& type = kBasicDataType);
PARTITION_INFORMATION_EX MbrRow(std::uint64_t offset, std::uint64_t length, BYTE type = 7);

// The volume path of a GPT partition made with `id`, and of an MBR partition.
std::string GptVolumePath(BYTE id);

class SeamTest : public ::testing::Test {
 protected:
  SeamTest();

  std::filesystem::path NewImage(std::string_view name, std::uint64_t size);

  // Puts a table with these rows on a new image of `size` bytes and an NTFS boot sector at the
  // start of each of `ntfs`, then attaches it. MBR rows are filled up to four; the signature is
  // 0x1A2B3C4D.
  simulator::Disk& AttachGpt(std::uint32_t number,
                             const std::vector<PARTITION_INFORMATION_EX>& rows,
                             const std::vector<std::uint64_t>& ntfs = {},
                             std::uint64_t size = 64 * kMegabyte);
  simulator::Disk& AttachMbr(std::uint32_t number, std::vector<PARTITION_INFORMATION_EX> rows,
                             const std::vector<std::uint64_t>& ntfs = {},
                             std::uint64_t size = 64 * kMegabyte);

  static HANDLE Open(std::string_view path, DWORD access = GENERIC_READ | GENERIC_WRITE);
  // Positions with SetFilePointer and transfers; the error, or ERROR_SUCCESS with the count in
  // `done_`.
  DWORD ReadAt(HANDLE handle, std::uint64_t position, std::vector<std::byte>& buffer);
  DWORD WriteAt(HANDLE handle, std::uint64_t position, const std::vector<std::byte>& data);
  // A control code without buffers; the error, or ERROR_SUCCESS.
  static DWORD Control(HANDLE handle, DWORD code);

  TempFolder folder_;
  simulator::SimulatedMachine machine_;
  DWORD done_ = 0;
};

// Looks like an NTFS volume of 8 MiB to the machine.
void WriteNtfsBoot(simulator::BlockDevice& device, std::uint64_t offset);

}  // namespace testing_support
