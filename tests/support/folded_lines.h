// A text of lines in which rows of a table are told once: lines, how often they come again, and
// what is added to which of their numbers each time (the letter of a volume counts as a number):
//
//   log 1: volume_path: GUID14, part offset: 41943040
//   @@ 46 times, line: 2 +1, 3 +3145728
//   log 1: [part] PartitionNumber: 11, StartingOffset: 32505856
//   log 1: [part] PartitionNumber: 0, StartingOffset: 34603008
//   @@ 48 times, 2 lines: 2 +1, 3 +3145728, 6 +3145728
#pragma once

#include "support/line_difference.h"

namespace testing_support {

// Folds what comes again twice or more often and saves two lines. No line of `lines` begins with
// "@@ ", but for those of hunks.
Lines Fold(const Lines& lines);

// The whole text again. Throws std::runtime_error, which names the line, where one tells of lines
// that are not there.
Lines Unfold(const Lines& folded);

}  // namespace testing_support
