// The host program, run as a person runs it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "conversion/gpt_disk.h"
#include "support/temp_folder.h"

namespace conversion {

struct Outcome {
  int status = 0;
  std::string out;
  std::string err;
};

using testing_support::TextOf;

std::vector<std::string> LinesOf(const std::string& text);

// "convert disk.img --to mbr" and more.
std::vector<std::string> ToMbr(const std::vector<std::string>& more);
std::vector<std::string> ToGpt(const std::vector<std::string>& more);

// JSON as text, fields in the order of their names: equal values have equal texts. Only the source
// of this header sees the library that reads it, which takes long to compile.
using Json = std::string;
// A field of an object: a text as it is, other values as JSON, "" for none.
std::string Field(const Json& object, const std::string& name);

// What `--events` wrote, and from that: kind and value of each callback, the texts of a log level.
std::vector<Json> EventsOf(const std::filesystem::path& file);
std::vector<std::pair<int, int>> Callbacks(const std::vector<Json>& events);
std::vector<std::string> LogLines(const std::vector<Json>& events, int level);
Json StatusEvent(int status);
Json ResultEvent(int value);
Json LogEvent(int level, const std::string& text);
Json ScriptEvent(const std::string& text);
Json ShellEvent(const std::string& route, const std::string& line);

// Start and length in bytes, and type, of each partition but the containers: as sfdisk reads them,
// and from `show --json`.
using ShownRow = std::tuple<std::uint64_t, std::uint64_t, std::string>;
std::vector<ShownRow> SfdiskRows(const std::filesystem::path& image);
std::vector<ShownRow> ShownRows(const Json& shown);
// One field of each partition of `show --json`, as Field gives it.
std::vector<std::string> Column(const Json& shown, const std::string& name);

class HostProgram : public ::testing::Test {
 protected:
  HostProgram();

  // Works in the test's folder, whose folder "tmp" is the place for temporary files.
  Outcome Run(const std::vector<std::string>& arguments);
  // The same as a user whom a file's permissions bind, which root is not.
  Outcome RunBound(const std::vector<std::string>& arguments);

  Outcome RunThrough(const std::string& wrapper, const std::vector<std::string>& arguments);

  std::filesystem::path File(const std::string& name) const { return folder_.path() / name; }
  std::filesystem::path Image() const { return File("disk.img"); }

  // What `show --json` tells.
  Json Shown();

  // The image as a disk of sfdisk's making: GPT, or MBR with rows as sfdisk takes them. `MakeFat32`
  // puts a file system into a partition.
  void MakeDisk(const Partitions& partitions, std::uint64_t size = 256 * kMib);
  void MakeMbrDisk(const std::string& rows, std::uint64_t size);
  void MakeFat32(const Partition& partition);

 private:
  testing_support::TempFolder folder_;
};

}  // namespace conversion
