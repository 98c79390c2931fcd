#include "simulator/commands/diskpart_script.h"
#include "simulator/commands/diskpart_verbs.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/storage/file_system.h"
#include "simulator/text.h"
#include "simulator/volume.h"

namespace simulator::diskpart {
namespace {

struct FormatOptions {
  std::string_view file_system;
  bool quick = false;
};

std::optional<FormatOptions> ParseFormat(Arguments arguments) {
  FormatOptions options;
  for (const std::string& word : arguments) {
    if (const auto value = ParameterValue(word, "fs")) {
      options.file_system = *value;
    } else if (IsKeyword(word, "quick")) {
      options.quick = true;
    } else if (!IsKeyword(word, "override")) {  // nothing here keeps a volume from being formatted
      return std::nullopt;
    }
  }
  if (options.file_system.empty()) return std::nullopt;
  return options;
}

DWORD MakeFat32(Session& session, FocusedPartition& focus, bool quick) {
  BlockDevice& device = session.disk->device();
  if (focus.length() > kLargestFat32) return kVolumeTooBig;
  if (!quick && !device.Zero(focus.offset(), focus.length())) return StatusOf(ERROR_WRITE_FAULT);
  Fat32Geometry geometry{};
  geometry.offset = focus.offset();
  geometry.length = focus.length();
  geometry.hidden_sectors = static_cast<std::uint32_t>(focus.offset() / device.sector_size());
  geometry.serial_number = session.system.NextGuid().Data1;
  const DWORD error = FormatFat32(device, geometry);
  return error == ERROR_INVALID_PARAMETER ? kVolumeTooSmall : StatusOf(error);
}

// What `assign` and `remove` have in common: an online disk, a volume in focus, "letter=X".
DWORD FindVolumeAndLetter(const Session& session, std::string_view word, FocusedPartition& focus,
                          Volume*& volume, char& letter) {
  const auto text = ParameterValue(word, "letter");
  const auto parsed = text ? ParseLetter(*text) : std::nullopt;
  if (!parsed) return kSyntaxError;
  letter = *parsed;
  const DWORD status = RequireOnlineDisk(session);
  return status == kSuccess ? FindFocusedVolume(session, focus, volume) : status;
}

bool IsLetterInUse(System& system, char letter) {
  return (system.mount_manager().Mask() >> (letter - 'A') & 1) != 0;
}

}  // namespace

DWORD DetailVolume(Session& session, Arguments) {
  FocusedPartition focus;
  Volume* volume = nullptr;
  const DWORD status = FindFocusedVolume(session, focus, volume);
  if (status != kSuccess) return status;
  if (session.disk->mount_delay > 0) {
    --session.disk->mount_delay;
    return kObjectNotFound;
  }
  session.Print("  Disk ###");
  for (const VolumeExtent& extent : volume->extents) {
    session.Print("* Disk " + std::to_string(extent.disk_number));
  }
  session.Print("File system: " + std::string(FileSystemName(volume->file_system)));
  session.Print("Letters:     " + session.system.LettersOf(*volume));
  return kSuccess;
}

DWORD Format(Session& session, Arguments arguments) {
  const auto options = ParseFormat(arguments);
  if (!options) return kSyntaxError;
  DWORD status = RequireOnlineDisk(session);
  if (status != kSuccess) return status;
  FocusedPartition focus;
  Volume* volume = nullptr;
  status = FindFocusedVolume(session, focus, volume);
  if (status != kSuccess) return status;
  // The machine makes FAT32 alone; Windows makes others too.
  if (!EqualsIgnoringCase(options->file_system, "fat32")) return kIncompatibleFileSystem;
  status = MakeFat32(session, focus, options->quick);
  // Also after a failure: what was there before may be gone.
  session.system.ForgetFiles(session.disk->number(), focus.offset());
  session.system.Mount(*volume);
  if (status == kSuccess) session.Print("The volume has been formatted.");
  return status;
}

// Believed: an EFI system partition gets a letter like any other.
DWORD Assign(Session& session, Arguments arguments) {
  FocusedPartition focus;
  Volume* volume = nullptr;
  char letter = 0;
  const DWORD status = FindVolumeAndLetter(session, arguments.front(), focus, volume, letter);
  if (status != kSuccess) return status;
  if (IsLetterInUse(session.system, letter)) return kBadDriveLetter;
  session.system.SetLetter(session.disk->number(), focus.offset(), letter);
  session.Print("The letter has been assigned.");
  return kSuccess;
}

DWORD Remove(Session& session, Arguments arguments) {
  FocusedPartition focus;
  Volume* volume = nullptr;
  char letter = 0;
  const DWORD status = FindVolumeAndLetter(session, arguments.front(), focus, volume, letter);
  if (status != kSuccess) return status;
  if (session.system.LettersOf(*volume).find(letter) == std::string::npos) return kBadDriveLetter;
  session.system.RemoveLetter(letter);
  session.Print("The letter has been removed.");
  return kSuccess;
}

}  // namespace simulator::diskpart
