#include "conversion/rolled_back_disk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>

#include "conversion/tools.h"

namespace conversion {
namespace {

using namespace ::testing;
using Lines = std::vector<std::string>;

constexpr std::uint64_t kSmallestGptDisk = 128 * kSectorsPerMib;  // sectors

// The table as sfdisk tells it, without the warnings in front.
std::string Dump(const std::filesystem::path& image) {
  const std::string output = Tool({"sfdisk", "--dump", image});
  return output.substr(output.find("label: "));
}

// Each problem that sgdisk tells, as one line.
Lines ProblemsOf(const std::string& output) {
  constexpr std::string_view kMark = "Problem: ";
  std::istringstream input(output);
  Lines problems;
  std::string line;
  bool within = false;
  while (std::getline(input, line)) {
    if (line.starts_with(kMark)) {
      problems.push_back(line.substr(kMark.size()));
      within = true;
    } else if (line.empty()) {
      within = false;
    } else if (within) {
      problems.back() += " " + line;
    }
  }
  return problems;
}

}  // namespace

std::vector<std::string> RolledBack(std::vector<std::string> callbacks) {
  callbacks.insert(callbacks.end(), {"status 9", "percent 100", "status 10"});
  return callbacks;
}

void ExpectFailure(ConversionRun& run, const Lines& callbacks, const Lines& errors,
                   const std::string& transcript) {
  const auto letters = run.Letters();
  EXPECT_EQ(run.Convert(), 1);
  ExpectTranscript(run.transcript(), transcript);
  EXPECT_EQ(run.Callbacks(), RolledBack(callbacks));
  EXPECT_EQ(run.Errors(), errors);
  EXPECT_EQ(run.Letters(), letters);
  EXPECT_EQ(run.OpenHandles(), Lines());
}

RolledBackDisk::RolledBackDisk(const std::filesystem::path& image, const Partitions& wanted)
    : image_(image), dump_(Dump(image)), expected_(image, image.string() + ".expected") {
  expected_.BackUp(wanted);
}

void RolledBackDisk::Expect() {
  expected_.RollBack();
  EXPECT_EQ(DifferingSectors(expected_.path(), image_), SectorRanges());
  const ImageFile image(image_);
  const bool has_gpt = dump_.find("label: gpt") != std::string::npos;
  if (has_gpt) ExpectGpt(image);
  if (has_gpt && image.sector_count() < kSmallestGptDisk) {
    EXPECT_EQ(image.ReadSector(0), Sector{});
    EXPECT_THROW(Dump(image_), std::runtime_error);
  } else {
    EXPECT_EQ(Dump(image_), dump_);
  }
}

void RolledBackDisk::ExpectGpt(const ImageFile& image) const {
  const std::string alternate = "(" + std::to_string(image.sector_count() - 1) + ")";
  const std::string output = Tool({"sgdisk", "--verify", image_});
  EXPECT_THAT(
      ProblemsOf(output),
      ElementsAre(
          "The secondary header's self-pointer indicates that it doesn't reside at the end of the "
          "disk. If you've added a disk to a RAID array, use the 'e' option on the experts' menu "
          "to "
          "adjust the secondary header's and partition table's locations.",
          "main GPT header's current LBA pointer (1) doesn't match the backup GPT header's "
          "alternate LBA pointer" +
              alternate + ".",
          "main GPT header's backup LBA pointer " + alternate +
              " doesn't match the backup GPT "
              "header's current LBA pointer (1). The 'e' option on the experts' menu may fix this "
              "problem.",
          "The backup partition table overlaps the backup header. Using 'e' on the experts' menu "
          "may fix this problem."));
  EXPECT_THAT(output, HasSubstr("Identified 4 problems!"));
  const auto lacks_protection = HasSubstr("Found valid GPT with corrupt MBR");
  if (image.sector_count() < kSmallestGptDisk) {
    EXPECT_THAT(output, lacks_protection);
  } else {
    EXPECT_THAT(output, Not(lacks_protection));
  }
}

}  // namespace conversion
