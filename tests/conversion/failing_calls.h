// Which call of a conversion may fail, and what comes of it.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "conversion/transcript.h"
#include "simulator/call_log.h"

namespace conversion {

// Parts of a conversion, told from the transcript.
enum class Step {
  kOpening,            // up to the reading of the table
  kBackingUp,          // and the gap check
  kShrinking,          // within CompressPart
  kRescanAfterShrink,  // the one rescan that counts
  kReadingAgain,
  kCleaning,
  kCreating,
  kFirstRescan,
  kBuilding,
  kWriting,
  kSecondRescan,
  kLetters,
  kEnding,
};
const char* StepName(Step step);

// The step that begins with a line of the transcript, for a conversion that is in `step`.
Step NextStep(Step step, const std::string& line);

// A call of a conversion that went well, with the step it belongs to and its place among the calls
// of that name in the step, from 1.
struct CallPlace {
  std::string
      name;  // "DeviceIoControl/IOCTL_DISK_CREATE_DISK" for control codes, else "CreateFileA"
  Step step = Step::kOpening;
  std::size_t occurrence = 1;
};

// What lies on the disk in the end.
enum class LeftBehind {
  kUntouched,
  kRolledBack,
  kConverted,
  kConvertedOverOldTable,  // the first and last MiB were not emptied
  kConvertedSignatureAllOnes,
};

// What a failure of one call leads to.
struct Consequence {
  Step step;
  const char* call;
  std::size_t occurrence;  // 0: each one in the step
  int result;
  LeftBehind disk;
  const char* error;        // how the first level-3 line begins; null: there is none
  const char* open_handle;  // how what stays open begins; null: nothing but processes
};

// The consequence of a failure of that call; none for one that is not known.
const Consequence* FindConsequence(const CallPlace& place);

}  // namespace conversion
