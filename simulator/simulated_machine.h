// A small, honest Windows for tests: disks that are image files, volumes, letters, folders, tools.
// It keeps what is on a disk apart from what the system believes of it.
//
// Set one up, make it current, run the library or an application against it, look at the result:
//
//   simulator::SimulatedMachine machine;
//   machine.MapFolder('X', logs_folder);
//   machine.AttachDisk(1, "disk.img");
//   machine.MakeCurrent();
//
// One machine is current at a time; everything that the library asks of Windows goes to it. Calls
// may come from several threads, one at a time; a thread of the application's own is started
// through clock(). Nothing outlives the machine but its images, the folders mapped into it, and
// what the library itself remembers until the process ends (a stop, its crash dump).
//
// A class that is only declared here has a header of its own: disk.h, volume.h, clock.h, ...
//
// docs/simulator-guide.md shows it at work.
#pragma once

#include <cstdint>
#include <filesystem>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/win32_types.h"
#include "simulator/call_log.h"
#include "simulator/commands/command.h"
#include "simulator/handle_table.h"
#include "simulator/machine_settings.h"
#include "simulator/storage/access.h"
#include "simulator/switches.h"

namespace simulator {

class Clock;
class Disk;
class ImageOverlay;
class MemoryFiles;
class MountManager;
class System;
struct CrashSender;
struct DiskLayout;
struct Volume;

// The settings are fields of the machine: `machine.mount_delay_runs = 3`.
class SimulatedMachine : public MachineSettings {
 public:
  SimulatedMachine();
  ~SimulatedMachine();  // the machine is no longer current
  SimulatedMachine(const SimulatedMachine&) = delete;
  SimulatedMachine& operator=(const SimulatedMachine&) = delete;

  void MakeCurrent();

  // ---- Setting up ------------------------------------------------------------------------------

  // Looked at whenever they matter; automount already when a disk is attached, fat32_writes_late
  // when a volume is mounted.
  Switches& switches();

  // Attaches an image as `\\.\PhysicalDrive<number>`; its volumes arrive and get letters as on a
  // system that sees the disk for the first time. An image that is only read fails every write as a
  // broken disk does. Throws std::runtime_error as BlockDevice does, std::invalid_argument for a
  // number in use.
  Disk& AttachDisk(std::uint32_t number, const std::filesystem::path& image,
                   std::uint32_t sector_size = 512, Access access = Access::kReadWrite);
  // The same, but the image file stays as it is: what is written is kept in `overlay`, which
  // outlives the machine.
  Disk& AttachDisk(std::uint32_t number, const std::filesystem::path& image, ImageOverlay& overlay,
                   std::uint32_t sector_size = 512);

  // Lets a letter stand for a folder of the host, for logs and scripts. The first one mapped is the
  // current drive. It has a bit in the mask of letters and no volume.
  void MapFolder(char letter, const std::filesystem::path& folder);

  // A volume that lies on no attached disk, or on several: an optical drive, a spanned volume.
  void AddVolume(const Volume& volume);

  // Gives `letter` to the volume that starts at `offset` of the disk, taking away what either had
  // before. Throws std::invalid_argument when there is no such volume.
  void SetLetter(std::uint32_t disk, std::uint64_t offset, char letter);
  // Takes the letter from whoever has it, and forgets for whom it was.
  void RemoveLetter(char letter);

  // Puts a file on the volume that starts at `offset` of the disk: into the image of a FAT32
  // volume, beside the image otherwise. Folders on the way are made. Throws std::invalid_argument
  // when there is no such volume with a file system of Windows, std::runtime_error when the file
  // has no room.
  void AddFile(std::uint32_t disk, std::uint64_t offset, std::string_view path,
               std::string_view content = {});

  // The disk that the machine runs from, for what diskpart refuses there.
  void SetSystemDisk(std::uint32_t number);
  std::uint32_t system_disk() const;

  // Replaces or adds a tool, found by `name` without ".exe" and without regard to case. bcdboot,
  // bcdedit, bootrec, bootsect, chkdsk and diskpart are there from the start.
  void SetCommand(std::string_view name, Command command);

  // The calendar's time in seconds since 1970, which stands still; clock() has the time that waits
  // and tools take.
  void SetTime(std::int64_t seconds);
  // Where the row of GUIDs begins that the machine makes up; machines make up the same row unless
  // told otherwise.
  void SetGuidSeed(std::uint64_t seed);

  // ---- Looking at it ---------------------------------------------------------------------------

  // Every call, and the way to make calls fail.
  CallLog& calls();
  // Virtual time: every tool takes `command_milliseconds` of it.
  Clock& clock();
  // What is still open: handles().Open().
  HandleTable& handles();
  MountManager& mount_manager();
  char current_drive() const;
  std::int64_t time() const;

  // Null where there is no such disk or volume, here and below. A letter goes in either case.
  Disk* FindDisk(std::uint32_t number);
  std::list<Disk>& disks();
  // All volumes in the order in which they arrived. A volume's address is good until it leaves.
  std::list<Volume>& volumes();
  Volume* FindVolumeAt(std::uint32_t disk, std::uint64_t offset);
  Volume* FindVolumeByPath(std::string_view path);  // without trailing backslash, any case
  Volume* FindVolumeByLetter(char letter);
  std::string LettersOf(const Volume& volume) const;  // "D", "DE", ""
  // The files beside the image of the volume at this place, which outlive its coming and going.
  MemoryFiles& memory_files(std::uint32_t disk, std::uint64_t offset);
  // Where a Windows path leads on the host; nothing for a drive that maps no folder.
  std::optional<std::filesystem::path> HostPath(std::string_view windows_path) const;

  // ---- Doing what the system does --------------------------------------------------------------

  // For a test that wants something done to a disk without the application's knowledge. As of
  // System.
  DWORD CreateDisk(Disk& disk, const CREATE_DISK& request);
  DWORD SetLayout(Disk& disk, DiskLayout& layout);
  // Drops what the system believes of the disk's table and looks again.
  void UpdateProperties(Disk& disk);
  void Rescan();  // every disk
  // Looks at the volume's file system and marks it mounted if Windows mounts such a one.
  void Mount(Volume& volume);
  GUID NextGuid();

  // The machine's inside, for its own parts and their tests.
  System& system() { return *system_; }

 private:
  const std::unique_ptr<System> system_;

 public:
  // What the crash sender was told, and a way to play its vendor.
  CrashSender& crash_sender;
};

}  // namespace simulator
