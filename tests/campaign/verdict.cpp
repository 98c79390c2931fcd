#include "campaign/verdict.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <utility>

#include "campaign/control_calls.h"
#include "campaign/tables.h"

namespace campaign {
namespace {

using enum Step;
using enum Verdict;

struct Rule {
  Step step;
  std::string_view call;
  Verdict verdict;
};

// What does not depend on the direction. Closing a handle or a file is nowhere looked at, and a
// script that could not be written is an empty one, with which diskpart is content.
constexpr Rule kRules[] = {
    {kOpening, "CreateFileA", kFatal},
    {kOpening, kGetStyle, kFatal},
    {kOpening, "SetFilePointer", kFatal},
    {kOpening, "ReadFile", kFatal},
    {kBackup, "CreateFileA", kFatal},
    {kBackup, "SetFilePointerEx", kFatal},
    {kBackup, "ReadFile", kFatal},

    // On a data disk that becomes GPT the shrink is forgiven, but the platform refuses a table that
    // leaves no room behind the last row.
    {kShrinking, "CreateFileA", kFatal},
    {kShrinking, kDismount, kFatal},
    {kShrinking, "SetFilePointer", kRetried},
    {kShrinking, "ReadFile", kRetried},
    {kShrinking, "WriteFile", kRetried},
    {kShrinking, kDeviceNumber, kFatal},
    {kShrinking, kGetLayout, kFatal},
    {kShrinking, kSetLayout, kFatal},
    {kReadingAgain, "SetFilePointer", kFatal},
    {kReadingAgain, "ReadFile", kFatal},

    {kCleaning, "fwrite", kForgivenOther},
    {kCreating, "time", kForgivenOther},
    {kCreating, "CoCreateGuid", kFatal},
    {kCreating, kCreateDisk, kFatal},
    {kCreating, kUpdate, kForgiven},
    {kWriting, kSetLayout, kFatal},
    {kWriting, kUpdate, kForgiven},

    {kBootStore, "DeleteFileA", kForgiven},
    {kActivating, "fwrite", kForgivenOther},
    // A volume without file system or letter has no room for a boot store.
    {kFormatting, "fwrite", kFatal},
    {kAssigning, "fwrite", kFatal},
    // No letter seems to be in use, and the first one to come is the system volume's.
    {kChoosingLetter, "GetLogicalDrives", kFatal},
    {kRecoverySettings, "remove", kForgiven},
    {kRecoverySettings, "fopen", kFatal},
    // Without an identifier the tool refuses the second line.
    {kRecoverySettings, "fread", kFatal},
};

// Steps that run a tool whose verdict counts, and those that run one whose verdict does not.
constexpr std::array kDecisiveTools = {kDecisiveRescan, kCleaning,        kBootSector,
                                       kBootStore,      kActivating,      kFormatting,
                                       kAssigning,      kRecoverySettings};
constexpr std::array kForgivenTools = {kRescan, kLetters};

constexpr std::array<std::string_view, 5> kDecisiveInTools = {
    "_wfopen_s", "ShellExecuteExW", "system", "GetExitCodeProcess", "command/"};
constexpr std::array<std::string_view, 4> kNeverLookedAt = {"CloseHandle", "fclose", "fwrite",
                                                            "WaitForMultipleObjects"};

bool IsIn(const auto& list, const auto& value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

bool IsDecisiveInTools(std::string_view call) {
  return std::any_of(kDecisiveInTools.begin(), kDecisiveInTools.end(),
                     [call](std::string_view name) { return call.starts_with(name); });
}

}  // namespace

const char* OutcomeName(Outcome outcome) {
  static constexpr std::array<const char*, kOutcomes> kNames = {
      "converted", "refused", "rolled_back", "blocks_missing", "rollback_failed", "table_cut"};
  return kNames.at(static_cast<std::size_t>(outcome));
}

Oracle::Oracle(const BaseDisk& disk, std::vector<PlacedCall> calls)
    : disk_(disk), calls_(std::move(calls)) {
  simulator::BlockDevice device(disk.image(), 512, simulator::Access::kReadOnly);
  for (const conversion::Partition& row : disk.scenario().kept) {
    mft_offsets_.push_back(MftOffset(device, row.offset()));
  }
  for (std::size_t i = 0; i < calls_.size(); ++i) {
    verdicts_.push_back(Judge(calls_[i], i + 1 < calls_.size() ? &calls_[i + 1] : nullptr));
  }
}

// Runs of an NTFS volume's own files, told by place and length from the boot sector, the first 16
// records and the records of single files, which count.
bool Oracle::IsForgivenRead(const PlacedCall& call) const {
  unsigned long long offset = 0;
  unsigned long long length = 0;
  if (std::sscanf(call.arguments.c_str(), "offset %llu length %llu", &offset, &length) != 2) {
    return false;
  }
  const conversion::Partitions& rows = disk_.scenario().kept;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::uint64_t mft = mft_offsets_[i];
    if (mft == 0 || offset < rows[i].offset() || offset > rows[i].last * 512) continue;
    const bool boot_sector = offset == rows[i].offset() && length == 2048;
    const bool first_records = offset == mft && length == 16384;
    const bool record = length == 1024 && offset > mft && (offset - mft) % 1024 == 0;
    return !boot_sector && !first_records && !record;
  }
  return false;
}

Verdict Oracle::Judge(const PlacedCall& call, const PlacedCall* next) const {
  const bool to_mbr = disk_.scenario().direction == Direction::kGptToMbr;
  const bool seek = call.name == "SetFilePointer";
  // The listing fits the first read; what fails then is taken for its end.
  if (call.name == "fread" && call.occurrence > 1) return kForgiven;
  if (call.name == "Sleep") return kCannotFail;
  if (call.step == kBackup && call.name == "SetFilePointerEx" && next != nullptr) {
    return IsForgivenRead(*next) ? kForgiven : kFatal;
  }
  if (call.step == kBackup && IsForgivenRead(call)) return kForgiven;
  // Between the sectors of the array the read goes ahead, where the last one ended.
  const bool list = call.step == kOpening || call.step == kReadingAgain;
  if (list && to_mbr && seek && call.occurrence % 3 == 0) return kForgiven;
  if (call.step == kReadingAgain && !to_mbr && !disk_.scenario().system) return kTableCut;
  if (call.name == "CoCreateGuid" && call.step == kBuilding) return to_mbr ? kForgiven : kFatal;

  const auto found = std::find_if(std::begin(kRules), std::end(kRules), [&](const Rule& rule) {
    return rule.step == call.step && rule.call == call.name;
  });
  if (found != std::end(kRules)) return found->verdict;
  if (IsIn(kNeverLookedAt, std::string_view(call.name))) return kForgiven;
  if (IsIn(kDecisiveTools, call.step) && IsDecisiveInTools(call.name)) return kFatal;
  // Letters, and rescans that only hurry what the system does anyhow.
  return IsIn(kForgivenTools, call.step) ? kForgiven : kUnknown;
}

Outcome Oracle::Once(std::size_t place) const {
  switch (verdict(place)) {
    case kTableCut:
      return Outcome::kTableCut;
    case kFatal:
      return IsUntouched(place) ? Outcome::kRefused : Outcome::kRolledBack;
    default:
      return Outcome::kConverted;
  }
}

// The first call that is not forgiven decides. Once a backup is there, the restore cannot open the
// disk any more.
Outcome Oracle::FromThenOn(std::size_t place) const {
  for (std::size_t i = place; i < calls_.size(); ++i) {
    if (verdict(i) != kFatal && verdict(i) != kRetried) continue;
    return IsUntouched(i) ? Outcome::kRefused : Outcome::kRollbackFailed;
  }
  return Outcome::kConverted;
}

}  // namespace campaign
