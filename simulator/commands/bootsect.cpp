#include "simulator/commands/bootsect.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string_view>

#include "simulator/simulated_machine.h"
#include "simulator/storage/on_disk.h"
#include "simulator/text.h"
#include "simulator/volume_files.h"
#include "simulator/volume_path.h"

namespace simulator {
namespace {

constexpr std::size_t kBootSectorBytes = 512;
constexpr std::size_t kJumpBytes = 3;
constexpr std::size_t kSignatureOffset = offsetof(BootRecord, boot_signature);

struct Request {
  char letter = 0;
  bool master_boot_code = false;
};

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

std::optional<Request> ParseRequest(const std::vector<std::string>& arguments) {
  Request request;
  bool nt60 = false;
  for (const std::string& word : arguments) {
    if (EqualsIgnoringCase(word, "/nt60")) {
      nt60 = true;
    } else if (EqualsIgnoringCase(word, "/mbr")) {
      request.master_boot_code = true;
    } else if (word.size() == 2 && word[1] == ':' && request.letter == 0) {
      request.letter = word[0];
    } else if (!EqualsIgnoringCase(word, "/force")) {  // nothing here is in anybody's use
      return std::nullopt;
    }
  }
  return nt60 && request.letter != 0 ? std::optional(request) : std::nullopt;
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

// FAT32 keeps a second boot sector, which has to be like the first.
bool UpdateVolume(BlockDevice& device, std::uint64_t offset, FileSystem kind,
                  const BootCodePlace& place) {
  if (!UpdateBootSector(device, offset, place)) return false;
  if (kind != FileSystem::kFat32) return true;
  std::array<std::byte, kBootSectorBytes> bytes{};
  if (!device.Read(offset, bytes)) return false;
  const auto boot = Load<Fat32BootSector>(bytes);
  const std::uint64_t backup = std::uint64_t{boot.backup_sector} * boot.bytes_per_sector;
  return backup == 0 || boot.backup_sector >= boot.reserved_sectors ||
         UpdateBootSector(device, offset + backup, place);
}

bool UpdateMasterBootCode(BlockDevice& device) {
  return ChangeSector(device, 0, [](std::span<std::byte> sector) {
    PutBootCode(sector.first(offsetof(BootRecord, disk_signature)), "master boot code nt60");
  });
}

CommandResult Failed(std::string_view reason) {
  return {1, std::string(reason) + "\r\n"};
}

}  // namespace

CommandResult RunBootsect(SimulatedMachine& machine, const std::vector<std::string>& arguments) {
  const auto request = ParseRequest(arguments);
  if (!request) return Failed("Usage: bootsect /nt60 X: [/force] [/mbr]");
  Volume* volume = machine.FindVolumeByLetter(request->letter);
  if (volume == nullptr) return Failed("The letter has no volume.");
  if (MountForUse(machine, *volume) != ERROR_SUCCESS)
    return Failed("The volume is not accessible.");
  const auto place = PlaceOfBootCode(volume->file_system);
  if (!place) return Failed("The file system takes no boot code.");
  const VolumeExtent& extent = volume->extents.front();
  Disk* disk = machine.FindDisk(extent.disk_number);
  if (disk == nullptr) return Failed("The volume lies on no disk.");
  if (!UpdateVolume(disk->device(), extent.offset, volume->file_system, *place)) {
    return Failed("The boot sector cannot be written.");
  }
  std::string output = "The volume has new boot code.\r\n";
  if (request->master_boot_code) {
    if (!UpdateMasterBootCode(disk->device())) return Failed("The boot record cannot be written.");
    output += "The disk has new master boot code.\r\n";
  }
  return {0, output};
}

}  // namespace simulator
