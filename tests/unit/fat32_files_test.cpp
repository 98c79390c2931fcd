// What of files and directories is to move, and where to; without a file system.
#include "shrink/fat32_files.h"

#include <gtest/gtest.h>
#include <random>

#include "fat32_values.h"

namespace velkora {
namespace {

using Bytes = std::vector<std::byte>;
using Extents = std::vector<ClusterExtent>;
using Pieces = std::vector<FileExtent>;
using Runs = std::vector<ClusterRun>;
using Moves = std::vector<FileMove>;
using Debris = std::vector<FileDebris>;

void Put(Bytes& bytes, std::size_t offset, std::uint64_t value, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    bytes.at(offset + i) = static_cast<std::byte>(value >> (8 * i));
  }
}

// An answer of the file system: each pair is (NextVcn, Lcn).
Bytes Answer(std::uint64_t start_vcn,
             const std::vector<std::pair<std::uint64_t, std::uint64_t>>& rows) {
  Bytes answer(kRetrievalBytes);
  Put(answer, 0, rows.size(), 4);
  Put(answer, 8, start_vcn, 8);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    Put(answer, 16 + 16 * i, rows[i].first, 8);
    Put(answer, 24 + 16 * i, rows[i].second, 8);
  }
  return answer;
}

HANDLE File(std::uintptr_t number) {
  return reinterpret_cast<HANDLE>(number);
}

// ---- Extents as the file system tells them -----------------------------------------------------

TEST(ReadExtents, EachExtentBeginsWhereTheOneBeforeEnds) {
  const Extents extents = ReadExtents(Answer(0, {{3, 100}, {10, 50}, {11, 200}}));
  ASSERT_EQ(extents.size(), 3U);
  EXPECT_EQ(extents[0].start_vcn, 0U);
  EXPECT_EQ(extents[0].next_vcn, 3U);
  EXPECT_EQ(extents[0].lcn, 100U);
  EXPECT_EQ(extents[1].start_vcn, 3U);
  EXPECT_EQ(extents[1].next_vcn, 10U);
  EXPECT_EQ(extents[2].start_vcn, 10U);
  EXPECT_EQ(extents[2].lcn, 200U);
}

TEST(ReadExtents, StartOfTheAnswerIsTheStartOfTheFirstExtent) {
  EXPECT_EQ(ReadExtents(Answer(5, {{9, 100}}))[0].start_vcn, 5U);
}

TEST(ReadExtents, NoExtentsAreAnEmptyList) {
  EXPECT_TRUE(ReadExtents(Answer(0, {})).empty());
}

TEST(ReadExtents, FiftyOneExtentsFillTheAnswer) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> rows;
  for (std::uint64_t i = 0; i < 51; ++i) rows.push_back({i + 1, 1000 + 2 * i});
  const Extents extents = ReadExtents(Answer(0, rows));
  ASSERT_EQ(extents.size(), 51U);
  EXPECT_EQ(extents[50].lcn, 1100U);
}

TEST(ReadExtents, CountThatLeavesTheAnswerIsAnAccessViolation) {
  for (const std::uint64_t count : {52ULL, 1000ULL, 0xFFFFFFFFULL}) {
    Bytes answer(kRetrievalBytes);
    Put(answer, 0, count, 4);
    EXPECT_EQ(testing_support::FaultOf([&] { ReadExtents(answer); }), EXCEPTION_ACCESS_VIOLATION)
        << count;
  }
}

// ---- Which part of a file is to move -----------------------------------------------------------

TEST(ReachesBehind, TakesTheHighestEndOfAllExtents) {
  EXPECT_TRUE(ReachesBehind({{0, 10, 95}, {10, 11, 5}}, 100));
  EXPECT_FALSE(ReachesBehind({{0, 5, 95}, {5, 6, 5}}, 100));
  EXPECT_FALSE(ReachesBehind({}, 100));
}

TEST(ExtentsBehind, ExtentAtOrAboveTheBoundaryIsListedWhole) {
  EXPECT_EQ(ExtentsBehind({{4, 10, 100}}, 100), (Pieces{{4, 6}}));
  EXPECT_EQ(ExtentsBehind({{4, 10, 170}}, 100), (Pieces{{4, 6}}));
}

TEST(ExtentsBehind, OfAStraddlingExtentTheTailIsListed) {
  // LCNs 90 to 109; the tail begins at LCN 99, FAT cluster 101.
  EXPECT_EQ(ExtentsBehind({{0, 20, 90}}, 100), (Pieces{{9, 11}}));
  // LCN 99 is where an extent's tail is the whole of it.
  EXPECT_EQ(ExtentsBehind({{0, 20, 99}}, 100), (Pieces{{0, 20}}));
}

