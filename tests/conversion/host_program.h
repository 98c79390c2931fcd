// The host program, run as a person runs it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "conversion/gpt_disk.h"
#include "support/temp_folder.h"

namespace conversion {

inline constexpr std::uint64_t kMib = 1 << 20;

struct Outcome {
  int status = 0;
  std::string out;
  std::string err;
};

std::string ReadText(const std::filesystem::path& file);
std::vector<std::string> LinesOf(const std::string& text);

// "convert disk.img --to mbr" and more.
std::vector<std::string> ToMbr(const std::vector<std::string>& more);

class HostProgram : public ::testing::Test {
 protected:
  HostProgram();

  // Works in the test's folder, whose folder "tmp" is the place for temporary files.
  Outcome Run(const std::vector<std::string>& arguments);

  std::filesystem::path File(const std::string& name) const { return folder_.path() / name; }
  std::filesystem::path Image() const { return File("disk.img"); }

  // The image as a GPT disk of sfdisk's making. `MakeFat32` puts a file system into a partition.
  void MakeDisk(const Partitions& partitions, std::uint64_t size = 256 * kMib);
  void MakeFat32(const Partition& partition);

 private:
  testing_support::TempFolder folder_;
};

}  // namespace conversion
