#include "simulator/commands/diskpart_session.h"

#include <algorithm>

namespace simulator::diskpart {

void Session::Print(std::string_view line) {
  output += line;
  output += "\r\n";
}

DWORD RequireOnlineDisk(const Session& session) {
  if (session.disk == nullptr) return kObjectNotFound;
  return session.disk->online() ? kSuccess : kDiskOffline;
}

DWORD FindFocusedPartition(const Session& session, FocusedPartition& focus) {
  if (session.disk == nullptr || session.partition == 0) return kObjectNotFound;
  const DWORD error = session.disk->Layout(focus.layout);
  if (error != ERROR_SUCCESS) return StatusOf(error);
  const auto& rows = focus.layout.rows;
  const auto row = std::find_if(rows.begin(), rows.end(), [&session](const auto& candidate) {
    return candidate.PartitionNumber == session.partition;
  });
  if (row == rows.end()) return kObjectNotFound;
  focus.index = static_cast<std::size_t>(row - rows.begin());
  return kSuccess;
}

DWORD FindFocusedVolume(const Session& session, FocusedPartition& focus, Volume*& volume) {
  const DWORD status = FindFocusedPartition(session, focus);
  if (status != kSuccess) return status;
  volume = session.system.FindVolumeAt(session.disk->number(), focus.offset());
  return volume == nullptr ? kObjectNotFound : kSuccess;
}

}  // namespace simulator::diskpart