TEST(ExtentsBehind, ExtentsBelowTheBoundaryAreLeftOut) {
  EXPECT_EQ(ExtentsBehind({{0, 5, 10}, {5, 9, 120}, {9, 20, 30}, {20, 22, 140}}, 100),
            (Pieces{{5, 4}, {20, 2}}));
}

TEST(ExtentsBehind, ErrsByTwoClusters) {
  // The last LCN is boundary - 1 and boundary: behind the boundary by their FAT numbers, but left.
  EXPECT_EQ(ExtentsBehind({{0, 10, 90}}, 100), Pieces{});
  EXPECT_EQ(ExtentsBehind({{0, 11, 90}}, 100), Pieces{});
  EXPECT_EQ(ExtentsBehind({{0, 12, 90}}, 100), (Pieces{{9, 3}}));
  EXPECT_EQ(ExtentsBehind({{0, 1, 100}}, 100), Pieces{});
}

TEST(ExtentsBehind, FileWhoseLastLcnIsTheBoundaryIsOneToMoveWithoutAnExtent) {
  const Extents extents = {{0, 11, 90}};
  EXPECT_TRUE(ReachesBehind(extents, 100));
  EXPECT_EQ(ExtentsBehind(extents, 100), Pieces{});
  EXPECT_FALSE(ReachesBehind({{0, 10, 90}}, 100));
}

TEST(ExtentsBehind, WrappedBoundaryLeavesEverything) {
  const Extents extents = {{0, 11, 90}, {11, 12, 1000}};
  EXPECT_FALSE(ReachesBehind(extents, std::uint64_t{0} - 245));
  EXPECT_EQ(ExtentsBehind(extents, std::uint64_t{0} - 245), Pieces{});
}

// ---- Where it goes -----------------------------------------------------------------------------

struct Placed {
  Moves moves;
  Runs runs;
  Debris debris;
  bool result = false;
};

// `fail_at` counts requests from 1; that one fails and is noted too.
Placed Place(Runs runs, Debris debris, std::uint64_t boundary, std::size_t fail_at = 0) {
  Placed placed{{}, std::move(runs), std::move(debris), false};
  placed.result = PlaceFileDebris(placed.runs, placed.debris, boundary, [&](const FileMove& move) {
    placed.moves.push_back(move);
    return placed.moves.size() != fail_at;
  });
  return placed;
}

Debris OneFile(const Pieces& extents) {
  return {{File(1), extents}};
}

TEST(PlaceFileDebris, TakesWhatItNeedsOffTheLowestRun) {
  const Placed placed = Place({{20, 10}, {40, 50}}, OneFile({{7, 4}}), 100);
  EXPECT_TRUE(placed.result);
  EXPECT_EQ(placed.moves, (Moves{{File(1), 7, 18, 4}}));
  EXPECT_EQ(placed.runs, (Runs{{24, 6}, {40, 50}}));
  EXPECT_EQ(placed.debris[0].extents, (Pieces{{7, 4}}));
}

TEST(PlaceFileDebris, PacksExtentsAndFilesInOrder) {
  const Placed placed = Place({{20, 30}}, {{File(1), {{0, 3}, {9, 4}}}, {File(2), {{2, 5}}}}, 100);
  EXPECT_EQ(placed.moves, (Moves{{File(1), 0, 18, 3}, {File(1), 9, 21, 4}, {File(2), 2, 25, 5}}));
  EXPECT_EQ(placed.runs, (Runs{{32, 18}}));
}

TEST(PlaceFileDebris, SplitsAnExtentAcrossRuns) {
  const Placed placed = Place({{20, 3}, {30, 4}, {40, 50}}, OneFile({{5, 10}}), 100);
  EXPECT_EQ(placed.moves, (Moves{{File(1), 5, 18, 3}, {File(1), 8, 28, 4}, {File(1), 12, 38, 3}}));
  EXPECT_EQ(placed.runs, (Runs{{20, 0}, {30, 0}, {43, 47}}));
  EXPECT_EQ(placed.debris[0].extents, (Pieces{{12, 3}}));
}

TEST(PlaceFileDebris, RunOfTwoIsUsedAndRunOfOneIsNot) {
  const Placed placed = Place({{20, 1}, {30, 2}, {40, 1}, {50, 9}}, OneFile({{0, 3}}), 100);
  EXPECT_EQ(placed.moves, (Moves{{File(1), 0, 28, 2}, {File(1), 2, 48, 1}}));
  EXPECT_EQ(placed.runs, (Runs{{20, 1}, {30, 0}, {40, 1}, {51, 8}}));
}

