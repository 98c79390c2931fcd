#include "campaign/step.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>

namespace campaign {
namespace {

using enum Step;

struct Beginning {
  std::string_view line;  // how it begins
  Step step;
  // What must have been before; none: anything but the rollback.
  std::optional<Step> before = std::nullopt;
};

constexpr std::string_view kRescanBegins = "log 1: DISKPART_Rescan Begin...";
constexpr std::string_view kRescanSuccess = "log 1: DISKPART_Rescan Success!";
constexpr std::string_view kRescanFailed = "log 3: DISKPART_Rescan Failed!";

// The first that fits counts. A rescan is told from the others by what went before it.
constexpr Beginning kBeginnings[] = {
    {"log 1: [BackupRestore] DoBackup ", kBackup},
    {"log 1: CompressPart Begin...", kShrinking},
    {kRescanBegins, kDecisiveRescan, kBackup},
    {kRescanBegins, kDecisiveRescan, kShrinking},
    {kRescanBegins, kDecisiveRescan, kReadingAgain},
    {kRescanSuccess, kReadingAgain, kDecisiveRescan},
    {"log 1: DISKPART_Clean Begin...", kCleaning},
    {"status 3", kCreating},
    {kRescanBegins, kRescan},
    {kRescanSuccess, kBuilding, kRescan},
    {kRescanFailed, kBuilding, kRescan},
    {"log 1: Set mbr partition table", kWriting},
    {"log 1: Set gpt partition table", kWriting},
    {"log 1: RestoreVolumeInfosAfterConvert Begin...", kLetters},
    {"log 1: RecoverMbr Begin...", kBootSector},
    {"log 1: RecoverBcd Begin...", kBootStore},
    {"log 1: DISKPART_Active Begin...", kActivating},
    {"log 1: DISKPART_Format Begin...", kFormatting},
    {"log 1: DISKPART_Format Success!", kChoosingLetter},
    {"log 1: DISKPART_Assign Begin...", kAssigning},
    {"log 1: BcdEnableRecovery Begin...", kRecoverySettings},
    {"status 7", kEnding},
    {"status 9", kCleaningAgain},
};

constexpr Beginning kRollback[] = {
    {"log 1: DISKPART_Convert Begin...", kConvertingBack},
    {"log 1: [BackupRestore] DoRestore ", kRestore},
    {kRescanBegins, kRescanAfterRestore},
    {"log 1: RestoreVolumeInfosAfterConvert Begin...", kLettersAfterRestore},
};

}  // namespace

const char* StepName(Step step) {
  static constexpr std::array kNames = {"opening",
                                        "backup",
                                        "shrinking",
                                        "decisive rescan",
                                        "reading again",
                                        "cleaning",
                                        "creating",
                                        "rescan",
                                        "building",
                                        "writing",
                                        "letters",
                                        "boot sector",
                                        "boot store",
                                        "activating",
                                        "formatting",
                                        "choosing",
                                        "assigning",
                                        "recovery settings",
                                        "ending",
                                        "cleaning again",
                                        "converting back",
                                        "restore",
                                        "rescan after the restore",
                                        "letters after the restore"};
  return kNames.at(static_cast<std::size_t>(step));
}

Step NextStep(Step step, std::string_view line) {
  const auto fits = [&](const Beginning& b) {
    return line.starts_with(b.line) && (!b.before || *b.before == step);
  };
  const auto next = [&](const auto& table) {
    const auto found = std::find_if(std::begin(table), std::end(table), fits);
    return found == std::end(table) ? step : found->step;
  };
  return step < kCleaningAgain ? next(kBeginnings) : next(kRollback);
}

}  // namespace campaign
