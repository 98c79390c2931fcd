// What diskpart keeps from line to line: the disk and the partition in focus, and the console text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "simulator/commands/diskpart_facts.h"
#include "simulator/disk.h"
#include "simulator/system.h"

namespace simulator::diskpart {

struct Session {
  System& system;
  Disk* disk = nullptr;
  DWORD partition = 0;  // the number in the disk's believed layout; 0 for none
  std::string output{};

  // Adds a line to the console text.
  void Print(std::string_view line);
};

// The partition in focus as the system believes the disk to be at this moment.
struct FocusedPartition {
  DiskLayout layout;
  std::size_t index = 0;  // of its row

  PARTITION_INFORMATION_EX& row() { return layout.rows[index]; }
  std::uint64_t offset() { return static_cast<std::uint64_t>(row().StartingOffset.QuadPart); }
  std::uint64_t length() { return static_cast<std::uint64_t>(row().PartitionLength.QuadPart); }
};

// Each returns a status of diskpart; the result is filled on success only.

// Success if a disk is in focus that is online.
DWORD RequireOnlineDisk(const Session& session);
DWORD FindFocusedPartition(const Session& session, FocusedPartition& focus);
// The volume of the partition in focus, which must be present.
DWORD FindFocusedVolume(const Session& session, FocusedPartition& focus, Volume*& volume);

}  // namespace simulator::diskpart
