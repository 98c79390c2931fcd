#include "conversion/transcript.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <regex>

namespace conversion {
namespace {

Transcript ReadLines(const std::filesystem::path& path) {
  std::ifstream file(path);
  Transcript lines;
  std::string line;
  while (std::getline(file, line)) lines.push_back(line);
  return lines;
}

void WriteLines(const std::filesystem::path& path, const Transcript& lines) {
  std::ofstream file(path);
  for (const std::string& line : lines) file << line << '\n';
}

bool IsUpdate() {
  const char* update = std::getenv("VELKORA_UPDATE_TRANSCRIPTS");
  return update != nullptr && std::string_view(update) == "1";
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
  static const std::regex pattern("[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}");
  std::map<std::string, std::string> names;
  Transcript normalised;
  for (const std::string& line : lines) {
    std::string text;
    std::string::const_iterator rest = line.begin();
    for (std::sregex_iterator match(line.begin(), line.end(), pattern), end; match != end;
         ++match) {
      const auto& whole = (*match)[0];
      text.append(rest, whole.first);
      text += names.try_emplace(whole, "GUID" + std::to_string(names.size() + 1)).first->second;
      rest = whole.second;
    }
    normalised.push_back(text.append(rest, line.end()));
  }
  return normalised;
}

void ExpectTranscript(const Transcript& lines, const std::string& name) {
  const std::filesystem::path path = std::filesystem::path(VELKORA_TRANSCRIPTS) / (name + ".txt");
  const Transcript actual = Normalised(lines);
  if (IsUpdate()) WriteLines(path, actual);
  const Transcript expected = ReadLines(path);
  EXPECT_FALSE(expected.empty()) << path << " is missing or empty";
  EXPECT_EQ(actual, expected) << path;
}

}  // namespace conversion
