// A text of lines, told as the hunks in which it differs from another one, its base:
//
//   @@ lines 4-6      lines of the base, from 1, which give way to those with a plus
//   +log 1: [part] offset: 1048576
//   @@ line 9         nothing comes in its place
//   @@ after line 12  0: before the first
//   +percent 20
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace testing_support {

using Lines = std::vector<std::string>;

struct Hunk {
  std::size_t place = 0;  // from 0, the first line of the base that goes
  std::size_t removed = 0;
  Lines added;
  bool operator==(const Hunk&) const = default;
};
using Hunks = std::vector<Hunk>;

// The hunks that lead from `base` to `text` with as few added lines as can be.
Hunks Difference(const Lines& base, const Lines& text);

// The text that the hunks make of the base. Throws std::runtime_error, which names the hunk, where
// one lies past the end of the base or not behind the one before it.
Lines Apply(const Lines& base, const Hunks& hunks);

// The form above. ParseHunks throws std::runtime_error, which names the line, for any other.
Lines FormatHunks(const Hunks& hunks);
Hunks ParseHunks(const Lines& lines);

// The hunks for a reader: with the lines of the base that go, each with a minus.
std::string DescribeHunks(const Lines& base, const Hunks& hunks);

}  // namespace testing_support
