#include "simulator/commands/diskpart_script.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

using Texts = std::vector<std::string>;

TEST(ScriptLines, EndInLineFeedsWithOrWithoutCarriageReturn) {
  EXPECT_EQ(ScriptLines("select disk 1\r\nclean\nrescan\r\n"),
            (Texts{"select disk 1", "clean", "rescan"}));
}

TEST(ScriptLines, ALoneCarriageReturnEndsTheLastOne) {
  EXPECT_EQ(ScriptLines("sel disk 1\r\nshrink desired=5\r"),
            (Texts{"sel disk 1", "shrink desired=5"}));
}

TEST(ScriptLines, LeaveOutLinesWithoutWords) {
  EXPECT_EQ(ScriptLines("\r\n \t\r\nclean"), Texts{"clean"});
  EXPECT_TRUE(ScriptLines("").empty());
}

TEST(ScriptWords, AreSeparatedByBlanks) {
  EXPECT_EQ(ScriptWords(" select\tdisk  1 "), (Texts{"select", "disk", "1"}));
}

TEST(IsKeyword, TakesABeginningOfThreeLettersInAnyCase) {
  EXPECT_TRUE(IsKeyword("partition", "partition"));
  EXPECT_TRUE(IsKeyword("PART", "partition"));
  EXPECT_TRUE(IsKeyword("par", "partition"));
  EXPECT_FALSE(IsKeyword("pa", "partition"));
  EXPECT_FALSE(IsKeyword("parts", "partition"));
  EXPECT_FALSE(IsKeyword("partitions", "partition"));
  EXPECT_FALSE(IsKeyword("", "efi"));
}

TEST(ParameterValue, IsTheTextBehindTheName) {
  EXPECT_EQ(ParameterValue("SIZE=100", "size"), "100");
  EXPECT_EQ(ParameterValue("letter=", "letter"), "");
  EXPECT_EQ(ParameterValue("letter", "letter"), std::nullopt);
  EXPECT_EQ(ParameterValue("size=100", "letter"), std::nullopt);
}

TEST(ParseNumber, TakesWholeDecimalTextsThatFit) {
  EXPECT_EQ(ParseNumber("0"), 0U);
  EXPECT_EQ(ParseNumber("18446744073709551615"), 18446744073709551615U);
  for (const char* text : {"", "-1", "1x", "x", "+1", "18446744073709551616"}) {
    EXPECT_EQ(ParseNumber(text), std::nullopt) << text;
  }
}

TEST(ParseLetter, TakesOneLetterOfTheAlphabet) {
  EXPECT_EQ(ParseLetter("z"), 'Z');
  EXPECT_EQ(ParseLetter("A"), 'A');
  for (const char* text : {"", "1", "C:", "é", "["}) {
    EXPECT_EQ(ParseLetter(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace simulator
