// The inside of a simulated machine: what the operations of the seam, the devices and the tools
// work on. A test reaches it through SimulatedMachine, which sets it up and looks at it.
#pragma once

#include <cstdint>
#include <cstdio>
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

#include "platform/win32_types.h"
#include "simulator/call_log.h"
#include "simulator/clock.h"
#include "simulator/commands/command.h"
#include "simulator/crash_sender.h"
#include "simulator/guid_row.h"
#include "simulator/handle_table.h"
#include "simulator/machine_settings.h"
#include "simulator/memory_files.h"
#include "simulator/mount_manager.h"
#include "simulator/storage/access.h"
#include "simulator/switches.h"

namespace simulator {

class Disk;
class ImageOverlay;
class System;
struct DiskLayout;
struct Volume;
struct VolumeExtent;

// A tool as the command interpreter runs it.
using Tool =
    std::function<CommandResult(System& system, const std::vector<std::string>& arguments)>;

// What SimulatedMachine has by the same name is told there.
class System {
 public:
  // `settings` outlives the system.
  explicit System(MachineSettings& settings);
  ~System();  // no longer current
  System(const System&) = delete;
  System& operator=(const System&) = delete;

  void MakeCurrent();
  // The current system. Throws NoCurrentMachine when there is none.
  static System& Current();

  // ---- Parts -----------------------------------------------------------------------------------

  MachineSettings& settings() { return settings_; }
  const MachineSettings& settings() const { return settings_; }
  Switches& switches() { return switches_; }
  CallLog& calls() { return calls_; }
  Clock& clock() { return clock_; }
  HandleTable& handles() { return handles_; }
  MountManager& mount_manager() { return mount_manager_; }
  CrashSender& crash_sender() { return crash_sender_; }
  // The streams of the C runtime that are open in a text mode.
  std::set<std::FILE*>& text_streams() { return text_streams_; }

  void SetSystemDisk(std::uint32_t number) { system_disk_ = number; }
  std::uint32_t system_disk() const { return system_disk_; }
  void SetTime(std::int64_t seconds) { time_ = seconds; }
  std::int64_t time() const { return time_; }
  void SetGuidSeed(std::uint64_t seed) { guids_ = GuidRow(seed); }
  GUID NextGuid() { return guids_.Next(); }

  // ---- Tools, letters, folders -----------------------------------------------------------------

  void SetTool(std::string_view name, Tool tool);
  // What the shell runs, or null. `name` is a bare name, a name with ".exe", or a path to it, which
  // in a mapped folder needs a file of that name there; what the file holds does not matter.
  const Tool* FindTool(std::string_view name) const;

  void SetLetter(std::uint32_t disk, std::uint64_t offset, char letter);
  void RemoveLetter(char letter);
  void MapFolder(char letter, const std::filesystem::path& folder);
  char current_drive() const { return current_drive_; }
  std::optional<std::filesystem::path> HostPath(std::string_view windows_path) const;

  // ---- Disks and volumes -----------------------------------------------------------------------

  Disk& AttachDisk(std::uint32_t number, const std::filesystem::path& image,
                   std::uint32_t sector_size, Access access);
  Disk& AttachDisk(std::uint32_t number, const std::filesystem::path& image, ImageOverlay& overlay,
                   std::uint32_t sector_size);

  // Null where there is no such disk or volume, here and below. A letter goes in either case.
  Disk* FindDisk(std::uint32_t number);
  std::list<Disk>& disks() { return disks_; }
  std::list<Volume>& volumes() { return volumes_; }
  Volume* FindVolumeAt(std::uint32_t disk, std::uint64_t offset);
  Volume* FindVolumeByPath(std::string_view path);
  Volume* FindVolumeByLetter(char letter);
  Volume* FindVolumeByArrival(std::uint64_t arrival);
  std::string LettersOf(const Volume& volume) const;
  MemoryFiles& memory_files(std::uint32_t disk, std::uint64_t offset) {
    return memory_files_[{disk, offset}];
  }
  // A new volume has been made at this place.
  void ForgetFiles(std::uint32_t disk, std::uint64_t offset) {
    memory_files_.erase({disk, offset});
  }

  // The kernel's answers to the disk control codes; each returns a Windows error. CreateDisk and
  // SetLayout write the table and let volumes leave and arrive accordingly: a partition whose start
  // and length are unchanged keeps its volume.
  DWORD CreateDisk(Disk& disk, const CREATE_DISK& request);
  DWORD SetLayout(Disk& disk, DiskLayout& layout);
  void UpdateProperties(Disk& disk);
  void Rescan();

  void Mount(Volume& volume);
  void Arrive(Volume volume);

 private:
  void RequireFreeNumber(std::uint32_t number);
  // Lets volumes leave and arrive until they agree with the believed layout.
  void Enumerate(Disk& disk);
  void Rename(Volume& volume, const Volume& as_now);
  void RemoveVolumes(const Disk& disk, const std::vector<VolumeExtent>& kept);
  DWORD AddReservedPartition(Disk& disk);

  MachineSettings& settings_;
  CrashSender crash_sender_;
  std::set<std::FILE*> text_streams_;
  Switches switches_;
  CallLog calls_;
  HandleTable handles_;
  MountManager mount_manager_;
  std::list<Disk> disks_;
  std::list<Volume> volumes_;
  std::map<std::pair<std::uint32_t, std::uint64_t>, MemoryFiles> memory_files_;
  std::map<std::string, Tool> tools_;
  char current_drive_ = 'C';
  std::uint32_t system_disk_ = ~std::uint32_t{0};
  std::int64_t time_ = 1'700'000'000;
  GuidRow guids_{1};
  std::uint64_t arrivals_ = 0;
  // Last, so that its threads end while the rest still exists.
  Clock clock_;
};

}  // namespace simulator
