#include "disk/drive_letters.h"

#include "support/machine_fixture.h"

namespace testing_support {
namespace {

constexpr std::string_view kAllLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";

std::string Text(const std::vector<char>& letters) {
  return std::string(letters.begin(), letters.end());
}

// The fixture's own folder is X, which is therefore always in use, and the drive of the system.
class DriveLettersTest : public MachineTest {
 protected:
  void Use(std::string_view letters) {
    for (const char letter : letters) machine_.MapFolder(letter, folder_.path());
  }
};

class GetFirstUnUsedLetter : public DriveLettersTest {};
class GetUsedLetters : public DriveLettersTest {};
class GetSystemDriveLetter : public DriveLettersTest {};

struct UsedLetters {
  const char* name;
  std::string_view used;
  std::string_view answer;
};

class FirstUnusedLetter : public DriveLettersTest,
                          public ::testing::WithParamInterface<UsedLetters> {};

TEST_P(FirstUnusedLetter, FollowsTheMask) {
  Use(GetParam().used);
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), GetParam().answer);
}

constexpr UsedLetters kFirstLetters[] = {
    {"IsDWithCInUse", "C", "D"},
    {"IsEWithCAndDInUse", "CD", "E"},
    {"IsCWithNoneOfTheFirstInUse", "", "C"},
    {"FillsAGap", "CE", "D"},
    {"IsAThoughInUseWithAAndC", "AC", "A"},
    {"IsAThoughInUseWithABAndC", "ABC", "A"},
    {"IsBThoughInUseWithBAlone", "B", "B"},
    {"IsAOnceCToZAreInUse", kAllLetters.substr(2), "A"},
    {"FollowsTheWrappedMaskWithAllLettersInUse", kAllLetters, "A"},
};

INSTANTIATE_TEST_SUITE_P(All, FirstUnusedLetter, ::testing::ValuesIn(kFirstLetters),
                         [](const auto& test) { return test.param.name; });

class UnusedLetters : public DriveLettersTest, public ::testing::WithParamInterface<UsedLetters> {};

TEST_P(UnusedLetters, FollowTheMask) {
  Use(GetParam().used);
  EXPECT_EQ(Text(velkora::GetUnusedLetters()), GetParam().answer);
}

constexpr UsedLetters kUnusedLetters[] = {
    {"AreAscendingAndLeaveOutAAndB", "CD", "EFGHIJKLMNOPQRSTUVWYZ"},
    {"NameATakenLetterWithAInUse", "AC", "ABCEFGHIJKLMNOPQRSTUVWYZ"},
    {"NameATakenLetterWithABAndCInUse", "ABC", "ACEFGHIJKLMNOPQRSTUVWYZ"},
    {"AreAAndBOnceCToZAreInUse", kAllLetters.substr(2), "AB"},
    {"FollowTheWrappedMaskWithAllLettersInUse", kAllLetters, "ACDEFGHIJKLMNOPQRSTUVWXYZ"},
};

INSTANTIATE_TEST_SUITE_P(All, UnusedLetters, ::testing::ValuesIn(kUnusedLetters),
                         [](const auto& test) { return test.param.name; });

TEST_F(GetFirstUnUsedLetter, TakesAFailedQueryForNoLetterInUse) {
  Use("CD");
  machine_.calls().FailOn("GetLogicalDrives", 1, 5, simulator::Repeat::kFromThenOn);
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "C");
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetUsedLetters, AreAscending) {
  Use("ZACB");
  EXPECT_EQ(Text(velkora::GetUsedLetters()), "ABCXZ");
}

TEST_F(GetUsedLetters, AreAllLettersWhenAllAreInUse) {
  Use(kAllLetters);
  EXPECT_EQ(Text(velkora::GetUsedLetters()), kAllLetters);
}

TEST_F(GetUsedLetters, AreNoneAfterAFailedQuery) {
  machine_.calls().FailOn("GetLogicalDrives", 1, 5);
  EXPECT_EQ(Text(velkora::GetUsedLetters()), "");
}

TEST_F(GetSystemDriveLetter, IsTheFirstCharacterOfTheSystemDirectory) {
  std::string letter = "before";
  EXPECT_TRUE(velkora::GetSystemDriveLetter(letter));
  EXPECT_EQ(letter, "X");
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetSystemDriveLetter, FailureIsLoggedAndLeavesTheLetter) {
  machine_.calls().FailOn("GetSystemDirectoryA", 1, 1117);
  std::string letter = "before";
  EXPECT_FALSE(velkora::GetSystemDriveLetter(letter));
  EXPECT_EQ(letter, "before");
  EXPECT_EQ(log_, (Log{{3, "GetSystemDirectoryA error 1117"}}));
}

}  // namespace
}  // namespace testing_support
