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
// docs/simulator-guide.md shows it at work.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/call_log.h"
#include "simulator/clock.h"
#include "simulator/commands/command.h"
#include "simulator/crash_sender.h"
#include "simulator/disk.h"
#include "simulator/handle_table.h"
#include "simulator/libraries.h"
#include "simulator/memory_files.h"
#include "simulator/mount_manager.h"
#include "simulator/volume.h"

namespace simulator {

// Behaviours in which real systems differ, or of which we only believe to know the usual one.
struct Switches {
  bool automount = true;
  // IOCTL_DISK_CREATE_DISK makes the Microsoft reserved partition too.
  bool create_disk_makes_reserved_partition = false;
  // diskpart refuses `clean` on the disk of the running system.
  bool refuse_clean_of_system_disk = false;
  // The driver of a FAT32 volume keeps changed attributes and moves of clusters back for a while
  // and writes them together, as Fat32Files tells. Until then they are not in the image: let the
  // volume be dismounted or the machine end before another program looks at it.
  bool fat32_writes_late = false;
  // A CreateFile that fails gives null instead of INVALID_HANDLE_VALUE, as other ways to open do.
  bool failed_open_gives_null = false;
  StoreSwitches store;
};

// By which way a line reached the command interpreter.
enum class ShellRoute { kSystem, kElevated };

class SimulatedMachine {
 public:
  SimulatedMachine();
  ~SimulatedMachine();  // the machine is no longer current
  SimulatedMachine(const SimulatedMachine&) = delete;
  SimulatedMachine& operator=(const SimulatedMachine&) = delete;

  void MakeCurrent();
  // The current machine. Throws std::logic_error when there is none.
  static SimulatedMachine& Current();

  // ---- Setting up ------------------------------------------------------------------------------

  // Looked at whenever they matter; automount already when a disk is attached, fat32_writes_late
  // when a volume is mounted.
  Switches& switches() { return switches_; }

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
  void SetSystemDisk(std::uint32_t number) { system_disk_ = number; }
  std::uint32_t system_disk() const { return system_disk_; }

  // Replaces or adds a tool, found by `name` without ".exe" and without regard to case. bcdboot,
  // bcdedit, bootrec, bootsect, chkdsk and diskpart are there from the start.
  void SetCommand(std::string_view name, Command command);
  // What the shell runs, or null. `name` is a bare name, a name with ".exe", or a path to it, which
  // in a mapped folder needs a file of that name there; what the file holds does not matter.
  const Command* FindCommand(std::string_view name) const;

  // The calendar's time in seconds since 1970, which stands still; clock() has the time that waits
  // and tools take.
  void SetTime(std::int64_t seconds) { time_ = seconds; }
  // Where the row of GUIDs begins that the machine makes up; machines make up the same row unless
  // told otherwise.
  void SetGuidSeed(std::uint64_t seed) { guid_state_ = seed; }

  // How long each tool takes.
  std::uint64_t command_milliseconds = 200;

  // How many runs of diskpart's `detail volume` on a disk fail after each change of its layout, as
  // its partitions need a while to be mounted.
  std::uint32_t mount_delay_runs = 0;

  // What bcdedit takes for the store that the machine was started from; made at its first use.
  std::string own_boot_store;

  // What can be loaded at run time: the system's dump library, unless its builder takes it away.
  Libraries libraries = {{"dbghelp.dll", DbgHelpFunctions()}};

  // Called for each script that diskpart is given and each line that reaches the interpreter, in
  // the order of events.
  std::function<void(std::string_view script)> on_script;
  std::function<void(ShellRoute route, std::string_view line)> on_shell_line;

  // ---- Looking at it ---------------------------------------------------------------------------

  // Every call, and the way to make calls fail.
  CallLog& calls() { return calls_; }
  // What the crash sender was told, and a way to play its vendor.
  CrashSender crash_sender;
  // The streams of the C runtime that are open in a text mode.
  std::set<std::FILE*> text_streams;
  // Virtual time: every tool takes `command_milliseconds` of it.
  Clock& clock() { return clock_; }
  // What is still open: handles().Open().
  HandleTable& handles() { return handles_; }
  MountManager& mount_manager() { return mount_manager_; }
  char current_drive() const { return current_drive_; }
  std::int64_t time() const { return time_; }

  // Null where there is no such disk or volume, here and below. A letter goes in either case.
  Disk* FindDisk(std::uint32_t number);
  std::list<Disk>& disks() { return disks_; }
  // All volumes in the order in which they arrived. A volume's address is good until it leaves.
  std::list<Volume>& volumes() { return volumes_; }
  Volume* FindVolumeAt(std::uint32_t disk, std::uint64_t offset);
  Volume* FindVolumeByPath(std::string_view path);  // without trailing backslash, any case
  Volume* FindVolumeByLetter(char letter);
  Volume* FindVolumeByArrival(std::uint64_t arrival);
  std::string LettersOf(const Volume& volume) const;  // "D", "DE", ""
  // The files beside the image of the volume at this place, which outlive its coming and going.
  MemoryFiles& memory_files(std::uint32_t disk, std::uint64_t offset) {
    return memory_files_[{disk, offset}];
  }

  // ---- What the system does --------------------------------------------------------------------

  // Also for a test that wants something done to a disk behind the application's back.

  // The kernel's answers to the disk control codes; each returns a Windows error. CreateDisk and
  // SetLayout write the table and let volumes leave and arrive accordingly: a partition whose start
  // and length are unchanged keeps its volume.
  DWORD CreateDisk(Disk& disk, const CREATE_DISK& request);
  DWORD SetLayout(Disk& disk, DiskLayout& layout);
  // Drops what the system believes of the disk's table and looks again.
  void UpdateProperties(Disk& disk);
  void Rescan();  // every disk

  // Looks at the volume's file system and marks it mounted if Windows mounts such a one.
  void Mount(Volume& volume);
  GUID NextGuid();
  // A volume has been made anew on this place.
  void ForgetFiles(std::uint32_t disk, std::uint64_t offset) {
    memory_files_.erase({disk, offset});
  }
  // Where a Windows path leads on the host; nothing for a drive that maps no folder.
  std::optional<std::filesystem::path> HostPath(std::string_view windows_path) const;

 private:
  void RequireFreeNumber(std::uint32_t number);
  // Lets volumes leave and arrive until they agree with the believed layout.
  void Enumerate(Disk& disk);
  void Rename(Volume& volume, const Volume& as_now);
  void RemoveVolumes(const Disk& disk, const std::vector<VolumeExtent>& kept);
  void Arrive(Volume volume);
  DWORD AddReservedPartition(Disk& disk);

  Switches switches_;
  CallLog calls_;
  HandleTable handles_;
  MountManager mount_manager_;
  std::list<Disk> disks_;
  std::list<Volume> volumes_;
  std::map<std::pair<std::uint32_t, std::uint64_t>, MemoryFiles> memory_files_;
  std::map<std::string, Command> commands_;
  char current_drive_ = 'C';
  std::uint32_t system_disk_ = ~std::uint32_t{0};
  std::int64_t time_ = 1'700'000'000;
  std::uint64_t guid_state_ = 1;
  std::uint64_t arrivals_ = 0;
  // Last, so that its threads end while the rest still stands.
  Clock clock_;
};

}  // namespace simulator
