// The two pieces of room that MBR to GPT needs. Disks have 4 GiB; places are in MiB where not said
// otherwise.
#include <algorithm>
#include <stdexcept>

#include "convert/mbr_to_gpt.h"
#include "frame/global_context.h"
#include "support/mbr_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Places = std::vector<RowPlace>;

constexpr std::uint64_t kEfiSectors = 614400;  // 300 MiB

class RoomTest : public MbrDiskTest {
 protected:
  static constexpr std::uint64_t kDiskMiB = 4096;
  RoomTest() : MbrDiskTest(kDiskMiB) {}

  // A table of primaries, on the disk and as the list.
  void SetUpRows(const std::vector<MbrEntry>& entries, bool with_record = true) {
    SetUpDisk(entries, {}, with_record);
    rows_ = MbrRowsOf(entries);
  }
  void SetSizeInSectors(std::uint64_t sectors) { record_.disk().size = sectors * 512; }
  bool NothingHappened() const { return log_.empty() && Events().empty() && shell_lines_.empty(); }

  MbrPartitionList rows_;
};

// ---- Room behind the last partition -------------------------------------------------------------

class EnsureGptTailRoom : public RoomTest {
 protected:
  bool Run() { return velkora::EnsureGptTailRoom(converter_, rows_); }

  // Two rows out of order on the disk, the later one 32 sectors in front of the end.
  void SetUpTightRows() {
    const std::uint64_t end = kDiskMiB * kMiB - 32;
    last_ = {7, 2000 * kMiB, end - 2000 * kMiB};
    SetUpRows({last_, Between(1, 100)});
    rows_ = MbrRowsOf({Between(1, 100), last_});
  }

  MbrEntry last_;
  const Places shrunk_ = {{kMiB, 99 * kMiB}, {2000 * kMiB, 2095 * kMiB - 32}};
};

TEST_F(EnsureGptTailRoom, EmptyListNeedsNone) {
  SetUpRows({});
  EXPECT_TRUE(Run());
  EXPECT_TRUE(NothingHappened());
}

TEST_F(EnsureGptTailRoom, ThirtyThreeSectorsAreEnough) {
  SetUpRows({Between(1, 100)});
  SetSizeInSectors(100 * kMiB + 33);
  EXPECT_TRUE(Run());
  EXPECT_TRUE(NothingHappened());
  EXPECT_EQ(PlacesOf(rows_), (Places{{kMiB, 99 * kMiB}}));
}

TEST_F(EnsureGptTailRoom, ThirtyTwoSectorsAskForAShrink) {
  SetUpRows({Between(1, 100)}, false);
  SetSizeInSectors(100 * kMiB + 32);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
}

TEST_F(EnsureGptTailRoom, PartOfASectorDoesNotCount) {
  SetUpRows({Between(1, 100)}, false);
  record_.disk().size = (100 * kMiB + 33) * 512 - 1;
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
}

TEST_F(EnsureGptTailRoom, EndBehindTwoTiBDoesNotWrap) {
  SetUpRows({{7, 0xFFFFF000, 0x2000}}, false);
  SetSizeInSectors(0x100001000 + 32);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
}

TEST_F(EnsureGptTailRoom, EndBehindTwoTiBMayHaveRoom) {
  SetUpRows({{7, 0xFFFFF000, 0x2000}}, false);
  SetSizeInSectors(0x100001000 + 33);
  EXPECT_TRUE(Run());
  EXPECT_TRUE(NothingHappened());
}

TEST_F(EnsureGptTailRoom, LastRowIsShrunkByOneMiBAndTheListReadAnew) {
  SetUpTightRows();
  EXPECT_TRUE(Run());
  EXPECT_EQ(PlacesOf(rows_), shrunk_);
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
  EXPECT_EQ(scripts_, Texts{"rescan\r\n"});
  EXPECT_EQ(AllLines(), (Texts{"1 CompressPart Begin...", "1 Compress NTFS Partition...",
                               "1 Compress NTFS Partition End!", "1 DISKPART_Rescan Begin...",
                               "1 DISKPART_Rescan Success!"}));
}

TEST_F(EnsureGptTailRoom, FailedShrinkIsAFailure) {
  SetUpRows({Between(1, 4096)}, false);
  EXPECT_FALSE(Run());
  EXPECT_EQ(AllLines(),
            (Texts{"1 CompressPart Begin...", "1 CompressPart End", "3 CompressPart fail!"}));
  EXPECT_EQ(rows_.size(), 1U);
}

TEST_F(EnsureGptTailRoom, FailedRescanKeepsTheList) {
  SetUpTightRows();
  machine_.calls().FailOn("command/diskpart");
  EXPECT_FALSE(Run());
  EXPECT_EQ(LastLine(), "3 DISKPART_Rescan Failed!");
  EXPECT_EQ(PlacesOf(rows_), (Places{{kMiB, 99 * kMiB}, {2000 * kMiB, 2096 * kMiB - 32}}));
}

