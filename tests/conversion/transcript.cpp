#include "conversion/transcript.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <stdexcept>

#include "support/folded_lines.h"

namespace conversion {
namespace {

namespace fs = std::filesystem;
using testing_support::Difference;

constexpr std::string_view kBase = "base: ";

Transcript ReadLines(const fs::path& path) {
  std::ifstream file(path);
  Transcript lines;
  std::string line;
  while (std::getline(file, line)) lines.push_back(line);
  return testing_support::Unfold(lines);
}

void WriteLines(const fs::path& path, const Transcript& lines) {
  std::ofstream file(path);
  for (const std::string& line : testing_support::Fold(lines)) file << line << '\n';
}

// What the first line of a file says.
std::string BaseOf(const fs::path& path) {
  const Transcript lines = ReadLines(path);
  if (lines.empty() || !lines.front().starts_with(kBase)) {
    throw std::runtime_error(path.string() + ": the first line names no base");
  }
  return lines.front().substr(kBase.size());
}

std::string Setting(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

constexpr std::string_view kGuidForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";

bool StartsWithGuid(std::string_view text) {
  constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";
  if (text.size() < kGuidForm.size()) return false;
  for (std::size_t i = 0; i < kGuidForm.size(); ++i) {
    const bool fits =
        kGuidForm[i] == '-' ? text[i] == '-' : kHexDigits.find(text[i]) != kHexDigits.npos;
    if (!fits) return false;
  }
  return true;
}

}  // namespace

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '\r':
        escaped += "\\r";
        break;
      case '\n':
        escaped += "\\n";
        break;
      case '\t':
        escaped += "\\t";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

Transcript Normalised(const Transcript& lines) {
  std::map<std::string, std::string> names;
  Transcript normalised;
  for (const std::string& line : lines) {
    std::string text;
    for (std::size_t at = 0; at < line.size();) {
      if (StartsWithGuid(std::string_view(line).substr(at))) {
        const std::string next = "GUID" + std::to_string(names.size() + 1);
        text += names.try_emplace(line.substr(at, kGuidForm.size()), next).first->second;
        at += kGuidForm.size();
      } else {
        text += line[at++];
      }
    }
    normalised.push_back(text);
  }
  return normalised;
}

Transcript TranscriptFiles::LoadWhole(const std::string& name) const {
  Transcript lines = ReadLines(Whole(name));
  if (lines.empty()) throw std::runtime_error(Whole(name).string() + " is missing or empty");
  return lines;
}

Transcript TranscriptFiles::Load(const std::string& name) const {
  const fs::path path = Short(name);
  if (!fs::exists(path)) return LoadWhole(name);
  if (fs::exists(Whole(name))) {
    throw std::runtime_error(path.string() + " stands beside a whole one of its name");
  }
  const std::string base = BaseOf(path);
  try {
    Transcript lines = ReadLines(path);
    lines.erase(lines.begin());
    return testing_support::Apply(LoadWhole(base), testing_support::ParseHunks(lines));
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path.string() + ": " + error.what());
  }
}

void TranscriptFiles::StoreDifference(const std::string& name, const std::string& base,
                                      const Transcript& lines) const {
  Transcript text = {std::string(kBase) + base};
  for (std::string& line : testing_support::FormatHunks(Difference(LoadWhole(base), lines))) {
    text.push_back(std::move(line));
  }
  WriteLines(Short(name), text);
}

void TranscriptFiles::Store(const std::string& name, const Transcript& lines) const {
  if (fs::exists(Short(name))) return StoreDifference(name, BaseOf(Short(name)), lines);
  std::map<std::string, Transcript> others;
  for (const std::string& other : NamesOnBase(name)) others[other] = Load(other);
  WriteLines(Whole(name), lines);
  for (const auto& [other, text] : others) StoreDifference(other, name, text);
}

void TranscriptFiles::StoreWithBestBase(const std::string& name, const Transcript& lines) const {
  if (!NamesOnBase(name).empty()) return Store(name, lines);
  std::size_t fewest = lines.size() / 2 + 1;
  std::string best;
  for (const std::string& base : Names(".txt")) {
    if (base == name) continue;
    const auto hunks = testing_support::FormatHunks(Difference(LoadWhole(base), lines));
    if (hunks.size() + 1 >= fewest) continue;
    fewest = hunks.size() + 1;
    best = base;
  }
  fs::remove(best.empty() ? Short(name) : Whole(name));
  if (best.empty()) return WriteLines(Whole(name), lines);
  StoreDifference(name, best, lines);
}

std::vector<std::string> TranscriptFiles::Names(const std::string& ending) const {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder_)) {
    if (entry.path().extension() == ending) names.push_back(entry.path().stem());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> TranscriptFiles::NamesOnBase(const std::string& base) const {
  std::vector<std::string> names = Names(".diff");
  std::erase_if(names, [&](const std::string& name) { return BaseOf(Short(name)) != base; });
  return names;
}

void ExpectTranscript(const Transcript& lines, const std::string& name) {
  const TranscriptFiles files(VELKORA_TRANSCRIPTS);
  const Transcript actual = Normalised(lines);
  const std::string update = Setting("VELKORA_UPDATE_TRANSCRIPTS");
  if (update == "1") files.Store(name, actual);
  if (update == "best") files.StoreWithBestBase(name, actual);
  if (Setting("VELKORA_PRINT_TRANSCRIPTS") == "1") {
    for (const std::string& line : actual) std::cout << line << '\n';
  }
  ExpectSameTranscript(name, actual, files.Load(name));
}

void ExpectSameTranscript(const std::string& name, const Transcript& actual,
                          const Transcript& expected) {
  EXPECT_TRUE(actual == expected) << "not the transcript " << name << ":\n"
                                  << DescribeHunks(expected, Difference(expected, actual));
}

}  // namespace conversion
