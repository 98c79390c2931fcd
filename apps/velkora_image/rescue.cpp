#include "apps/velkora_image/rescue.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <string>

#include "apps/velkora_image/image_disk.h"
#include "apps/velkora_image/input_error.h"
#include "host/undo.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "simulator/volume.h"

namespace velkora_image {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kEnd = std::uint64_t{1} << 20;  // bytes at both ends that are always kept
constexpr char kRescueLetter = 'R';
constexpr int kUndoFailed = 3;

// The file as a path of the machine.
std::string MapFile(simulator::SimulatedMachine& machine, const fs::path& file) {
  machine.MapFolder(kRescueLetter, fs::absolute(file).parent_path());
  return std::string(1, kRescueLetter) + ":\\" + file.filename().string();
}

// The kit names the file as the machine knows it.
std::string Plain(std::string text, const std::string& path, const fs::path& file) {
  if (text.starts_with(path)) text.replace(0, path.size(), file.string());
  return text;
}

HANDLE OpenDisk(const simulator::Disk& disk, DWORD access) {
  return win32::CreateFileA(disk.path().c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                            nullptr, OPEN_EXISTING, 0, nullptr);
}

// Raw writes do not reach into a mounted volume.
void Dismount(simulator::SimulatedMachine& machine) {
  for (const simulator::Volume& volume : machine.volumes()) {
    const HANDLE handle =
        win32::CreateFileA(volume.path.c_str(), GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    DWORD returned = 0;
    win32::DeviceIoControl(handle, FSCTL_DISMOUNT_VOLUME, nullptr, 0, nullptr, 0, &returned,
                           nullptr);
    win32::CloseHandle(handle);
  }
}

}  // namespace

Rescue::Rescue(simulator::SimulatedMachine& machine, const fs::path& image, const fs::path& file)
    : converting_(machine) {
  simulator::Disk& own = AttachImage(machine_, image, simulator::Access::kReadOnly);
  const std::string path = MapFile(machine_, file);
  machine_.MakeCurrent();
  try {
    writer_.emplace(path, velkora_host::RescueDisk{OpenDisk(own, GENERIC_READ), own.device().size(),
                                                   own.device().sector_size()});
    const std::uint64_t end = std::min(kEnd, own.device().size());
    writer_->Save(std::array{velkora_host::ByteRange{0, end},
                             velkora_host::ByteRange{own.device().size() - end, end}});
    writer_->Seal();
  } catch (const velkora_host::RescueError& error) {
    throw InputError("--rescue: " + Plain(error.what(), path, file));
  }
  converting_.MakeCurrent();
  converting_.FindDisk(kImageDiskNumber)->device().before_change =
      [this](std::uint64_t offset, std::uint64_t length) { return KeepBefore(offset, length); };
}

Rescue::~Rescue() {
  simulator::BlockDevice& device = converting_.FindDisk(kImageDiskNumber)->device();
  device.TellLateWriters();  // what waits in the file system driver changes the image, too
  device.before_change = nullptr;
  machine_.MakeCurrent();
  writer_.reset();
  converting_.MakeCurrent();
}

bool Rescue::KeepBefore(std::uint64_t offset, std::uint64_t length) {
  const DWORD error = win32::GetLastError();
  machine_.MakeCurrent();
  bool kept = true;
  try {
    writer_->SaveMore({offset, length});
  } catch (const velkora_host::RescueError& reason) {
    failure_ = reason.what();
    kept = false;
  }
  converting_.MakeCurrent();
  win32::SetLastError(error);
  return kept;
}

int Undo(const UndoOptions& options) {
  simulator::SimulatedMachine machine;
  simulator::Disk& disk = AttachImage(machine, options.image, simulator::Access::kReadWrite);
  const std::string path = MapFile(machine, options.rescue);
  machine.MakeCurrent();
  Dismount(machine);
  const HANDLE handle = OpenDisk(disk, GENERIC_READ | GENERIC_WRITE);
  try {
    const std::uint64_t restored = velkora_host::Undo(path, handle, disk.device().size());
    std::cout << "Undone: " << restored << " bytes of " << options.image.string()
              << " are as they were before.\n";
    return 0;
  } catch (const velkora_host::RescueError& error) {
    if (disk.device().bytes_written() == 0) {
      throw InputError(Plain(error.what(), path, options.rescue));
    }
    std::cerr << "velkora-image: " << options.image.string()
              << ": the undo ended in the middle and can be run again\n  " << error.what() << "\n";
    return kUndoFailed;
  }
}

}  // namespace velkora_image
