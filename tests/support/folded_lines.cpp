#include "support/folded_lines.h"

#include <cctype>
#include <cstdint>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace testing_support {
namespace {

constexpr std::size_t kMostLines = 4;
constexpr std::size_t kMostDigits = 19;  // fit 64 bits
constexpr char kLetter = 1;

// Lines taken apart: what stands around the numbers, and the numbers. The letter of a volume counts
// as one; the text in front of it then ends in kLetter.
struct Rows {
  std::vector<std::string> texts{""};
  std::vector<std::uint64_t> numbers;
};

bool IsDigit(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// A number is one that would be written the same way again.
std::size_t NumberLength(const std::string& line, std::size_t at) {
  std::size_t end = at;
  while (end < line.size() && IsDigit(line[end])) ++end;
  const bool fits = end - at <= kMostDigits && (line[at] != '0' || end - at == 1);
  return fits ? end - at : 0;
}

bool IsLetterOfVolume(const std::string& line, std::size_t at) {
  return line[at] >= 'A' && line[at] <= 'Z' && at > 0 && line[at - 1] == ' ' &&
         line.compare(at + 1, 1, ":") == 0;
}

Rows TakeApart(const Lines& lines, std::size_t first, std::size_t count) {
  Rows rows;
  for (std::size_t i = first; i < first + count; ++i) {
    for (std::size_t at = 0; at < lines[i].size();) {
      if (IsLetterOfVolume(lines[i], at)) {
        rows.texts.back() += kLetter;
        rows.texts.emplace_back();
        rows.numbers.push_back(static_cast<unsigned char>(lines[i][at++]));
        continue;
      }
      const std::size_t length = NumberLength(lines[i], at);
      if (length == 0 || (at > 0 && IsDigit(lines[i][at - 1]))) {
        rows.texts.back() += lines[i][at++];
        continue;
      }
      rows.numbers.push_back(std::stoull(lines[i].substr(at, length)));
      rows.texts.emplace_back();
      at += length;
    }
    rows.texts.back() += '\n';
  }
  return rows;
}

void Append(Lines& lines, const Rows& rows) {
  std::ostringstream text;
  for (std::size_t i = 0; i < rows.numbers.size(); ++i) {
    const std::string& before = rows.texts[i];
    if (before.ends_with(kLetter)) {
      text << before.substr(0, before.size() - 1) << static_cast<char>(rows.numbers[i]);
    } else {
      text << before << rows.numbers[i];
    }
  }
  text << rows.texts.back();
  std::istringstream split(text.str());
  for (std::string line; std::getline(split, line);) lines.push_back(line);
}

struct Repeat {
  std::size_t lines = 1;
  std::size_t times = 0;
  std::vector<std::uint64_t> steps;  // one a number; negative ones wrap
  std::size_t saved() const { return times < 2 ? 0 : lines * times - 1; }
};

std::vector<std::uint64_t> Steps(const Rows& from, const Rows& to) {
  std::vector<std::uint64_t> steps;
  for (std::size_t i = 0; i < from.numbers.size(); ++i) {
    steps.push_back(to.numbers[i] - from.numbers[i]);
  }
  return steps;
}

Repeat RepeatOf(const Lines& lines, std::size_t first, std::size_t count) {
  Repeat repeat{count, 0, {}};
  Rows row = TakeApart(lines, first, count);
  for (std::size_t at = first + count; at + count <= lines.size(); at += count) {
    Rows next = TakeApart(lines, at, count);
    if (next.texts != row.texts) break;
    std::vector<std::uint64_t> steps = Steps(row, next);
    if (repeat.times > 0 && steps != repeat.steps) break;
    ++repeat.times;
    repeat.steps = std::move(steps);
    row = std::move(next);
  }
  return repeat;
}

std::string Tell(const Repeat& repeat) {
  std::ostringstream text;
  text << "@@ " << repeat.times << " times, ";
  if (repeat.lines > 1) text << repeat.lines << ' ';
  text << (repeat.lines > 1 ? "lines" : "line");
  const char* separator = ": ";
  for (std::size_t i = 0; i < repeat.steps.size(); ++i) {
    if (repeat.steps[i] == 0) continue;
    text << separator << i + 1 << ' ' << std::showpos << static_cast<std::int64_t>(repeat.steps[i])
         << std::noshowpos;
    separator = ", ";
  }
  return text.str();
}

// The lines in front, again and again.
void AppendRepeated(Lines& lines, const std::smatch& told) {
  const std::size_t count = told[2].matched ? std::stoull(told[2]) : 1;
  if (count > lines.size()) throw std::runtime_error("too few lines before: " + told.str());
  Rows row = TakeApart(lines, lines.size() - count, count);
  std::vector<std::uint64_t> steps(row.numbers.size());
  static const std::regex kStep("(\\d+) ([+-]\\d+)");
  const std::string text = told[3];
  for (std::sregex_iterator step(text.begin(), text.end(), kStep), end; step != end; ++step) {
    const std::size_t place = std::stoull((*step)[1]);
    if (place - 1 >= steps.size()) throw std::runtime_error("no such number: " + told.str());
    steps[place - 1] = static_cast<std::uint64_t>(std::stoll((*step)[2]));
  }
  for (std::size_t times = std::stoull(told[1]); times > 0; --times) {
    for (std::size_t i = 0; i < steps.size(); ++i) row.numbers[i] += steps[i];
    Append(lines, row);
  }
}

}  // namespace

Lines Fold(const Lines& lines) {
  Lines folded;
  for (std::size_t at = 0; at < lines.size();) {
    Repeat best;
    for (std::size_t count = 1; count <= kMostLines && at + count <= lines.size(); ++count) {
      const Repeat repeat = RepeatOf(lines, at, count);
      if (repeat.saved() > std::max<std::size_t>(best.saved(), 1)) best = repeat;
    }
    for (std::size_t i = 0; i < best.lines; ++i) folded.push_back(lines[at + i]);
    if (best.times > 0) folded.push_back(Tell(best));
    at += best.lines * (1 + best.times);
  }
  return folded;
}

Lines Unfold(const Lines& folded) {
  static const std::regex kRepeat("@@ (\\d+) times, (?:(\\d+) lines|line)(?:: (.*))?");
  Lines lines;
  for (const std::string& line : folded) {
    std::smatch told;
    if (std::regex_match(line, told, kRepeat)) {
      AppendRepeated(lines, told);
    } else {
      lines.push_back(line);
    }
  }
  return lines;
}

}  // namespace testing_support
