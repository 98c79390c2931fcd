#include "simulator/host_ntfs.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "simulator/extent_copy.h"
#include "simulator/host_program.h"

namespace simulator {
namespace {

// True if the program ended with status 0.
bool Succeeds(std::vector<std::string> argv) {
  const auto result = RunHostProgram(std::move(argv));
  return result && result->exit_status == 0;
}

bool HostHasTools() {
  return RunHostProgram({"ntfsfix", "--version"}) && RunHostProgram({"ntfsresize", "--version"});
}

// Sound, and not scheduled for a check: ntfsresize refuses to look at a volume that is.
bool IsSound(const std::string& volume) {
  return Succeeds({"ntfsfix", "--no-action", volume}) && Succeeds({"ntfsresize", "--info", volume});
}

bool Repair(const std::string& volume) {
  return Succeeds({"ntfsfix", "--clear-dirty", volume}) && IsSound(volume);
}

NtfsOutcome RepairCopy(ExtentCopy& copy) {
  const std::string volume = copy.path().string();
  if (IsSound(volume)) return NtfsOutcome::kClean;
  if (!Repair(volume)) return NtfsOutcome::kDamaged;
  return copy.WriteBack() ? NtfsOutcome::kDone : NtfsOutcome::kNotMoved;
}

NtfsOutcome ShrinkCopy(ExtentCopy& copy, std::uint64_t new_length) {
  const std::string volume = copy.path().string();
  if (!IsSound(volume)) return NtfsOutcome::kDamaged;
  const std::string size = std::to_string(new_length);
  if (!Succeeds({"ntfsresize", "--no-action", "--size", size, volume})) return NtfsOutcome::kNoRoom;
  if (!Succeeds({"ntfsresize", "--force", "--size", size, volume})) return NtfsOutcome::kDamaged;
  copy.Truncate(new_length);
  // ntfsresize leaves the volume scheduled for a check; Windows does not.
  if (!Repair(volume)) return NtfsOutcome::kDamaged;
  return copy.WriteBack() ? NtfsOutcome::kDone : NtfsOutcome::kNotMoved;
}

template <typename Work>
NtfsOutcome OnCopy(BlockDevice& device, std::uint64_t offset, std::uint64_t length,
                   const Work& work) {
  if (!HostHasTools()) return NtfsOutcome::kNoTool;
  try {
    ExtentCopy copy(device, offset, length);
    return work(copy);
  } catch (const std::runtime_error&) {
    return NtfsOutcome::kNotMoved;
  }
}

}  // namespace

NtfsOutcome RepairNtfs(BlockDevice& device, std::uint64_t offset, std::uint64_t length) {
  return OnCopy(device, offset, length, RepairCopy);
}

NtfsOutcome ShrinkNtfs(BlockDevice& device, std::uint64_t offset, std::uint64_t length,
                       std::uint64_t new_length) {
  return OnCopy(device, offset, length,
                [new_length](ExtentCopy& copy) { return ShrinkCopy(copy, new_length); });
}

}  // namespace simulator
