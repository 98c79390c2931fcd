#include "conformance/program/command_line.h"

#include <gtest/gtest.h>

namespace conformance {
namespace {

using Arguments = std::vector<std::string>;

std::string ErrorOf(const Arguments& arguments) {
  return ParseCommandLine(arguments).error;
}

TEST(ConformanceCommandLine, NothingTouchesNoDisk) {
  const CommandLine line = ParseCommandLine({});
  EXPECT_EQ(line.error, "");
  EXPECT_EQ(line.disk, std::nullopt);
  EXPECT_FALSE(line.help);
}

TEST(ConformanceCommandLine, DiskAndEraseGiveUpADisk) {
  for (const Arguments& arguments :
       {Arguments{"--disk", "3", "--erase"}, Arguments{"--erase", "--disk", "3"}}) {
    const CommandLine line = ParseCommandLine(arguments);
    EXPECT_EQ(line.error, "");
    EXPECT_EQ(line.disk, 3u);
  }
}

TEST(ConformanceCommandLine, DiskAloneIsNotEnough) {
  EXPECT_EQ(ErrorOf({"--disk", "3"}),
            "--disk 3: everything on that disk would be lost; add --erase if that is meant");
}

TEST(ConformanceCommandLine, EraseAloneNamesNoDisk) {
  EXPECT_EQ(ErrorOf({"--erase"}), "--erase: which disk? Add --disk N");
}

TEST(ConformanceCommandLine, WrongNumbersAreNamed) {
  EXPECT_EQ(ErrorOf({"--erase", "--disk"}), "--disk: the number of the disk is missing");
  for (const char* const value : {"", "C:", "-1", "2x", " 2", "4294967296", "--erase"}) {
    EXPECT_EQ(ErrorOf({"--disk", value, "--erase"}),
              "--disk: \"" + std::string(value) + "\" is no number of a disk");
  }
}

TEST(ConformanceCommandLine, SecondDiskIsRefused) {
  EXPECT_EQ(ErrorOf({"--disk", "3", "--disk", "4", "--erase"}), "--disk: given twice");
}

TEST(ConformanceCommandLine, UnknownArgumentIsNamed) {
  EXPECT_EQ(ErrorOf({"--force"}), "unknown argument \"--force\"");
  EXPECT_EQ(ErrorOf({"3"}), "unknown argument \"3\"");
}

TEST(ConformanceCommandLine, HelpNeedsNothingElse) {
  const CommandLine line = ParseCommandLine({"--disk", "3", "--help"});
  EXPECT_EQ(line.error, "");
  EXPECT_TRUE(line.help);
  EXPECT_NE(std::string(kUsage).find("EVERYTHING ON THAT DISK IS LOST"), std::string::npos);
}

}  // namespace
}  // namespace conformance
