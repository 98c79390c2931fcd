// The readable story of a conversion: callbacks, log lines, scripts and shell lines, in order.
//
//   percent 20
//   status 2
//   log 1: DISKPART_Clean Begin...
//   shell elevated: /c diskpart /s "X:\logs\DISKPART_cmd.log" >> "X:\logs\DISKPART_result.log"
//   script: select disk 1\r\nclean\r\n
//   result 0
//
// tests/transcripts holds them: <name>.txt is a whole one. <name>.diff says in its first line which
// whole one is its base, and below which lines of that give way to others (see
// support/line_difference.h):
//
//   base: three_partitions
//   @@ lines 4-5
//   +log 1: [disk] disk_type: GPT, id: \\.\PhysicalDrive1, index: 1, volume_count: 2
//
// Both are stored with the rows of tables folded (see support/folded_lines.h).
//
// VELKORA_PRINT_TRANSCRIPTS=1 in the environment lets each test print its transcripts whole:
//   VELKORA_PRINT_TRANSCRIPTS=1 build/release/tests/conversion_tests --gtest_filter=...
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "support/line_difference.h"

namespace conversion {

using Transcript = testing_support::Lines;

// Carriage returns, line feeds and tabs as \r, \n and \t.
std::string Escaped(std::string_view text);

// Puts "GUID1", "GUID2"… for GUIDs in the order in which they first appear.
Transcript Normalised(const Transcript& lines);

// The transcripts in a folder.
class TranscriptFiles {
 public:
  explicit TranscriptFiles(std::filesystem::path folder) : folder_(std::move(folder)) {}

  // The whole transcript. Throws std::runtime_error, which names the file, where there is none or
  // two of that name, where the base is not a whole one, and where the difference does not fit it.
  Transcript Load(const std::string& name) const;

  // As it is stored already: whole, which a new one is too, or as the difference from its base.
  // Those that have it for their base are stored again and stay what they are.
  void Store(const std::string& name, const Transcript& lines) const;
  // As the difference from the whole one from which it differs least, where that saves half of the
  // lines or more; otherwise, and where it is a base itself, whole.
  void StoreWithBestBase(const std::string& name, const Transcript& lines) const;

 private:
  std::filesystem::path Whole(const std::string& name) const { return folder_ / (name + ".txt"); }
  std::filesystem::path Short(const std::string& name) const { return folder_ / (name + ".diff"); }
  Transcript LoadWhole(const std::string& name) const;
  void StoreDifference(const std::string& name, const std::string& base,
                       const Transcript& lines) const;
  // Names of the files with this ending, in order.
  std::vector<std::string> Names(const std::string& ending) const;
  std::vector<std::string> NamesOnBase(const std::string& base) const;

  std::filesystem::path folder_;
};

// Compares with tests/transcripts/<name>, whole. A failure shows all lines that differ.
//
// With VELKORA_UPDATE_TRANSCRIPTS=1 in the environment the file is stored first, as it is stored
// already; with "best", with the best base. One process at a time may do that.
void ExpectTranscript(const Transcript& lines, const std::string& name);
void ExpectSameTranscript(const std::string& name, const Transcript& actual,
                          const Transcript& expected);

}  // namespace conversion
