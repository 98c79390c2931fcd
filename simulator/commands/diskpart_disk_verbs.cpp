#include <algorithm>
#include <limits>

#include "simulator/commands/diskpart_layout.h"
#include "simulator/commands/diskpart_script.h"
#include "simulator/commands/diskpart_verbs.h"

namespace simulator::diskpart {
namespace {

constexpr DWORD kGptEntries = 128;

DWORD ZeroBothEnds(BlockDevice& device) {
  const std::uint64_t length = std::min(kCleanedEnd, device.size());
  const bool zeroed = device.Zero(0, length) && device.Zero(device.size() - length, length);
  return zeroed ? kSuccess : StatusOf(ERROR_WRITE_FAULT);
}

DWORD CreateReservedPartition(Session& session) {
  DiskLayout layout;
  DWORD error = session.disk->Layout(layout);
  // On some systems creating the disk has made it already.
  if (error != ERROR_SUCCESS || !layout.rows.empty()) return StatusOf(error);
  const auto start = static_cast<std::uint64_t>(layout.header.Gpt.StartingUsableOffset.QuadPart);
  layout.rows.push_back(MakeGptRow(kReservedPartitionType, session.system.NextGuid(), start,
                                   kReservedPartitionEnd - start));
  layout.header.PartitionCount = 1;
  error = session.system.SetLayout(*session.disk, layout);
  return StatusOf(error);
}

DWORD ConvertToGpt(Session& session) {
  if (session.disk->device().size() < kSmallestGptDisk) return kTooSmallForGpt;
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_GPT;
  request.Gpt.DiskId = session.system.NextGuid();
  request.Gpt.MaxPartitionCount = kGptEntries;
  const DWORD error = session.system.CreateDisk(*session.disk, request);
  return error == ERROR_SUCCESS ? CreateReservedPartition(session) : StatusOf(error);
}

DWORD ConvertToMbr(Session& session) {
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_MBR;
  request.Mbr.Signature = session.system.NextGuid().Data1;
  return StatusOf(session.system.CreateDisk(*session.disk, request));
}

// Checks that the disk in focus is empty and not of `style` already.
DWORD RequireConvertibleDisk(const Session& session, PARTITION_STYLE style) {
  const DWORD status = RequireOnlineDisk(session);
  if (status != kSuccess) return status;
  DiskLayout layout;
  const DWORD error = session.disk->Layout(layout);
  if (error != ERROR_SUCCESS) return StatusOf(error);
  const bool has_style = layout.header.PartitionStyle == static_cast<DWORD>(style);
  return has_style || !IsEmpty(layout) ? kNotConvertible : kSuccess;
}

}  // namespace

DWORD SelectDisk(Session& session, Arguments arguments) {
  const auto number = ParseNumber(arguments.front());
  if (!number) return kSyntaxError;
  session.partition = 0;
  session.disk = *number <= std::numeric_limits<std::uint32_t>::max()
                     ? session.system.FindDisk(static_cast<std::uint32_t>(*number))
                     : nullptr;
  if (session.disk == nullptr) return kObjectNotFound;
  session.Print("Disk " + arguments.front() + " is now the selected disk.");
  return kSuccess;
}

DWORD Clean(Session& session, Arguments) {
  DWORD status = RequireOnlineDisk(session);
  if (status != kSuccess) return status;
  System& system = session.system;
  if (system.switches().refuse_clean_of_system_disk &&
      system.system_disk() == session.disk->number()) {
    return kOperationDenied;
  }
  status = ZeroBothEnds(session.disk->device());
  session.partition = 0;
  system.UpdateProperties(*session.disk);
  if (status == kSuccess) session.Print("The disk is clean now.");
  return status;
}

DWORD Convert(Session& session, Arguments arguments) {
  const bool to_gpt = IsKeyword(arguments.front(), "gpt");
  if (!to_gpt && !IsKeyword(arguments.front(), "mbr")) return kSyntaxError;
  DWORD status =
      RequireConvertibleDisk(session, to_gpt ? PARTITION_STYLE_GPT : PARTITION_STYLE_MBR);
  if (status != kSuccess) return status;
  status = to_gpt ? ConvertToGpt(session) : ConvertToMbr(session);
  session.partition = 0;
  if (status == kSuccess) {
    session.Print(to_gpt ? "The disk has the GPT style now." : "The disk has the MBR style now.");
  }
  return status;
}

DWORD Rescan(Session& session, Arguments) {
  session.system.Rescan();
  session.Print("The disks have been scanned again.");
  return kSuccess;
}

DWORD OfflineDisk(Session& session, Arguments) {
  const DWORD status = RequireOnlineDisk(session);
  if (status != kSuccess) return status;
  session.disk->set_online(false);
  session.system.UpdateProperties(*session.disk);
  session.Print("The disk is offline now.");
  return kSuccess;
}

DWORD OnlineDisk(Session& session, Arguments) {
  if (session.disk == nullptr) return kObjectNotFound;
  if (session.disk->online()) return kDiskAlreadyOnline;
  session.disk->set_online(true);
  session.system.UpdateProperties(*session.disk);
  session.Print("The disk is online now.");
  return kSuccess;
}

}  // namespace simulator::diskpart
