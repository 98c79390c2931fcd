#include "simulator/commands/bcdboot.h"

#include <optional>
#include <span>
#include <string_view>

#include "simulator/commands/bcd_store.h"
#include "simulator/disk.h"
#include "simulator/system.h"
#include "simulator/text.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"
#include "simulator/volume_path.h"

namespace simulator {
namespace {

struct Request {
  std::string windows_folder;
  char boot_letter = 0;
  std::optional<bool> uefi;
};

struct BootFile {
  std::string_view path;
  std::string_view content;
};

constexpr BootFile kUefiFiles[] = {
    {":\\EFI\\Microsoft\\Boot\\bootmgfw.efi", "UEFI boot manager\r\n"},
    {":\\EFI\\Microsoft\\Boot\\bootmgr.efi", "UEFI boot manager of the second stage\r\n"},
    {":\\EFI\\Microsoft\\Boot\\memtest.efi", "UEFI memory test\r\n"},
    {":\\EFI\\Boot\\bootx64.efi", "UEFI boot manager\r\n"},
};
constexpr BootFile kBiosFiles[] = {
    {":\\bootmgr", "BIOS boot manager\r\n"},
    {":\\BOOTNXT", "BIOS boot manager of the next kind\r\n"},
    {":\\Boot\\memtest.exe", "BIOS memory test\r\n"},
};
constexpr std::string_view kUefiStore = ":\\EFI\\Microsoft\\Boot\\BCD";
constexpr std::string_view kBiosStore = ":\\Boot\\BCD";

bool IsDrive(std::string_view word) {
  return word.size() == 2 && word[1] == ':';
}

// Takes the word behind `/s` or `/f`; false if it does not fit.
bool TakeValue(Request& request, std::string_view name, std::string_view value) {
  if (EqualsIgnoringCase(name, "/s")) {
    if (!IsDrive(value)) return false;
    request.boot_letter = ToUpperAscii(value[0]);
    return true;
  }
  request.uefi = EqualsIgnoringCase(value, "uefi");
  return *request.uefi || EqualsIgnoringCase(value, "bios");
}

std::optional<Request> ParseRequest(const std::vector<std::string>& arguments) {
  Request request;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (EqualsIgnoringCase(word, "/v")) continue;
    if (EqualsIgnoringCase(word, "/s") || EqualsIgnoringCase(word, "/f")) {
      if (++i == arguments.size() || !TakeValue(request, word, arguments[i])) return std::nullopt;
    } else if (request.windows_folder.empty() && word.size() > 2 && word[1] == ':') {
      request.windows_folder = word;
    } else {
      return std::nullopt;
    }
  }
  const bool complete = !request.windows_folder.empty() && request.boot_letter != 0;
  return complete ? std::optional(request) : std::nullopt;
}

bool LiesOnGpt(System& system, const Volume& volume) {
  DiskLayout layout;
  Disk* disk = system.FindDisk(volume.extents.front().disk_number);
  return disk != nullptr && disk->Layout(layout) == ERROR_SUCCESS &&
         layout.header.PartitionStyle == PARTITION_STYLE_GPT;
}

DWORD WriteFiles(System& system, const Request& request, bool uefi) {
  VolumeFiles files(system);
  const auto write = [&](const BootFile& file) {
    return files.Write(request.boot_letter + std::string(file.path), file.content);
  };
  DWORD error = ERROR_SUCCESS;
  for (const BootFile& file : uefi ? std::span<const BootFile>(kUefiFiles) : kBiosFiles) {
    if (error == ERROR_SUCCESS) error = write(file);
  }
  if (error != ERROR_SUCCESS) return error;
  const BcdSettings settings{ToUpperAscii(request.windows_folder[0]), request.boot_letter, uefi,
                             GuidText(system.NextGuid())};
  const std::string store = BcdFileText(MakeBcdStore(settings));
  return write({uefi ? kUefiStore : kBiosStore, store});
}

CommandResult Failed(std::string_view reason) {
  return {1, std::string(reason) + "\r\n"};
}

}  // namespace

CommandResult RunBcdboot(System& system, const std::vector<std::string>& arguments) {
  const auto request = ParseRequest(arguments);
  if (!request) return Failed("Usage: bcdboot [/v] W:\\Windows /s B: [/f uefi|bios]");
  if (!VolumeFiles(system).Exists(request->windows_folder)) {
    return Failed("There is no Windows in " + request->windows_folder + ".");
  }
  Volume* volume = system.FindVolumeByLetter(request->boot_letter);
  if (volume == nullptr || MountForUse(system, *volume) != ERROR_SUCCESS) {
    return Failed("The volume to start from is not accessible.");
  }
  const bool uefi = request->uefi.value_or(LiesOnGpt(system, *volume));
  const DWORD error = WriteFiles(system, *request, uefi);
  if (error != ERROR_SUCCESS) {
    return Failed("The boot files cannot be written: error " + std::to_string(error) + ".");
  }
  return {0, "Boot files successfully created.\r\n"};
}

}  // namespace simulator
