#include "shrink/run_length_tree.h"

#include <gtest/gtest.h>
#include <random>

namespace velkora {
namespace {

using Runs = std::vector<ClusterRun>;

std::size_t PlainFirstLongerThan(const Runs& runs, std::uint64_t count) {
  std::size_t index = 0;
  while (index < runs.size() && runs[index].length <= count) ++index;
  return index;
}

TEST(RunLengthTree, NoRunsGiveNone) {
  EXPECT_EQ(RunLengthTree(Runs{}).FirstLongerThan(0), 0U);
}

TEST(RunLengthTree, FirstOfSeveralLongerRunsIsFound) {
  const RunLengthTree tree(Runs{{10, 2}, {20, 4}, {30, 9}, {50, 4}, {60, 9}});
  EXPECT_EQ(tree.FirstLongerThan(0), 0U);
  EXPECT_EQ(tree.FirstLongerThan(1), 0U);
  EXPECT_EQ(tree.FirstLongerThan(3), 1U);
  EXPECT_EQ(tree.FirstLongerThan(8), 2U);
}

TEST(RunLengthTree, RunOfTheVeryLengthIsNotLonger) {
  const RunLengthTree tree(Runs{{10, 2}, {20, 4}});
  EXPECT_EQ(tree.FirstLongerThan(2), 1U);
  EXPECT_EQ(tree.FirstLongerThan(4), 2U);
}

TEST(RunLengthTree, ChangedLengthCounts) {
  RunLengthTree tree(Runs{{10, 5}, {20, 5}, {30, 5}});
  tree.SetLength(0, 1);
  EXPECT_EQ(tree.FirstLongerThan(4), 1U);
  tree.SetLength(2, 8);
  EXPECT_EQ(tree.FirstLongerThan(5), 2U);
  tree.SetLength(2, 0);
  EXPECT_EQ(tree.FirstLongerThan(5), 3U);
}

TEST(RunLengthTree, EqualsAPlainWalkWhileRunsAreUsedUp) {
  std::mt19937_64 random(7);
  for (int round = 0; round < 300; ++round) {
    Runs runs(random() % 70);
    for (ClusterRun& run : runs) run.length = random() % 40;
    RunLengthTree tree(runs);
    for (int step = 0; step < 60; ++step) {
      const std::uint64_t count = random() % 45;
      const std::size_t index = tree.FirstLongerThan(count);
      ASSERT_EQ(index, PlainFirstLongerThan(runs, count));
      if (index == runs.size()) continue;
      runs[index].length -= count;
      tree.SetLength(index, runs[index].length);
    }
  }
}

}  // namespace
}  // namespace velkora