TEST(PlaceFileDebris, RunThatIsFilledExactlyGivesOneMoreRequestOfNoClusters) {
  const Placed placed = Place({{20, 3}, {30, 1}, {40, 5}}, OneFile({{5, 3}}), 100);
  EXPECT_EQ(placed.moves, (Moves{{File(1), 5, 18, 3}, {File(1), 8, 38, 0}}));
  EXPECT_EQ(placed.runs, (Runs{{20, 0}, {30, 1}, {40, 5}}));
  EXPECT_EQ(placed.debris[0].extents, (Pieces{{8, 0}}));
}

TEST(PlaceFileDebris, LastUsableRunThatIsFilledExactlyGivesNoFurtherRequest) {
  const Placed placed = Place({{20, 3}, {30, 1}}, OneFile({{5, 3}}), 100);
  EXPECT_TRUE(placed.result);
  EXPECT_EQ(placed.moves, (Moves{{File(1), 5, 18, 3}}));
}

TEST(PlaceFileDebris, CutsARunDownToTheBoundaryAndStoresTheCut) {
  const Placed placed = Place({{95, 1000}}, OneFile({{0, 3}}), 100);
  EXPECT_EQ(placed.moves, (Moves{{File(1), 0, 93, 3}}));
  EXPECT_EQ(placed.runs, (Runs{{98, 3}}));
}

TEST(PlaceFileDebris, RunsAtOrAboveTheBoundaryAreNeverUsed) {
  const Placed placed = Place({{100, 50}, {170, 50}}, OneFile({{0, 3}}), 100);
  EXPECT_TRUE(placed.result);
  EXPECT_EQ(placed.moves, Moves{});
  EXPECT_EQ(placed.runs, (Runs{{100, 50}, {170, 50}}));
}

TEST(PlaceFileDebris, RunsThatAreNotReachedAreNotCut) {
  const Placed placed = Place({{20, 50}, {90, 1000}}, OneFile({{0, 3}}), 100);
  EXPECT_EQ(placed.runs, (Runs{{23, 47}, {90, 1000}}));
}

TEST(PlaceFileDebris, WhatFindsNoRoomStaysAndIsNoFailure) {
  const Placed placed = Place({{20, 3}}, {{File(1), {{0, 5}, {9, 4}}}, {File(2), {{0, 2}}}}, 100);
  EXPECT_TRUE(placed.result);
  EXPECT_EQ(placed.moves, (Moves{{File(1), 0, 18, 3}}));
  EXPECT_EQ(placed.debris[0].extents, (Pieces{{3, 2}, {9, 4}}));
}

TEST(PlaceFileDebris, FileWithoutExtentsAsksForNothing) {
  EXPECT_EQ(Place({{20, 3}}, OneFile({}), 100).moves, Moves{});
}

TEST(PlaceFileDebris, FailedRequestEndsItAndUsesNothingUp) {
  const Placed placed =
      Place({{20, 3}, {30, 40}}, {{File(1), {{0, 5}, {9, 4}}}, {File(2), {{0, 2}}}}, 100, 2);
  EXPECT_FALSE(placed.result);
  EXPECT_EQ(placed.moves, (Moves{{File(1), 0, 18, 3}, {File(1), 3, 28, 2}}));
  EXPECT_EQ(placed.runs, (Runs{{20, 0}, {30, 40}}));
  EXPECT_EQ(placed.debris[0].extents, (Pieces{{3, 2}, {9, 4}}));
}

// Three loops, each extent from the head of the list.
Placed PlainPlace(Runs runs, Debris debris, std::uint64_t boundary, std::size_t fail_at) {
  Moves moves;
  for (FileDebris& file : debris) {
    for (FileExtent& extent : file.extents) {
      for (ClusterRun& run : runs) {
        if (run.first >= boundary) continue;
        if (run.first - 1 + run.length > boundary) run.length = boundary - run.first + 1;
        if (run.length < 2) continue;
        const bool fits = run.length > extent.count;
        const std::uint64_t count = fits ? extent.count : run.length;
        moves.push_back({file.handle, extent.vcn, run.first - 2, count});
        if (moves.size() == fail_at) return {moves, runs, debris, false};
        if (fits) {
          run.first += count;
          run.length -= count;
          break;
        }
        run.length = 0;
        extent.vcn += count;
        extent.count -= count;
      }
    }
  }
  return {moves, runs, debris, true};
}

