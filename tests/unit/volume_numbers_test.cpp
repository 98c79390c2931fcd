#include "convert/volume_numbers.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <vector>

#include "support/caller_record.h"
#include "support/fault_of.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint16_t kOld = 77;

// A record whose volumes start at these offsets and have the number kOld.
class PartNumbers : public ::testing::Test {
 protected:
  void Add(const std::vector<std::uint64_t>& offsets) {
    for (const std::uint64_t offset : offsets) record_.Add(offset).part_number = kOld;
  }

  std::vector<int> Numbers() {
    std::vector<int> numbers;
    for (std::size_t i = 0; i < static_cast<std::size_t>(record_.disk().volume_count); ++i) {
      numbers.push_back(record_.volume(i).part_number);
    }
    return numbers;
  }

  CallerRecord record_{DiskType::kGpt};
};

TEST_F(PartNumbers, ArePlacesOfTheOffsetsFromOne) {
  Add({300, 100, 200});
  UpdateVolumePartNumbers({100, 200, 300}, record_.disk());
  EXPECT_EQ(Numbers(), (std::vector<int>{3, 1, 2}));
}

TEST_F(PartNumbers, AnOffsetWithoutVolumeStillTakesUpItsNumber) {
  Add({100, 300});
  UpdateVolumePartNumbers({100, 200, 300}, record_.disk());
  EXPECT_EQ(Numbers(), (std::vector<int>{1, 3}));
}

TEST_F(PartNumbers, AVolumeWithoutOffsetKeepsItsNumber) {
  Add({100, 150, 200});
  UpdateVolumePartNumbers({100, 200}, record_.disk());
  EXPECT_EQ(Numbers(), (std::vector<int>{1, kOld, 2}));
}

TEST_F(PartNumbers, OfTwoVolumesAtOneOffsetOnlyTheFirstGetsOne) {
  Add({100, 100});
  UpdateVolumePartNumbers({100}, record_.disk());
  EXPECT_EQ(Numbers(), (std::vector<int>{1, kOld}));
}

TEST_F(PartNumbers, ARepeatedOffsetNumbersItsVolumeAgain) {
  Add({100});
  UpdateVolumePartNumbers({100, 100}, record_.disk());
  EXPECT_EQ(Numbers(), (std::vector<int>{2}));
}

TEST_F(PartNumbers, StayWithoutOffsets) {
  Add({100});
  UpdateVolumePartNumbers({}, record_.disk());
  EXPECT_EQ(Numbers(), (std::vector<int>{kOld}));
}

TEST_F(PartNumbers, StayForACountOfZeroOrLess) {
  VolumeInfo& volume = record_.Add(100);
  volume.part_number = kOld;
  for (const std::int32_t count : {0, -1}) {
    record_.disk().volume_count = count;
    UpdateVolumePartNumbers({100}, record_.disk());
    EXPECT_EQ(volume.part_number, kOld) << count;
  }
}

TEST_F(PartNumbers, ReachTheLastOf255Volumes) {
  for (std::uint64_t i = 0; i < 255; ++i) record_.Add(1000 + i).part_number = kOld;
  UpdateVolumePartNumbers({5, 1254}, record_.disk());
  EXPECT_EQ(record_.volume(254).part_number, 2);
  EXPECT_EQ(record_.volume(253).part_number, kOld);
}

TEST_F(PartNumbers, BeginAgainBehind256Offsets) {
  Add({1254, 1255, 1256, 1257});
  std::vector<std::uint64_t> offsets;
  for (std::uint64_t i = 0; i < 258; ++i) offsets.push_back(1000 + i);
  UpdateVolumePartNumbers(offsets, record_.disk());
  EXPECT_EQ(Numbers(), (std::vector<int>{255, 256, 1, 2}));
}

TEST_F(PartNumbers, AWalkBehindTheArrayIsAnAccessViolation) {
  for (std::uint64_t i = 0; i < 255; ++i) record_.Add(1000 + i);
  record_.disk().volume_count = 256;
  EXPECT_EQ(FaultOf([&] { UpdateVolumePartNumbers({5}, record_.disk()); }),
            EXCEPTION_ACCESS_VIOLATION);
}

}  // namespace
}  // namespace velkora
