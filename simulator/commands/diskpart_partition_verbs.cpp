#include <iomanip>
#include <limits>
#include <sstream>

#include "simulator/commands/diskpart_layout.h"
#include "simulator/commands/diskpart_script.h"
#include "simulator/commands/diskpart_verbs.h"

namespace simulator::diskpart {
namespace {

std::string SizeText(LONGLONG bytes) {
  constexpr std::uint64_t kKiB = 1024;
  const auto size = static_cast<std::uint64_t>(bytes);
  if (size < 10 * kMiB) return std::to_string(size / kKiB) + " KB";
  if (size < 10 * kKiB * kMiB) return std::to_string(size / kMiB) + " MB";
  return std::to_string(size / (kKiB * kMiB)) + " GB";
}

std::string_view TypeText(const DiskLayout& layout, std::size_t index) {
  if (layout.header.PartitionStyle == PARTITION_STYLE_MBR) {
    return IsLogical(layout, index) ? "Logical" : "Primary";
  }
  const GUID& type = layout.rows[index].Gpt.PartitionType;
  if (IsSameGuid(type, kEfiSystemPartitionType)) return "System";
  return IsSameGuid(type, kReservedPartitionType) ? "Reserved" : "Primary";
}

void PrintRow(Session& session, std::string_view number, std::string_view type,
              std::string_view size, std::string_view offset) {
  std::ostringstream text;
  text << "  " << std::left << std::setw(15) << number << std::setw(18) << type << std::right
       << std::setw(8) << size << "  " << std::setw(8) << offset;
  session.Print(text.str());
}

// Gives the only primary row `focus_index` the boot mark, and marks what has to be written.
bool MoveBootMark(DiskLayout& layout, std::size_t focus_index) {
  bool changed = false;
  for (std::size_t index = 0; index < layout.rows.size() && !IsLogical(layout, index); ++index) {
    PARTITION_INFORMATION_EX& row = layout.rows[index];
    const bool wanted = index == focus_index;
    if ((row.Mbr.BootIndicator != 0) == wanted) continue;
    row.Mbr.BootIndicator = wanted ? 1 : 0;
    row.RewritePartition = TRUE;
    changed = true;
  }
  return changed;
}

// The size in bytes of "size=MiB"; nothing for another word, 0 and what 64 bits cannot hold.
std::optional<std::uint64_t> ParseSize(std::string_view word) {
  const auto text = ParameterValue(word, "size");
  const auto size = text ? ParseNumber(*text) : std::nullopt;
  if (!size || *size == 0 || *size > std::numeric_limits<std::uint64_t>::max() / kMiB) {
    return std::nullopt;
  }
  return *size * kMiB;
}

}  // namespace

DWORD SelectPartition(Session& session, Arguments arguments) {
  const auto number = ParseNumber(arguments.front());
  if (!number) return kSyntaxError;
  session.partition =
      *number <= std::numeric_limits<DWORD>::max() ? static_cast<DWORD>(*number) : 0;
  FocusedPartition focus;
  const DWORD status = FindFocusedPartition(session, focus);
  if (status != kSuccess) {
    session.partition = 0;
    return status;
  }
  session.Print("Partition " + arguments.front() + " is now the selected partition.");
  return kSuccess;
}

DWORD ListPartition(Session& session, Arguments) {
  if (session.disk == nullptr) return kObjectNotFound;
  DiskLayout layout;
  const DWORD error = session.disk->Layout(layout);
  if (error != ERROR_SUCCESS) return StatusOf(error);
  PrintRow(session, "Partition ###", "Type", "Size", "Offset");
  for (std::size_t index = 0; index < layout.rows.size(); ++index) {
    const PARTITION_INFORMATION_EX& row = layout.rows[index];
    if (row.PartitionNumber == 0) continue;
    const bool in_focus = row.PartitionNumber == session.partition;
    PrintRow(session,
             (in_focus ? "* Partition " : "Partition ") + std::to_string(row.PartitionNumber),
             TypeText(layout, index), SizeText(row.PartitionLength.QuadPart),
             SizeText(row.StartingOffset.QuadPart));
  }
  return kSuccess;
}

DWORD CreateEfiPartition(Session& session, Arguments arguments) {
  const auto length = ParseSize(arguments.front());
  if (!length) return kSyntaxError;
  const DWORD status = RequireOnlineDisk(session);
  if (status != kSuccess) return status;
  DiskLayout layout;
  DWORD error = session.disk->Layout(layout);
  if (error != ERROR_SUCCESS) return StatusOf(error);
  if (layout.header.PartitionStyle != PARTITION_STYLE_GPT) return kWrongStyleForVerb;
  const auto offset = FindFreeRegion(layout, *length);
  if (!offset) return kNotEnoughSpace;

  layout.rows.push_back(
      MakeGptRow(kEfiSystemPartitionType, session.system.NextGuid(), *offset, *length));
  layout.header.PartitionCount = static_cast<DWORD>(layout.rows.size());
  error = session.system.SetLayout(*session.disk, layout);
  if (error != ERROR_SUCCESS) return StatusOf(error);
  session.partition = layout.rows.back().PartitionNumber;
  session.Print("The partition has been created.");
  return kSuccess;
}

// Believed: a logical partition is refused.
DWORD Active(Session& session, Arguments) {
  DWORD status = RequireOnlineDisk(session);
  if (status != kSuccess) return status;
  FocusedPartition focus;
  status = FindFocusedPartition(session, focus);
  if (status != kSuccess) return status;
  if (focus.layout.header.PartitionStyle != PARTITION_STYLE_MBR) return kWrongStyleForVerb;
  if (IsLogical(focus.layout, focus.index)) return kOperationDenied;
  if (MoveBootMark(focus.layout, focus.index)) {
    status = StatusOf(session.system.SetLayout(*session.disk, focus.layout));
  }
  if (status == kSuccess) session.Print("The partition is active now.");
  return status;
}

}  // namespace simulator::diskpart
