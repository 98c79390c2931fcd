#include "support/line_difference.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <stdexcept>

namespace testing_support {
namespace {

constexpr std::string_view kLine = "@@ line ";
constexpr std::string_view kLineRange = "@@ lines ";
constexpr std::string_view kAfterLine = "@@ after line ";

// For each pair of places the number of lines that the rests from there on have in common.
std::vector<std::vector<std::size_t>> CommonLengths(const Lines& base, const Lines& text) {
  std::vector<std::vector<std::size_t>> common(base.size() + 1,
                                               std::vector<std::size_t>(text.size() + 1));
  for (std::size_t i = base.size(); i-- > 0;) {
    for (std::size_t j = text.size(); j-- > 0;) {
      common[i][j] = base[i] == text[j] ? common[i + 1][j + 1] + 1
                                        : std::max(common[i + 1][j], common[i][j + 1]);
    }
  }
  return common;
}

std::string Heading(const Hunk& hunk) {
  const std::string first = std::to_string(hunk.place + 1);
  if (hunk.removed == 0) return std::string(kAfterLine) + std::to_string(hunk.place);
  if (hunk.removed == 1) return std::string(kLine) + first;
  return std::string(kLineRange) + first + "-" + std::to_string(hunk.place + hunk.removed);
}

[[noreturn]] void Refuse(const std::string& line) {
  throw std::runtime_error("not a line of a difference: " + line);
}

// The number at the front of `rest`, which is taken off.
std::size_t TakeNumber(std::string_view& rest, const std::string& line) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
  if (error != std::errc()) Refuse(line);
  rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
  return number;
}

Hunk ParseHeading(const std::string& line) {
  std::string_view rest = line;
  Hunk hunk;
  if (rest.starts_with(kAfterLine)) {
    rest.remove_prefix(kAfterLine.size());
    hunk.place = TakeNumber(rest, line);
  } else {
    const bool range = rest.starts_with(kLineRange);
    if (!range && !rest.starts_with(kLine)) Refuse(line);
    rest.remove_prefix(range ? kLineRange.size() : kLine.size());
    const std::size_t first = TakeNumber(rest, line);
    if (range && (rest.empty() || rest.front() != '-')) Refuse(line);
    if (range) rest.remove_prefix(1);
    const std::size_t last = range ? TakeNumber(rest, line) : first;
    if (first == 0 || last < first) Refuse(line);
    hunk = {first - 1, last - first + 1, {}};
  }
  if (!rest.empty()) Refuse(line);
  return hunk;
}

}  // namespace

Hunks Difference(const Lines& base, const Lines& text) {
  const auto common = CommonLengths(base, text);
  Hunks hunks;
  bool within = false;  // the last hunk goes on
  for (std::size_t i = 0, j = 0; i < base.size() || j < text.size();) {
    if (i < base.size() && j < text.size() && base[i] == text[j]) {
      within = false;
      ++i, ++j;
      continue;
    }
    if (!within) hunks.push_back({i, 0, {}});
    within = true;
    if (j == text.size() || (i < base.size() && common[i + 1][j] >= common[i][j + 1])) {
      ++hunks.back().removed;
      ++i;
    } else {
      hunks.back().added.push_back(text[j++]);
    }
  }
  return hunks;
}

Lines Apply(const Lines& base, const Hunks& hunks) {
  Lines text;
  std::size_t place = 0;  // lines of the base that are done
  for (const Hunk& hunk : hunks) {
    if (hunk.place < place || hunk.place > base.size() || hunk.removed > base.size() - hunk.place) {
      throw std::runtime_error("\"" + Heading(hunk) + "\" does not fit a base of " +
                               std::to_string(base.size()) + " lines of which " +
                               std::to_string(place) + " are done");
    }
    std::copy(base.begin() + std::ptrdiff_t(place), base.begin() + std::ptrdiff_t(hunk.place),
              std::back_inserter(text));
    text.insert(text.end(), hunk.added.begin(), hunk.added.end());
    place = hunk.place + hunk.removed;
  }
  text.insert(text.end(), base.begin() + std::ptrdiff_t(place), base.end());
  return text;
}

Lines FormatHunks(const Hunks& hunks) {
  Lines lines;
  for (const Hunk& hunk : hunks) {
    lines.push_back(Heading(hunk));
    for (const std::string& line : hunk.added) lines.push_back("+" + line);
  }
  return lines;
}

Hunks ParseHunks(const Lines& lines) {
  Hunks hunks;
  for (const std::string& line : lines) {
    if (!line.starts_with("+")) {
      hunks.push_back(ParseHeading(line));
    } else if (hunks.empty()) {
      Refuse(line);
    } else {
      hunks.back().added.push_back(line.substr(1));
    }
  }
  return hunks;
}

std::string DescribeHunks(const Lines& base, const Hunks& hunks) {
  std::string text;
  for (const Hunk& hunk : hunks) {
    text += Heading(hunk) + "\n";
    for (std::size_t i = 0; i < hunk.removed; ++i) text += "-" + base.at(hunk.place + i) + "\n";
    for (const std::string& line : hunk.added) text += "+" + line + "\n";
  }
  return text;
}

}  // namespace testing_support
