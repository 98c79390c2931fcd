// How transcripts are stored: whole, or as the difference from a whole one.
#include "conversion/transcript.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>

#include "support/folded_lines.h"
#include "support/temp_folder.h"

namespace conversion {
namespace {

using namespace ::testing;
using testing_support::Difference;
using testing_support::Fold;
using testing_support::FormatHunks;
using testing_support::Hunks;
using testing_support::Lines;
using testing_support::ParseHunks;
using testing_support::Unfold;

const Lines kFive = {"a", "b", "c", "d", "e"};

// Hunks of the form of a file that lead from kFive to the text.
Lines FromFive(const Lines& text) {
  return FormatHunks(Difference(kFive, text));
}

TEST(LineDifference, NamesLinesThatGiveWayAndPlacesBetweenThem) {
  EXPECT_EQ(FromFive({"a", "X", "c", "d", "e"}), (Lines{"@@ line 2", "+X"}));
  EXPECT_EQ(FromFive({"a", "X", "Y", "d"}), (Lines{"@@ lines 2-3", "+X", "+Y", "@@ line 5"}));
  EXPECT_EQ(FromFive({"X", "a", "b", "c", "d", "e", "+Y"}),
            (Lines{"@@ after line 0", "+X", "@@ after line 5", "++Y"}));
  EXPECT_EQ(FromFive({}), Lines{"@@ lines 1-5"});
  EXPECT_EQ(FromFive(kFive), Lines());
}

TEST(LineDifference, AppliedToItsBaseIsTheText) {
  // Every text of up to five of these lines, in any order: 4^0 + ... + 4^5.
  for (std::size_t length = 0; length <= 5; ++length) {
    for (std::size_t number = 0; number < std::size_t{1} << (2 * length); ++number) {
      Lines text;
      for (std::size_t i = 0; i < length; ++i) text.push_back({"aceX"[number >> (2 * i) & 3]});
      const Lines hunks = FromFive(text);
      EXPECT_EQ(Apply(kFive, ParseHunks(hunks)), text) << ::testing::PrintToString(hunks);
    }
  }
}

TEST(LineDifference, LeavesAsManyLinesAsCanBe) {
  EXPECT_EQ(FromFive({"c", "d", "e", "a", "b"}),
            (Lines{"@@ lines 1-2", "@@ after line 5", "+a", "+b"}));
}

TEST(LineDifference, RefusesLinesOfNoHunk) {
  for (const std::string line :
       {"", "a", "-a", "+a", "@@", "@@ line", "@@ line ", "@@ line x", "@@ line 0", "@@ line 3 ",
        "@@ line 1-2", "@@ lines 3", "@@ lines 3+4", "@@ lines 4-3", "@@ lines 3-", "@@ after 3",
        "@@ line 99999999999999999999"}) {
    EXPECT_THAT([&] { ParseHunks({line}); },
                ThrowsMessage<std::runtime_error>("not a line of a difference: " + line));
  }
}

TEST(LineDifference, RefusesHunksThatDoNotFit) {
  const auto applied = [](const Lines& hunks) {
    return [hunks] { Apply(kFive, ParseHunks(hunks)); };
  };
  EXPECT_THAT(applied({"@@ lines 5-6", "+X"}),
              ThrowsMessage<std::runtime_error>(
                  "\"@@ lines 5-6\" does not fit a base of 5 lines of which 0 are done"));
  EXPECT_THAT(applied({"@@ after line 6"}), ThrowsMessage<std::runtime_error>(HasSubstr("6\"")));
  EXPECT_THAT(applied({"@@ lines 2-3", "@@ line 3"}),
              ThrowsMessage<std::runtime_error>(
                  "\"@@ line 3\" does not fit a base of 5 lines of which 3 are done"));
}

TEST(FoldedLines, TellRowsOfATableOnce) {
  const Lines rows = {"row 1 of 4 at 9", "row 2 of 4 at 6", "row 3 of 4 at 3", "row 4 of 4 at 0"};
  EXPECT_EQ(Fold(rows), (Lines{"row 1 of 4 at 9", "@@ 3 times, line: 1 +1, 3 -3"}));
  EXPECT_EQ(Unfold(Fold(rows)), rows);

  const Lines letters = {"letter: C:", "letter: D:", "letter: E:", "letter: F:"};
  EXPECT_EQ(Fold(letters), (Lines{"letter: C:", "@@ 3 times, line: 1 +1"}));
  EXPECT_EQ(Unfold(Fold(letters)), letters);

  const Lines pairs = {"x", "a 1", "b", "a 3", "b", "a 5", "b", "y"};
  EXPECT_EQ(Fold(pairs), (Lines{"x", "a 1", "b", "@@ 2 times, 2 lines: 1 +2", "y"}));
  EXPECT_EQ(Unfold(Fold(pairs)), pairs);
}

TEST(FoldedLines, LeaveWhatIsNoTable) {
  for (const Lines& lines : {
           Lines{"a 1", "a 2"},                    // saves nothing
           Lines{"a 1", "a 2", "a 4", "a 5"},      // no constant step
           Lines{"a 08", "a 09", "a 10", "a 11"},  // would be written otherwise
           Lines{"a 99999999999999999998", "a 99999999999999999999", "b"},  // over 64 bits
           Lines{"M N:", "N O:", "O P:"},                                   // none of a volume
       }) {
    EXPECT_EQ(Fold(lines), lines);
  }
}

TEST(FoldedLines, UnfoldedAreTheText) {
  // Every text of five of these lines, in any order.
  const Lines kinds = {"a 1", "a 2", "a 3 0", "", " C:"};
  for (std::size_t number = 0; number < 5 * 5 * 5 * 5 * 5; ++number) {
    Lines text;
    for (std::size_t i = 0, rest = number; i < 5; ++i, rest /= 5) text.push_back(kinds[rest % 5]);
    EXPECT_EQ(Unfold(Fold(text)), text);
  }
}

TEST(FoldedLines, RefuseToRepeatWhatIsNotThere) {
  EXPECT_THAT(
      [] {
        Unfold({"a", "@@ 2 times, 2 lines"});
      },
      ThrowsMessage<std::runtime_error>("too few lines before: @@ 2 times, 2 lines"));
  for (const std::string line : {"@@ 2 times, line: 2 +1", "@@ 2 times, line: 0 +1"}) {
    EXPECT_THAT(
        [&] {
          Unfold({"a 1", line});
        },
        ThrowsMessage<std::runtime_error>("no such number: " + line));
  }
}

TEST(LineDifference, IsDescribedWithTheLinesThatGo) {
  EXPECT_EQ(DescribeHunks(kFive, Difference(kFive, {"a", "X", "d", "e", "Y"})),
            "@@ lines 2-3\n-b\n-c\n+X\n@@ after line 5\n+Y\n");
}

class StoredTranscripts : public ::testing::Test {
 protected:
  void Write(const std::string& file, const Lines& lines) const {
    std::ofstream out(folder_.path() / file);
    for (const std::string& line : lines) out << line << '\n';
  }

