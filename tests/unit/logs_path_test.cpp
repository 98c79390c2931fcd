#include "tools/logs_path.h"

#include <gtest/gtest.h>

#include "frame/global_context.h"

namespace {

class LogsPath : public ::testing::Test {
 protected:
  ~LogsPath() override { SetFolder(""); }
  static void SetFolder(const char* folder) { velkora::GetGlobalContext().logs_folder = folder; }
};

TEST_F(LogsPath, IsTheFolderFollowedByTheName) {
  SetFolder("D:\\logs");
  EXPECT_EQ(velkora::LogsPath("\\DISKPART_cmd.log"), "D:\\logs\\DISKPART_cmd.log");
}

TEST_F(LogsPath, FolderWithATrailingBackslashGivesADoubledOne) {
  SetFolder("D:\\logs\\");
  EXPECT_EQ(velkora::LogsPath("\\DISKPART_cmd.log"), "D:\\logs\\\\DISKPART_cmd.log");
}

TEST_F(LogsPath, EmptyFolderMeansTheRootOfTheCurrentDrive) {
  SetFolder("");
  EXPECT_EQ(velkora::LogsPath("\\DISKPART_cmd.log"), "\\DISKPART_cmd.log");
}

TEST_F(LogsPath, FolderIsReadAtEachUse) {
  SetFolder("D:\\one");
  EXPECT_EQ(velkora::LogsPath("\\a.log"), "D:\\one\\a.log");
  SetFolder("D:\\two");
  EXPECT_EQ(velkora::LogsPath("\\a.log"), "D:\\two\\a.log");
}

TEST_F(LogsPath, TextThatIsNotAsciiStaysAsItIs) {
  SetFolder(
      "D:\\gr\xC3\xBC\xC3\x9F"
      "e");
  EXPECT_EQ(velkora::LogsPath("\\a.log"),
            "D:\\gr\xC3\xBC\xC3\x9F"
            "e\\a.log");
}

TEST(Quoted, PutsThePathBetweenQuotes) {
  EXPECT_EQ(velkora::Quoted("D:\\my logs\\a.log"), "\"D:\\my logs\\a.log\"");
  EXPECT_EQ(velkora::Quoted(""), "\"\"");
}

TEST(Quoted, DoesNotEscapeAQuoteInside) {
  EXPECT_EQ(velkora::Quoted("a\"b"), "\"a\"b\"");
}

}  // namespace
