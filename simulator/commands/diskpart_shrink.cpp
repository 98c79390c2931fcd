// diskpart's `shrink`, which the host's programs carry out on the image's NTFS volume.
#include "simulator/commands/diskpart_script.h"
#include "simulator/commands/diskpart_verbs.h"
#include "simulator/host_ntfs.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"
#include "simulator/volume_path.h"

namespace simulator::diskpart {
namespace {

DWORD ShrinkStatus(NtfsOutcome outcome) {
  switch (outcome) {
    case NtfsOutcome::kDone:
      return kSuccess;
    case NtfsOutcome::kNoRoom:
      return kShrinkTooLarge;
    case NtfsOutcome::kDamaged:
      return kFileSystemDamaged;
    case NtfsOutcome::kNotMoved:
      return StatusOf(ERROR_WRITE_FAULT);
    default:
      return kCannotShrink;
  }
}

// The row's new end in the table. The volume's extent changes first, so that it counts as the same
// place and the volume stays.
DWORD ShortenPartition(Session& session, FocusedPartition& focus, Volume& volume,
                       std::uint64_t new_length) {
  const std::uint64_t old_length = volume.extents.front().length;
  volume.extents.front().length = new_length;
  focus.row().PartitionLength.QuadPart = static_cast<LONGLONG>(new_length);
  focus.row().RewritePartition = TRUE;
  const DWORD error = session.system.SetLayout(*session.disk, focus.layout);
  if (error != ERROR_SUCCESS) volume.extents.front().length = old_length;
  return StatusOf(error);
}

}  // namespace

DWORD Shrink(Session& session, Arguments arguments) {
  const auto text = ParameterValue(arguments.front(), "desired");
  const auto size_mib = text ? ParseNumber(*text) : std::nullopt;
  if (!size_mib || *size_mib == 0) return kSyntaxError;
  DWORD status = RequireOnlineDisk(session);
  if (status != kSuccess) return status;
  FocusedPartition focus;
  Volume* volume = nullptr;
  status = FindFocusedVolume(session, focus, volume);
  if (status != kSuccess) return status;
  if (MountForUse(session.system, *volume) != ERROR_SUCCESS) return kCannotShrink;
  if (volume->file_system != FileSystem::kNtfs) return kCannotShrink;
  if (*size_mib >= focus.length() / kMiB) return kShrinkTooLarge;
  const std::uint64_t new_length = focus.length() - *size_mib * kMiB;
  status =
      ShrinkStatus(ShrinkNtfs(session.disk->device(), focus.offset(), focus.length(), new_length));
  if (status == kSuccess) status = ShortenPartition(session, focus, *volume, new_length);
  if (status != kSuccess) return status;
  session.system.Mount(*volume);
  session.Print("The volume has been shrunk by " + std::to_string(*size_mib) + " MB.");
  return kSuccess;
}

}  // namespace simulator::diskpart