  // The lines of a file; none of one that does not exist.
  Lines Read(const std::string& file) const {
    std::ifstream in(folder_.path() / file);
    Lines lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  // A failure to load tells this file and this text.
  void ExpectRefused(const std::string& name, const std::string& file,
                     const std::string& text) const {
    EXPECT_THAT([&] { files_.Load(name); },
                ThrowsMessage<std::runtime_error>(
                    AllOf(HasSubstr((folder_.path() / file).string()), HasSubstr(text))));
  }

  testing_support::TempFolder folder_;
  TranscriptFiles files_{folder_.path()};
};

TEST_F(StoredTranscripts, AreReadWholeAndOverABase) {
  Write("five.txt", kFive);
  Write("short.diff", {"base: five", "@@ lines 2-4", "+X"});
  EXPECT_EQ(files_.Load("five"), kFive);
  EXPECT_EQ(files_.Load("short"), (Lines{"a", "X", "e"}));
}

TEST_F(StoredTranscripts, ThatCannotBeReadAreNamed) {
  ExpectRefused("none", "none.txt", "is missing or empty");
  Write("no_base.diff", {"@@ line 2"});
  ExpectRefused("no_base", "no_base.diff", "the first line names no base");
  Write("lost.diff", {"base: none", "@@ line 2"});
  ExpectRefused("lost", "lost.diff", "none.txt is missing or empty");
  Write("five.txt", kFive);
  Write("twice.diff", {"base: five"});
  Write("twice.txt", kFive);
  ExpectRefused("twice", "twice.diff", "stands beside a whole one");
  Write("wide.diff", {"base: five", "@@ line 6"});
  ExpectRefused("wide", "wide.diff", "\"@@ line 6\" does not fit");
  Write("odd.diff", {"base: five", "b"});
  ExpectRefused("odd", "odd.diff", "not a line of a difference: b");
  std::filesystem::remove(folder_.path() / "twice.txt");
  Write("chain.diff", {"base: twice", "@@ line 2"});
  ExpectRefused("chain", "chain.diff", "twice.txt is missing or empty");
}

TEST_F(StoredTranscripts, StayWholeOrShortWhenTheyAreStored) {
  Write("five.txt", kFive);
  Write("short.diff", {"base: five", "@@ lines 2-4", "+X"});
  files_.Store("new", {"a", "b"});
  EXPECT_EQ(Read("new.txt"), (Lines{"a", "b"}));
  files_.Store("short", {"a", "Y", "Z", "e"});
  EXPECT_EQ(Read("short.diff"), (Lines{"base: five", "@@ lines 2-4", "+Y", "+Z"}));
  EXPECT_EQ(Read("short.txt"), Lines());
}

TEST_F(StoredTranscripts, OnAStoredBaseAreStoredAgain) {
  Write("five.txt", kFive);
  Write("other.txt", {"X"});
  Write("short.diff", {"base: five", "@@ lines 2-4", "+X"});
  Write("beside.diff", {"base: other", "@@ line 1", "+Y"});
  files_.Store("five", {"a", "X", "d", "e"});
  EXPECT_EQ(Read("five.txt"), (Lines{"a", "X", "d", "e"}));
  EXPECT_EQ(Read("short.diff"), (Lines{"base: five", "@@ line 3"}));
  EXPECT_EQ(files_.Load("short"), (Lines{"a", "X", "e"}));
  EXPECT_EQ(Read("beside.diff"), (Lines{"base: other", "@@ line 1", "+Y"}));
}

TEST_F(StoredTranscripts, GetTheBestBaseThatSavesHalf) {
  const Lines six = {"a", "b", "c", "d", "e", "f"};
  Write("five.txt", kFive);
  Write("other.txt", {"a", "b", "X", "d", "e"});
  files_.StoreWithBestBase("six", six);
  EXPECT_EQ(Read("six.diff"), (Lines{"base: five", "@@ after line 5", "+f"}));
  // Five lines instead of six save too little.
  const Lines three_more = {"a", "b", "c", "X", "Y", "Z"};
  files_.StoreWithBestBase("six", three_more);
  EXPECT_EQ(Read("six.txt"), three_more);
  EXPECT_EQ(Read("six.diff"), Lines());
}

TEST_F(StoredTranscripts, ThatAreABaseStayWhole) {
  Write("five.txt", kFive);
  Write("copy.txt", kFive);
  Write("short.diff", {"base: copy", "@@ lines 2-4"});
  files_.StoreWithBestBase("copy", kFive);
  EXPECT_EQ(Read("copy.txt"), kFive);
  EXPECT_EQ(Read("copy.diff"), Lines());
}

TEST(Transcript, ThatDiffersIsShownWithItsDifference) {
  ExpectSameTranscript("five", kFive, kFive);
  EXPECT_NONFATAL_FAILURE(ExpectSameTranscript("five", {"a", "X", "c", "d", "e"}, kFive),
                          "not the transcript five:\n@@ line 2\n-b\n+X\n");
}

}  // namespace
}  // namespace conversion
