#include "simulator/commands/boot_code.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "simulator/storage/on_disk.h"

namespace simulator {
namespace {

constexpr std::size_t kBootSectorBytes = 512;
constexpr std::size_t kJumpBytes = 3;
constexpr std::size_t kSignatureOffset = offsetof(BootRecord, boot_signature);

// Where the code of a boot sector begins, behind the jump and the file system's parameters.
struct BootCodePlace {
  std::size_t code_offset;
  std::uint8_t jump_distance;
};

std::optional<BootCodePlace> PlaceOfBootCode(FileSystem kind) {
  switch (kind) {
    case FileSystem::kNtfs:
      return BootCodePlace{0x54, 0x52};
    case FileSystem::kFat32:
      return BootCodePlace{0x5A, 0x58};
    case FileSystem::kFat12:
    case FileSystem::kFat16:
      return BootCodePlace{0x3E, 0x3C};
    default:
      return std::nullopt;
  }
}

// Code of the simulated firmware's kind: it stops the processor (cli, hlt, and back to the hlt).
// The text tells which code it is; the rest becomes zero.
void PutBootCode(std::span<std::byte> place, std::string_view text) {
  constexpr std::array<std::uint8_t, 5> kStop = {0xFA, 0xF4, 0xEB, 0xFD, 0x00};
  std::fill(place.begin(), place.end(), std::byte{0});
  const auto to_byte = [](auto value) { return static_cast<std::byte>(value); };
  const auto behind = std::transform(kStop.begin(), kStop.end(), place.begin(), to_byte);
  std::transform(text.begin(), text.end(), behind, to_byte);
}

// Changes the 512 bytes at `offset` of the disk; false when they cannot be read or written.
template <typename Change>
bool ChangeSector(BlockDevice& device, std::uint64_t offset, const Change& change) {
  std::array<std::byte, kBootSectorBytes> sector{};
  if (!device.Read(offset, sector)) return false;
  change(std::span<std::byte>(sector));
  return device.Write(offset, sector);
}

bool UpdateBootSector(BlockDevice& device, std::uint64_t offset, const BootCodePlace& place) {
  return ChangeSector(device, offset, [&place](std::span<std::byte> sector) {
    const std::array<std::uint8_t, kJumpBytes> jump = {0xEB, place.jump_distance, 0x90};
    std::transform(jump.begin(), jump.end(), sector.begin(),
                   [](std::uint8_t value) { return std::byte{value}; });
    PutBootCode(sector.subspan(place.code_offset, kSignatureOffset - place.code_offset),
                "volume boot code nt60");
  });
}

}  // namespace

bool TakesBootCode(FileSystem kind) {
  return PlaceOfBootCode(kind).has_value();
}

// FAT32 keeps a second boot sector, which has to be like the first.
bool WriteVolumeBootCode(BlockDevice& device, std::uint64_t offset, FileSystem kind) {
  const auto place = PlaceOfBootCode(kind);
  if (!place || !UpdateBootSector(device, offset, *place)) return false;
  if (kind != FileSystem::kFat32) return true;
  std::array<std::byte, kBootSectorBytes> bytes{};
  if (!device.Read(offset, bytes)) return false;
  const auto boot = Load<Fat32BootSector>(bytes);
  const std::uint64_t backup = std::uint64_t{boot.backup_sector} * boot.bytes_per_sector;
  return backup == 0 || boot.backup_sector >= boot.reserved_sectors ||
         UpdateBootSector(device, offset + backup, *place);
}

bool WriteMasterBootCode(BlockDevice& device) {
  return ChangeSector(device, 0, [](std::span<std::byte> sector) {
    PutBootCode(sector.first(offsetof(BootRecord, disk_signature)), "master boot code nt60");
  });
}

}  // namespace simulator