TEST_F(EnsureGptTailRoom, FailedReadLeavesTheListEmpty) {
  SetUpTightRows();
  machine_.on_script = [this](std::string_view) { machine_.calls().FailOn("ReadFile", 1, 23); };
  EXPECT_FALSE(Run());
  EXPECT_EQ(Lines(3), (Texts{"Read Error: 23", "Get partitions fail!"}));
  EXPECT_TRUE(rows_.empty());
}

TEST_F(EnsureGptTailRoom, FailedReadOfABootRecordLeavesTheListCutAndUnsorted) {
  const MbrEntry late = Between(200, 300);
  const MbrEntry early = Between(1, 100);
  const MbrEntry first = Between(301, 400);
  const MbrEntry last = Between(401, kDiskMiB);
  SetUpDisk({late, early, {15, 300 * kMiB, (kDiskMiB - 300) * kMiB}}, {first, last});
  rows_ = MbrRowsOf({early, late, first, last});
  // The table and the first boot record are read, the second is not.
  machine_.on_script = [this](std::string_view) { machine_.calls().FailOn("ReadFile", 3, 23); };
  EXPECT_FALSE(Run());
  EXPECT_EQ(Lines(3), (Texts{"Read Error: 23", "Get partitions fail!"}));
  EXPECT_EQ(PlacesOf(rows_), PlacesOf(MbrRowsOf({late, early, first})));
}

TEST_F(EnsureGptTailRoom, StopDuringTheShrinkLeavesTheListEmpty) {
  SetUpTightRows();
  StopAt({0, 5});
  EXPECT_FALSE(Run());
  EXPECT_EQ(Lines(3), Texts{"Get partitions fail!"});
  EXPECT_TRUE(rows_.empty());
}

// ---- Room for the EFI partition: gaps -----------------------------------------------------------

class EnsureEfiRoom : public RoomTest {
 protected:
  EnsureEfiRoom() { record_.disk().is_system = 1; }

  bool Run() { return velkora::EnsureEfiRoom(converter_, rows_, &efi_position_); }

  // The room is found without a shrink, and the EFI row takes `place` and `position`.
  void ExpectEfi(std::uint32_t position, std::uint64_t first_sector) {
    EXPECT_TRUE(Run());
    EXPECT_EQ(efi_position_, position);
    const Places places = PlacesOf(rows_);
    const RowPlace efi = {first_sector, kEfiSectors};
    EXPECT_EQ(std::count(places.begin(), places.end(), efi), 1) << ::testing::PrintToString(places);
    EXPECT_TRUE(std::is_sorted(rows_.begin(), rows_.end(), [](const auto& a, const auto& b) {
      return a.first_sector < b.first_sector;
    }));
  }
  // The same, in the middle of things: the position is the row's place in the sorted list.
  void ExpectEfiAtItsPlace(std::uint32_t position, std::uint64_t first_sector) {
    ExpectEfi(position, first_sector);
    ASSERT_LE(position, rows_.size());
    EXPECT_EQ(rows_[position - 1].first_sector, first_sector);
    EXPECT_EQ(rows_[position - 1].sector_count, kEfiSectors);
  }

  std::uint32_t efi_position_ = 0;
};

TEST_F(EnsureEfiRoom, DataDiskNeedsNone) {
  SetUpRows({Between(1, 4096)});
  record_.disk().is_system = 0;
  EXPECT_TRUE(Run());
  EXPECT_EQ(efi_position_, 0U);
  EXPECT_EQ(rows_.size(), 1U);
  EXPECT_TRUE(NothingHappened());
}

TEST_F(EnsureEfiRoom, DataDiskWithoutRowsNeedsNone) {
  SetUpRows({});
  record_.disk().is_system = 0;
  EXPECT_TRUE(Run());
  EXPECT_TRUE(rows_.empty());
  EXPECT_TRUE(NothingHappened());
}

TEST_F(EnsureEfiRoom, FirstRowBehind301MiBGetsItInFront) {
  SetUpRows({{7, 301 * kMiB + 1, 100 * kMiB}, Between(500, 600)});
  ExpectEfiAtItsPlace(1, 2048);
  EXPECT_EQ(rows_.size(), 3U);
}

TEST_F(EnsureEfiRoom, FirstRowAtExactly301MiBDoesNot) {
  SetUpRows({Between(301, 400)});
  ExpectEfiAtItsPlace(2, 400 * kMiB);
}

TEST_F(EnsureEfiRoom, UsualFirstRowIsPassedOver) {
  SetUpRows({Between(1, 100), Between(500, 600)});
  ExpectEfiAtItsPlace(2, 100 * kMiB);
}

