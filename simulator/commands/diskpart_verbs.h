// The verbs of diskpart. Each takes the words behind its own ones, prints what a person would read,
// and returns the status of its line.
#pragma once

#include <span>
#include <string>

#include "simulator/commands/diskpart_session.h"

namespace simulator::diskpart {

using Arguments = std::span<const std::string>;

// Disks.
DWORD SelectDisk(Session& session, Arguments arguments);  // N
DWORD Clean(Session& session, Arguments arguments);
DWORD Convert(Session& session, Arguments arguments);  // gpt | mbr
DWORD Rescan(Session& session, Arguments arguments);
DWORD OfflineDisk(Session& session, Arguments arguments);
DWORD OnlineDisk(Session& session, Arguments arguments);

// Partitions.
DWORD SelectPartition(Session& session, Arguments arguments);  // N
DWORD ListPartition(Session& session, Arguments arguments);
DWORD CreateEfiPartition(Session& session, Arguments arguments);  // size=MiB
DWORD Active(Session& session, Arguments arguments);

// Volumes.
DWORD DetailVolume(Session& session, Arguments arguments);
DWORD Format(Session& session, Arguments arguments);  // fs=fat32 [quick] [override]
DWORD Assign(Session& session, Arguments arguments);  // letter=X
DWORD Remove(Session& session, Arguments arguments);  // letter=X
// Takes MiB off the end of an NTFS volume and its partition. Needs the host's programs: where they
// are missing, kCannotShrink.
DWORD Shrink(Session& session, Arguments arguments);  // desired=MiB

}  // namespace simulator::diskpart
