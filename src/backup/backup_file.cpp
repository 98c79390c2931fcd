#include "backup/backup_file.h"

#include <array>
#include <bit>
#include <cstring>
#include <new>
#include <span>

#include "platform/guard.h"
#include "platform/win32.h"
#include "tools/little_endian.h"

namespace velkora {
namespace {

constexpr std::size_t kReservedBytes = 8;
constexpr std::size_t kPathLengthOffset = 8;
constexpr std::size_t kPathOffset = 10;
constexpr std::size_t kBlockHeaderBytes = 16;
constexpr std::size_t kBlockLengthOffset = 8;

static_assert(std::endian::native == std::endian::little);

// Values stand in memory as they do in the file.
template <typename Value>
void WriteField(std::FILE* file, Value value) {
  win32::fwrite(&value, 1, sizeof value, file);
}

void WriteBytes(std::FILE* file, const void* bytes, std::size_t count) {
  if (count != 0) win32::fwrite(bytes, 1, count, file);
}

// The bytes of the file from `offset` on, of which nothing says that they are there.
std::span<const std::byte> Slice(std::span<const std::byte> file, std::uint64_t offset,
                                 std::uint64_t length) {
  if (offset > file.size() || file.size() - offset < length) {
    win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
  }
  return file.subspan(offset, length);
}

std::vector<std::byte> ReadWhole(std::FILE* file) {
  win32::fseek(file, 0, SEEK_END);
  const std::int32_t size = win32::ftell(file);
  win32::rewind(file);
  // The position has no more than 31 bits; what does not fit cannot be allocated.
  if (size < 0) throw std::bad_alloc();
  std::vector<std::byte> bytes(static_cast<std::size_t>(size));
  win32::fread(bytes.data(), 1, bytes.size(), file);
  return bytes;
}

}  // namespace

void WriteBackupFile(std::FILE* file, const char* device_id, const BlockMap& blocks) {
  const std::array<std::byte, kReservedBytes> reserved{};
  WriteBytes(file, reserved.data(), reserved.size());
  const auto path_length = static_cast<std::uint16_t>(std::strlen(device_id) & 0xFFFF);
  WriteField(file, path_length);
  WriteBytes(file, device_id, path_length);
  for (const auto& [offset, bytes] : blocks) {
    WriteField(file, offset);
    WriteField(file, std::uint64_t{bytes.size()});
    WriteBytes(file, bytes.data(), bytes.size());
  }
}

std::string LoadBackupFile(std::FILE* file, BlockMap& blocks) {
  const std::vector<std::byte> bytes = ReadWhole(file);
  const auto path_length =
      LoadField<std::uint16_t>(Slice(bytes, kPathLengthOffset, sizeof(std::uint16_t)), 0);
  const std::span<const std::byte> path = Slice(bytes, kPathOffset, path_length);
  std::uint64_t position = kPathOffset + path_length;
  while (position < bytes.size()) {
    const std::span<const std::byte> header = Slice(bytes, position, kBlockHeaderBytes);
    const auto offset = LoadField<std::uint64_t>(header, 0);
    const auto length = LoadField<std::uint64_t>(header, kBlockLengthOffset);
    SelectBytes(blocks, offset, Slice(bytes, position + kBlockHeaderBytes, length));
    position += kBlockHeaderBytes + length;
  }
  return {reinterpret_cast<const char*>(path.data()), path.size()};
}

}  // namespace velkora