Runs RandomRuns(std::mt19937_64& random) {
  Runs runs;
  std::uint64_t first = 10;
  while (random() % 12 != 0) {
    first += 1 + random() % 4;
    const std::uint64_t length = random() % 7;
    runs.push_back({first, length});
    first += length;
  }
  if (!runs.empty() && random() % 2 == 0) runs.back().length = 500;
  return runs;
}

Debris RandomFiles(std::mt19937_64& random) {
  Debris debris;
  while (random() % 6 != 0) {
    FileDebris file{File(1 + debris.size()), {}};
    while (random() % 3 != 0) file.extents.push_back({random() % 50, random() % 9});
    debris.push_back(file);
  }
  return debris;
}

TEST(PlaceFileDebris, EqualsAPlainWalkOnRandomLists) {
  std::mt19937_64 random(4711);
  for (int round = 0; round < 5000; ++round) {
    const Runs runs = RandomRuns(random);
    const Debris debris = RandomFiles(random);
    const std::uint64_t boundary = 10 + random() % 90;
    const std::size_t fail_at = random() % 12;
    const Placed plain = PlainPlace(runs, debris, boundary, fail_at);
    const Placed placed = Place(runs, debris, boundary, fail_at);
    ASSERT_EQ(placed.moves, plain.moves) << round;
    ASSERT_EQ(placed.result, plain.result) << round;
    ASSERT_EQ(placed.runs, plain.runs) << round;
    for (std::size_t i = 0; i < debris.size(); ++i) {
      ASSERT_EQ(placed.debris[i].extents, plain.debris[i].extents) << round;
    }
  }
}

// The walk costs as many steps as there are runs and extents together: each request refills the run
// before its own, which a walk that begins again at the head of the list would take.
TEST(PlaceFileDebris, UsedUpRunsAreNotWalkedAgain) {
  Runs runs = {{10, 3}, {20, 3}, {30, 3}, {40, 3}};
  Debris debris = {{File(1), {{0, 2}, {5, 2}}}, {File(2), {{0, 2}, {5, 2}}}};
  std::vector<std::uint64_t> lcns;
  EXPECT_TRUE(PlaceFileDebris(runs, debris, 1000, [&](const FileMove& move) {
    if (!lcns.empty()) runs[lcns.size() - 1] = {10 * lcns.size(), 3};
    lcns.push_back(move.lcn);
    return true;
  }));
  EXPECT_EQ(lcns, (std::vector<std::uint64_t>{8, 18, 28, 38}));
}

// ---- Rows of directories -----------------------------------------------------------------------

using DirectoryRows = std::vector<DirectoryDebris>;

DirectoryRows RowsOf(const Extents& extents) {
  DirectoryRows rows;
  AppendDirectoryDebris(extents, rows);
  return rows;
}

TEST(AppendDirectoryDebris, DirectoryOfOneFragmentHasNoNeighbours) {
  EXPECT_EQ(RowsOf({{0, 3, 100}}), (DirectoryRows{{0, 102, 0, 3, 0}}));
}

TEST(AppendDirectoryDebris, FragmentsNameTheirNeighboursByFatCluster) {
  EXPECT_EQ(RowsOf({{0, 3, 100}, {3, 4, 50}, {4, 9, 200}}),
            (DirectoryRows{{0, 102, 0, 3, 52}, {104, 52, 3, 1, 202}, {52, 202, 4, 5, 0}}));
}

TEST(AppendDirectoryDebris, AppendsBehindTheRowsOfOtherDirectories) {
  DirectoryRows rows;
  AppendDirectoryDebris({{0, 3, 100}}, rows);
  AppendDirectoryDebris({{0, 1, 7}, {1, 2, 9}}, rows);
  EXPECT_EQ(rows, (DirectoryRows{{0, 102, 0, 3, 0}, {0, 9, 0, 1, 11}, {9, 11, 1, 1, 0}}));
}

TEST(AppendDirectoryDebris, VirtualClustersAreCutTo32Bits) {
  constexpr std::uint64_t kFour = std::uint64_t{1} << 32;
  EXPECT_EQ(RowsOf({{kFour + 1, 2 * kFour + 3, 100}, {2 * kFour + 3, 2 * kFour + 4, 7}}),
            (DirectoryRows{{0, 102, 1, 2, 9}, {103, 9, 3, 1, 0}}));
}

}  // namespace
}  // namespace velkora
