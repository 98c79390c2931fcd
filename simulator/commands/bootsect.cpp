#include "simulator/commands/bootsect.h"

#include <optional>
#include <string_view>

#include "simulator/commands/boot_code.h"
#include "simulator/disk.h"
#include "simulator/system.h"
#include "simulator/text.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"
#include "simulator/volume_path.h"

namespace simulator {
namespace {

struct Request {
  char letter = 0;
  bool master_boot_code = false;
};

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

CommandResult Failed(std::string_view reason) {
  return {1, std::string(reason) + "\r\n"};
}

}  // namespace

CommandResult RunBootsect(System& system, const std::vector<std::string>& arguments) {
  const auto request = ParseRequest(arguments);
  if (!request) return Failed("Usage: bootsect /nt60 X: [/force] [/mbr]");
  Volume* volume = system.FindVolumeByLetter(request->letter);
  if (volume == nullptr) return Failed("The letter has no volume.");
  if (MountForUse(system, *volume) != ERROR_SUCCESS) return Failed("The volume is not accessible.");
  if (!TakesBootCode(volume->file_system)) return Failed("The file system takes no boot code.");
  const VolumeExtent& extent = volume->extents.front();
  Disk* disk = system.FindDisk(extent.disk_number);
  if (disk == nullptr) return Failed("The volume lies on no disk.");
  if (!WriteVolumeBootCode(disk->device(), extent.offset, volume->file_system)) {
    return Failed("The boot sector cannot be written.");
  }
  std::string output = "The volume has new boot code.\r\n";
  if (request->master_boot_code) {
    if (!WriteMasterBootCode(disk->device())) return Failed("The boot record cannot be written.");
    output += "The disk has new master boot code.\r\n";
  }
  return {0, output};
}

}  // namespace simulator
