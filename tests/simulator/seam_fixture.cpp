#include "simulator/seam_fixture.h"

#include <algorithm>
#include <array>
#include <span>

#include "simulator/storage/block_device.h"
#include "simulator/storage/partition_store.h"

namespace testing_support {

using simulator::BlockDevice;
using simulator::Disk;
using simulator::DiskLayout;

namespace {

constexpr DWORD kSignature = 0x1A2B3C4D;

void Put(std::span<std::byte> bytes, std::size_t at, std::string_view text) {
  std::transform(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                 [](char c) { return static_cast<std::byte>(c); });
}

void PutNumber(std::span<std::byte> bytes, std::size_t at, std::uint64_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) bytes[at + i] = static_cast<std::byte>(value >> (8 * i));
}

void WriteTable(const std::filesystem::path& image, const CREATE_DISK& request,
                const std::vector<PARTITION_INFORMATION_EX>& rows,
                const std::vector<std::uint64_t>& ntfs) {
  BlockDevice device(image);
  ASSERT_EQ(simulator::CreateDisk(device, request), ERROR_SUCCESS);
  DiskLayout layout;
  ASSERT_EQ(simulator::ReadLayout(device, layout), ERROR_SUCCESS);
  layout.rows = rows;
  layout.header.PartitionCount = static_cast<DWORD>(rows.size());
  ASSERT_EQ(simulator::WriteLayout(device, layout, {}), ERROR_SUCCESS);
  for (const std::uint64_t offset : ntfs) WriteNtfsBoot(device, offset);
}

DWORD Transferred(BOOL success) {
  return success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
}

void Position(HANDLE handle, std::uint64_t position) {
  auto high = static_cast<LONG>(position >> 32);
  const DWORD low =
      win32::SetFilePointer(handle, static_cast<LONG>(position & 0xFFFFFFFF), &high, FILE_BEGIN);
  ASSERT_EQ(low, position & 0xFFFFFFFF);
}

}  // namespace

PARTITION_INFORMATION_EX NewRow(PARTITION_STYLE style, std::uint64_t offset, std::uint64_t length) {
  PARTITION_INFORMATION_EX row{};
  row.PartitionStyle = style;
  row.StartingOffset.QuadPart = static_cast<LONGLONG>(offset);
  row.PartitionLength.QuadPart = static_cast<LONGLONG>(length);
  row.RewritePartition = TRUE;
  return row;
}

PARTITION_INFORMATION_EX GptRow(std::uint64_t offset, std::uint64_t length, BYTE id,
                                const GUID& type) {
  PARTITION_INFORMATION_EX row = NewRow(PARTITION_STYLE_GPT, offset, length);
  row.Gpt.PartitionType = type;
  row.Gpt.PartitionId = {0xABCDEF00u + id, 0x1122, 0x3344, {id, 0, 0, 0, 0, 0, 0, id}};
  return row;
}

PARTITION_INFORMATION_EX MbrRow(std::uint64_t offset, std::uint64_t length, BYTE type) {
  PARTITION_INFORMATION_EX row = NewRow(PARTITION_STYLE_MBR, offset, length);
  row.Mbr.PartitionType = type;
  return row;
}

std::string GptVolumePath(BYTE id) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const std::string byte = {kDigits[id >> 4], kDigits[id & 15]};
  return "\\\\?\\Volume{abcdef" + byte + "-1122-3344-" + byte + "00-0000000000" + byte + "}";
}

SeamTest::SeamTest() {
  machine_.MapFolder('X', folder_.path());
  machine_.MakeCurrent();
  win32::SetLastError(kUntouchedError);
}

std::filesystem::path SeamTest::NewImage(std::string_view name, std::uint64_t size) {
  const std::filesystem::path image = folder_.path() / name;
  simulator::CreateSparseImage(image, size);
  return image;
}

Disk& SeamTest::AttachGpt(std::uint32_t number, const std::vector<PARTITION_INFORMATION_EX>& rows,
                          const std::vector<std::uint64_t>& ntfs, std::uint64_t size) {
  const auto image = NewImage("disk" + std::to_string(number) + ".img", size);
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_GPT;
  request.Gpt.DiskId = {number, 7, 7, {}};
  request.Gpt.MaxPartitionCount = 128;
  WriteTable(image, request, rows, ntfs);
  return machine_.AttachDisk(number, image);
}

Disk& SeamTest::AttachMbr(std::uint32_t number, std::vector<PARTITION_INFORMATION_EX> rows,
                          const std::vector<std::uint64_t>& ntfs, std::uint64_t size) {
  const auto image = NewImage("disk" + std::to_string(number) + ".img", size);
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_MBR;
  request.Mbr.Signature = kSignature;
  while (rows.size() % 4 != 0) rows.push_back(MbrRow(0, 0, 0));
  WriteTable(image, request, rows, ntfs);
  return machine_.AttachDisk(number, image);
}

HANDLE SeamTest::Open(std::string_view path, DWORD access) {
  return win32::CreateFileA(std::string(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, OPEN_EXISTING, 0, nullptr);
}

DWORD SeamTest::ReadAt(HANDLE handle, std::uint64_t position, std::vector<std::byte>& buffer) {
  Position(handle, position);
  return Transferred(
      win32::ReadFile(handle, buffer.data(), static_cast<DWORD>(buffer.size()), &done_, nullptr));
}

DWORD SeamTest::WriteAt(HANDLE handle, std::uint64_t position, const std::vector<std::byte>& data) {
  Position(handle, position);
  return Transferred(
      win32::WriteFile(handle, data.data(), static_cast<DWORD>(data.size()), &done_, nullptr));
}

DWORD SeamTest::Control(HANDLE handle, DWORD code) {
  DWORD returned = 0;
  return Transferred(
      win32::DeviceIoControl(handle, code, nullptr, 0, nullptr, 0, &returned, nullptr));
}

void WriteNtfsBoot(BlockDevice& device, std::uint64_t offset) {
  std::array<std::byte, 512> boot{};
  Put(boot, 3, "NTFS    ");
  PutNumber(boot, 11, 512, 2);
  PutNumber(boot, 13, 8, 1);
  PutNumber(boot, 40, 8 * kMegabyte / 512 - 1, 8);
  PutNumber(boot, 510, 0xAA55, 2);
  ASSERT_TRUE(device.Write(offset, boot));
}

}  // namespace testing_support
