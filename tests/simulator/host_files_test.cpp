#include "simulator/host_files.h"

#include <gtest/gtest.h>
#include <string>

namespace simulator {
namespace {

const std::map<char, std::filesystem::path> kFolders = {{'C', "/host/system"}, {'X', "/host/logs"}};

// The host path in generic form, "nothing" for none.
std::string Mapped(std::string_view windows_path, char current_drive = 'C') {
  const auto path = HostPath(kFolders, current_drive, windows_path);
  return path ? path->generic_string() : "nothing";
}

TEST(HostPath, GoesThroughTheFolderOfTheLetter) {
  EXPECT_EQ(Mapped("X:\\a\\b.log"), "/host/logs/a/b.log");
  EXPECT_EQ(Mapped("x:\\a"), "/host/logs/a");
  EXPECT_EQ(Mapped("X:a"), "/host/logs/a");
}

TEST(HostPath, WithoutADriveGoesThroughTheCurrentOne) {
  EXPECT_EQ(Mapped("\\DISKPART_cmd.log"), "/host/system/DISKPART_cmd.log");
  EXPECT_EQ(Mapped("DISKPART_cmd.log", 'X'), "/host/logs/DISKPART_cmd.log");
}

TEST(HostPath, BothSeparatorsCountAndDoubledOnesCountOnce) {
  EXPECT_EQ(Mapped("X:/a\\b/c"), "/host/logs/a/b/c");
  EXPECT_EQ(Mapped("X:\\a\\\\b"), "/host/logs/a/b");
  EXPECT_EQ(Mapped("\\\\a"), "/host/system/a");
}

TEST(HostPath, ADriveAloneIsTheFolderItself) {
  EXPECT_EQ(Mapped("X:"), "/host/logs");
  EXPECT_EQ(Mapped("X:\\"), "/host/logs");
}

TEST(HostPath, DotsAreResolvedAndStayInTheFolder) {
  EXPECT_EQ(Mapped("X:\\a\\.\\b\\..\\c"), "/host/logs/a/c");
  EXPECT_EQ(Mapped("X:\\..\\..\\secret"), "/host/logs/secret");
}

TEST(HostPath, KeepsNonAsciiNames) {
  const auto path = HostPath(kFolders, 'C', "X:\\журнал\\日志.log");
  ASSERT_TRUE(path);
  EXPECT_TRUE(*path == std::filesystem::path(u8"/host/logs/журнал/日志.log"));
}

TEST(HostPath, NothingForADriveWithoutAFolder) {
  EXPECT_EQ(Mapped("Y:\\a"), "nothing");
  EXPECT_EQ(Mapped("\\a", 'Z'), "nothing");
  EXPECT_EQ(HostPath({}, 'C', "a"), std::nullopt);
}

TEST(HostPath, NothingForWhatIsNoFileName) {
  EXPECT_EQ(Mapped(""), "nothing");
  EXPECT_EQ(Mapped("\\\\.\\PhysicalDrive1"), "nothing");
  EXPECT_EQ(Mapped("\\\\?\\Volume{0}\\a"), "nothing");
  EXPECT_EQ(Mapped("//?/X:/a"), "nothing");
  EXPECT_EQ(Mapped("X:\\a*"), "nothing");
  EXPECT_EQ(Mapped("X:\\a:stream"), "nothing");
  EXPECT_EQ(Mapped("X:\\line\nfeed"), "nothing");
}

}  // namespace
}  // namespace simulator