TEST_F(EnsureEfiRoom, FirstRowBefore1MiBIsPassedOver) {
  SetUpRows({{7, 63, 100 * kMiB}, Between(500, 600)});
  ExpectEfiAtItsPlace(2, 100 * kMiB + 63);
}

TEST_F(EnsureEfiRoom, GapOfExactly300MiBIsNotUsed) {
  SetUpRows({Between(1, 100), Between(400, 500)});
  ExpectEfiAtItsPlace(3, 500 * kMiB);
}

TEST_F(EnsureEfiRoom, GapOfOneSectorMoreIsUsed) {
  SetUpRows({Between(1, 100), {7, 400 * kMiB + 1, 100 * kMiB}});
  ExpectEfiAtItsPlace(2, 100 * kMiB);
}

TEST_F(EnsureEfiRoom, FirstOfTwoGapsIsUsed) {
  SetUpRows({Between(1, 100), Between(150, 200), Between(700, 800), Between(1500, 1600)});
  ExpectEfiAtItsPlace(3, 200 * kMiB);
}

TEST_F(EnsureEfiRoom, GapBehind4GiBIsUsed) {
  SetUpRows({Between(1, 5000), {7, 5300 * kMiB + 1, 100 * kMiB}});
  ExpectEfiAtItsPlace(2, 5000 * kMiB);
}

TEST_F(EnsureEfiRoom, PositionIsNotRounded) {
  SetUpRows({{7, 2048, 12345}, Between(500, 600)});
  ExpectEfiAtItsPlace(2, 2048 + 12345);
}

// ---- Room for the EFI partition: behind the last row --------------------------------------------

TEST_F(EnsureEfiRoom, EndOfTheDiskIsUsedWhenNoGapIs) {
  SetUpRows({Between(1, 100), Between(100, 200)});
  ExpectEfiAtItsPlace(3, 200 * kMiB);
  EXPECT_EQ(Events(), std::vector<Event>{});
}

TEST_F(EnsureEfiRoom, Exactly300MiBAtTheEndAreNotUsed) {
  SetUpRows({Between(1, 100)});
  record_.disk().size = 400ULL << 20;
  EXPECT_FALSE(Run());
  EXPECT_EQ(AllLines(), Texts{"3 Need compress for efi but not"});
}

TEST_F(EnsureEfiRoom, OneByteMoreAtTheEndIsEnough) {
  SetUpRows({Between(1, 100)});
  record_.disk().size = (400ULL << 20) + 1;  // 33 sectors behind it are not asked for
  ExpectEfiAtItsPlace(2, 100 * kMiB);
}

TEST_F(EnsureEfiRoom, EndOfTheDiskBehind4GiBIsUsed) {
  SetUpRows({Between(1, 5000)});
  record_.disk().size = (5300ULL << 20) + 1;
  ExpectEfiAtItsPlace(2, 5000 * kMiB);
}

// The end is a sum of 32 bits: the row seems to end at 2 MiB, and the EFI row is put there.
TEST_F(EnsureEfiRoom, EndBehindTwoTiBWrapsToTheFrontOfTheDisk) {
  SetUpRows({{7, 2048, 0xFFFFF000 - 2048}, {7, 0xFFFFF000, 0x2000}});
  SetSizeInSectors(0x100001000);
  ExpectEfi(3, 0x1000);
  EXPECT_EQ(PlacesOf(rows_),
            (Places{{2048, 0xFFFFF000 - 2048}, {0x1000, kEfiSectors}, {0xFFFFF000, 0x2000}}));
}

TEST_F(EnsureEfiRoom, EmptyListRaises) {
  SetUpRows({});
  EXPECT_THROW(Run(), std::out_of_range);
  EXPECT_TRUE(NothingHappened());
}

// ---- Room for the EFI partition: by a shrink ----------------------------------------------------

TEST_F(EnsureEfiRoom, LastRowAboveOneGiBIsShrunkBy302MiB) {
  SetUpRows({Between(1, 1500), Between(1500, 4096)});
  EXPECT_TRUE(Run());
  EXPECT_EQ(efi_position_, 3U);
  EXPECT_EQ(PlacesOf(rows_), (Places{{kMiB, 1499 * kMiB},
                                     {1500 * kMiB, (2596 - 302) * kMiB},
                                     {3796 * kMiB, kEfiSectors}}));
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
}

TEST_F(EnsureEfiRoom, RowThatIsShrunkNeedNotBeTheLast) {
  SetUpRows({Between(1, 1500), Between(1500, 3500), Between(3500, 4096)});
  EXPECT_TRUE(Run());
  EXPECT_EQ(efi_position_, 3U);
  EXPECT_EQ(PlacesOf(rows_), (Places{{kMiB, 1499 * kMiB},
                                     {1500 * kMiB, (2000 - 302) * kMiB},
                                     {3200 * kMiB, kEfiSectors},  // 2 MiB stay free before it
                                     {3500 * kMiB, 596 * kMiB}}));
}

