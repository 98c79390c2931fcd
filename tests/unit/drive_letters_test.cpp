#include "disk/drive_letters.h"

#include "support/machine_fixture.h"

namespace {

using testing_support::LogLine;
using testing_support::MachineTest;
using Log = std::vector<LogLine>;

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
class GetUnusedLetters : public DriveLettersTest {};
class GetUsedLetters : public DriveLettersTest {};
class GetSystemDriveLetter : public DriveLettersTest {};

TEST_F(GetFirstUnUsedLetter, IsDWithCInUse) {
  Use("C");
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "D");
}

TEST_F(GetFirstUnUsedLetter, IsEWithCAndDInUse) {
  Use("CD");
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "E");
}

TEST_F(GetFirstUnUsedLetter, IsCWithNoneOfTheFirstInUse) {
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "C");
}

TEST_F(GetFirstUnUsedLetter, FillsAGap) {
  Use("CE");
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "D");
}

TEST_F(GetFirstUnUsedLetter, IsAThoughInUseWithAAndC) {
  Use("AC");
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "A");
}

TEST_F(GetFirstUnUsedLetter, IsAThoughInUseWithABAndC) {
  Use("ABC");
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "A");
}

TEST_F(GetFirstUnUsedLetter, IsBThoughInUseWithBAlone) {
  Use("B");
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "B");
}

TEST_F(GetFirstUnUsedLetter, IsAOnceCToZAreInUse) {
  Use(kAllLetters.substr(2));
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "A");
}

TEST_F(GetFirstUnUsedLetter, FollowsTheWrappedMaskWithAllLettersInUse) {
  Use(kAllLetters);
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "A");
}

TEST_F(GetFirstUnUsedLetter, TakesAFailedQueryForNoLetterInUse) {
  Use("CD");
  machine_.calls().FailOn("GetLogicalDrives", 1, 5, simulator::Repeat::kFromThenOn);
  EXPECT_EQ(velkora::GetFirstUnUsedLetter(), "C");
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetUnusedLetters, AreAscendingAndLeaveOutAAndB) {
  Use("CD");
  EXPECT_EQ(Text(velkora::GetUnusedLetters()), "EFGHIJKLMNOPQRSTUVWYZ");
}

TEST_F(GetUnusedLetters, NameATakenLetterWithAInUse) {
  Use("AC");
  EXPECT_EQ(Text(velkora::GetUnusedLetters()), "ABCEFGHIJKLMNOPQRSTUVWYZ");
}

TEST_F(GetUnusedLetters, NameATakenLetterWithABAndCInUse) {
  Use("ABC");
  EXPECT_EQ(Text(velkora::GetUnusedLetters()), "ACEFGHIJKLMNOPQRSTUVWYZ");
}

TEST_F(GetUnusedLetters, AreAAndBOnceCToZAreInUse) {
  Use(kAllLetters.substr(2));
  EXPECT_EQ(Text(velkora::GetUnusedLetters()), "AB");
}

TEST_F(GetUnusedLetters, FollowTheWrappedMaskWithAllLettersInUse) {
  Use(kAllLetters);
  EXPECT_EQ(Text(velkora::GetUnusedLetters()), "ACDEFGHIJKLMNOPQRSTUVWXYZ");
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
