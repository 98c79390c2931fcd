// Parts of a protected conversion, told from the lines of its transcript.
#pragma once

#include <string_view>

namespace campaign {

enum class Step {
  kOpening,         // up to the backup
  kBackup,          //
  kShrinking,       // within CompressPart
  kDecisiveRescan,  // of the room check, where it counts
  kReadingAgain,    // the list, behind that rescan
  kCleaning,
  kCreating,
  kRescan,  // one whose result is not looked at
  kBuilding,
  kWriting,
  kLetters,
  kBootSector,
  kBootStore,
  kActivating,
  kFormatting,
  kChoosingLetter,  // for the EFI system partition
  kAssigning,
  kRecoverySettings,
  kEnding,
  // The rollback.
  kCleaningAgain,
  kConvertingBack,
  kRestore,
  kRescanAfterRestore,
  kLettersAfterRestore,
};
const char* StepName(Step step);

// The step that `line` begins, for a run in `step`; `step` where it begins none.
Step NextStep(Step step, std::string_view line);

}  // namespace campaign