TEST_F(EnsureEfiRoom, RowOfExactlyOneGiBIsNotShrunk) {
  SetUpRows({Between(1, 1025), Between(1025, 2049), Between(2049, 3073), Between(3073, 4096)});
  EXPECT_FALSE(Run());
  EXPECT_EQ(AllLines(), Texts{"3 Need compress for efi but not"});
  EXPECT_EQ(Events(), std::vector<Event>{});
  EXPECT_EQ(rows_.size(), 4U);
}

TEST_F(EnsureEfiRoom, RowOfOneSectorMoreIsShrunk) {
  const std::uint64_t gib = 1024 * kMiB;
  const std::uint64_t end = kMiB + gib + 1;
  SetUpRows(
      {{7, kMiB, gib + 1}, {7, end, gib}, {7, end + gib, gib}, {7, end + 2 * gib, gib - 8192}});
  EXPECT_TRUE(Run());
  EXPECT_EQ(efi_position_, 2U);
  EXPECT_EQ(PlacesOf(rows_)[0], (RowPlace{kMiB, gib + 1 - 302 * kMiB}));
  EXPECT_EQ(PlacesOf(rows_)[1], (RowPlace{kMiB + gib + 1 - kEfiSectors, kEfiSectors}));
}

TEST_F(EnsureEfiRoom, RowOf4GiBAndAHalfIsLongEnough) {
  SetUpRows({Between(1, 4609)}, false);
  record_.disk().size = 4609ULL << 20;
  EXPECT_FALSE(Run());
  EXPECT_EQ(Events(), (std::vector<Event>{{0, 5}}));
  EXPECT_EQ(LastLine(), "3 CompressPart fail!");
}

TEST_F(EnsureEfiRoom, FailedShrinkIsAFailure) {
  SetUpRows({Between(1, 4096)}, false);
  EXPECT_FALSE(Run());
  EXPECT_EQ(AllLines(),
            (Texts{"1 CompressPart Begin...", "1 CompressPart End", "3 CompressPart fail!"}));
  EXPECT_TRUE(scripts_.empty());
}

// ---- Room for the EFI partition: the reading anew -----------------------------------------------

TEST_F(EnsureEfiRoom, ListIsReadAnewAlsoWithoutAShrink) {
  SetUpRows({Between(100, 200), Between(1, 100)});
  rows_ = MbrRowsOf({Between(1, 50)});
  EXPECT_TRUE(Run());
  EXPECT_EQ(efi_position_, 2U);
  EXPECT_EQ(PlacesOf(rows_),
            (Places{{kMiB, 99 * kMiB}, {50 * kMiB, kEfiSectors}, {100 * kMiB, 100 * kMiB}}));
  EXPECT_EQ(scripts_, Texts{"rescan\r\n"});
  EXPECT_EQ(AllLines(), (Texts{"1 DISKPART_Rescan Begin...", "1 DISKPART_Rescan Success!"}));
}

TEST_F(EnsureEfiRoom, EfiRowIsNeitherActiveNorHidden) {
  SetUpRows({Between(1, 100)});
  EXPECT_TRUE(Run());
  ASSERT_EQ(rows_.size(), 2U);
  EXPECT_EQ(rows_[1].boot_indicator, 0);
  EXPECT_NE(rows_[1].type, 0xFF);
}

TEST_F(EnsureEfiRoom, FailedRescanKeepsTheList) {
  SetUpRows({Between(1, 100)});
  machine_.calls().FailOn("command/diskpart");
  EXPECT_FALSE(Run());
  EXPECT_EQ(LastLine(), "3 DISKPART_Rescan Failed!");
  EXPECT_EQ(rows_.size(), 1U);
}

TEST_F(EnsureEfiRoom, FailedReadLeavesTheListEmpty) {
  SetUpRows({Between(1, 100)});
  machine_.calls().FailOn("ReadFile", 1, 23);
  EXPECT_FALSE(Run());
  EXPECT_EQ(Lines(3), (Texts{"Read Error: 23", "Get partitions fail!"}));
  EXPECT_TRUE(rows_.empty());
}

TEST_F(EnsureEfiRoom, StopIsSeenByTheReadAlone) {
  SetUpRows({Between(1, 100)});
  GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(Run());
  EXPECT_EQ(scripts_, Texts{"rescan\r\n"});
  EXPECT_EQ(Lines(3), Texts{"Get partitions fail!"});
}

}  // namespace
}  // namespace velkora
