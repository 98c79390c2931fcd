// Undo restores the disk, or refuses and writes nothing.
#include "host/undo.h"

#include <gmock/gmock.h>

#include "host/rescue_fixture.h"
#include "platform/win32.h"

namespace testing_support {
namespace {

using ::testing::HasSubstr;
using Ranges = std::vector<ByteRange>;

constexpr std::uint64_t kDiskSize = 16 * 512;

class UndoTest : public RescueTest {
 protected:
  // A disk with 5 sectors saved and changed: three before the seal, two pieces of one after it.
  void ChangeASmallDisk() {
    AttachRandomDisk(kDiskSize);
    WriteBytes(*disk_, 1024, Bytes(512));  // one piece is packed
    before_ = DiskBytes();
    SaveSealed({{512, 512}, {1024, 1024}}, {{4096, 512}});
    sealed_and_one_ = FileText().size();
    sealed_ = sealed_and_one_ - sizeof(velkora_host::PieceHeader) - 512;
    std::filesystem::remove(folder_.path() / "disk.rescue");
    SaveSealed({{512, 512}, {1024, 1024}}, {{4096, 512}, {6144, 512}});
    for (const ByteRange& range : Ranges{{512, 1536}, {4096, 512}, {6144, 512}}) Overwrite(range);
    after_ = DiskBytes();
    written_ = disk_->device().bytes_written();
    machine_.calls().keeps_calls = false;
  }

  // The message of the refusal; nothing is written.
  std::string Refusal() const {
    std::string error = RescueErrorOf([this] { Undo(); });
    EXPECT_NE(error, "");
    EXPECT_EQ(disk_->device().bytes_written(), written_);
    return error;
  }

  Bytes before_;
  Bytes after_;
  std::uint64_t written_ = 0;
  std::size_t sealed_ = 0;          // bytes of the file up to the seal's end
  std::size_t sealed_and_one_ = 0;  // and of the first later piece
};

TEST_F(UndoTest, RestoresEveryByte) {
  ChangeASmallDisk();
  EXPECT_EQ(Undo(), 5 * 512u);
  EXPECT_EQ(DiskBytes(), before_);
  EXPECT_EQ(disk_->device().bytes_written(), written_ + 5 * 512);
}

TEST_F(UndoTest, SecondRunWritesNothing) {
  ChangeASmallDisk();
  Undo();
  written_ = disk_->device().bytes_written();
  EXPECT_EQ(Undo(), 0u);
  EXPECT_EQ(disk_->device().bytes_written(), written_);
}

TEST_F(UndoTest, RestoresSectorsOf4096BytesAndPiecesOfAllKinds) {
  AttachRandomDisk(8 * kMiB, 4096);
  WriteBytes(*disk_, 3 * kMiB, Bytes(kMiB));
  const Bytes before = DiskBytes();
  SaveSealed({{5 * kMiB, 2 * kMiB}, {0, 100}, {2 * kMiB, 2 * kMiB + 4096}}, {{7 * kMiB, kMiB}});
  Overwrite({7 * kMiB + 4096, 4096});
  Overwrite({2 * kMiB, 2 * kMiB});
  Overwrite({0, 10});
  EXPECT_EQ(Undo(), 2 * kMiB + 2 * 4096);
  EXPECT_EQ(DiskBytes(), before);
}

TEST_F(UndoTest, OnlySectorsThatDifferAreWritten) {
  AttachRandomDisk(kDiskSize);
  SaveSealed({{0, kDiskSize}});
  for (const ByteRange& range : Ranges{{0, 1}, {1024, 1024}, {kDiskSize - 1, 1}}) Overwrite(range);
  machine_.calls().Clear();
  EXPECT_EQ(Undo(), 4 * 512u);
  EXPECT_EQ(machine_.calls().Count("WriteFile/disk 1"), 3u);
}

TEST_F(UndoTest, DiskIsFlushedAlsoWithNothingToRestore) {
  AttachRandomDisk(kDiskSize);
  SaveSealed({{0, 512}});
  machine_.calls().Clear();
  EXPECT_EQ(Undo(), 0u);
  EXPECT_EQ(machine_.calls().Count("FlushFileBuffers/disk 1"), 1u);
  machine_.calls().FailOn("FlushFileBuffers/disk 1", 1, ERROR_WRITE_FAULT);
  EXPECT_EQ(RescueErrorOf([&] { Undo(); }), "the disk: cannot flush: error 29");
}

TEST_F(UndoTest, EveryFlippedBitUpToTheLastPieceIsRefused) {
  ChangeASmallDisk();
  const std::string whole = FileText();
  ASSERT_LT(sealed_and_one_, whole.size());
  for (std::size_t at = 0; at < sealed_and_one_; ++at) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 1 << at % 8);
    SetFileText(damaged);
    ASSERT_THAT(Refusal(), HasSubstr("X:\\disk.rescue: at ")) << at;
  }
  EXPECT_EQ(DiskBytes(), after_);
}

TEST_F(UndoTest, LastPieceWithAFlippedBitCountsAsTorn) {
  ChangeASmallDisk();
  const std::string whole = FileText();
  for (std::size_t at = sealed_and_one_; at < whole.size(); at += 37) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 1 << at % 8);
    SetFileText(damaged);
    const auto contents = velkora_host::ReadRescueFile(kRescuePath);
    EXPECT_EQ(contents.pieces.size(), 4u - 1) << at;
    EXPECT_EQ(contents.torn_bytes, whole.size() - sealed_and_one_) << at;
  }
}

TEST_F(UndoTest, FileCutBeforeTheEndOfTheSealIsRefused) {
  ChangeASmallDisk();
  const std::string whole = FileText();
  for (std::size_t length = 0; length < sealed_; ++length) {
    SetFileText(whole.substr(0, length));
    Refusal();
  }
  EXPECT_EQ(DiskBytes(), after_);
}

TEST_F(UndoTest, FileCutAtAnyPlaceAfterTheSealIsReadWithoutTheTornPiece) {
  ChangeASmallDisk();
  const std::string whole = FileText();
  for (std::size_t length = sealed_; length < whole.size(); ++length) {
    SetFileText(whole.substr(0, length));
    const bool has_first = length >= sealed_and_one_;
    const auto contents = velkora_host::ReadRescueFile(kRescuePath);
    ASSERT_EQ(contents.pieces.size(), has_first ? 3u : 2u) << length;
    ASSERT_EQ(contents.torn_bytes, length - (has_first ? sealed_and_one_ : sealed_)) << length;
  }
}

TEST_F(UndoTest, PieceThatIsCutAfterTheSealIsPassedOver) {
  ChangeASmallDisk();
  const std::string whole = FileText();
  for (const std::size_t length : {sealed_, sealed_ + 300, sealed_and_one_, whole.size() - 1}) {
    SetFileText(whole.substr(0, length));
    // The write that a torn piece was saved for has not begun.
    WriteBytes(*disk_, 0, before_);
    Overwrite({512, 1536});
    const bool has_first = length >= sealed_and_one_;
    if (has_first) Overwrite({4096, 512});
    EXPECT_EQ(Undo(), has_first ? 2048u : 1536u) << length;
    EXPECT_EQ(DiskBytes(), before_) << length;
  }
}

TEST_F(UndoTest, GarbageThatIsTooLongForATornPieceIsRefused) {
  ChangeASmallDisk();
  const std::string whole = FileText();
  SetFileText(whole + std::string(velkora_host::kMaxPieceBytes, 'x'));
  EXPECT_EQ(velkora_host::ReadRescueFile(kRescuePath).torn_bytes, velkora_host::kMaxPieceBytes);
  SetFileText(whole + std::string(velkora_host::kMaxPieceBytes + 1, 'x'));
  EXPECT_THAT(Refusal(), HasSubstr("no piece begins here"));
}

TEST_F(UndoTest, PieceOfAnotherFileIsNotTaken) {
  ChangeASmallDisk();
  const std::string other = FileText();
  std::filesystem::remove(folder_.path() / "disk.rescue");
  WriteBytes(*disk_, 0, before_);
  SaveSealed({{512, 512}, {1024, 1024}});
  const std::string own = FileText();
  ASSERT_EQ(own.size(), sealed_);
  SetFileText(own + other.substr(sealed_));
  EXPECT_EQ(velkora_host::ReadRescueFile(kRescuePath).pieces.size(), 2u);
}

TEST_F(UndoTest, DiskOfAnotherSizeIsRefused) {
  ChangeASmallDisk();
  EXPECT_EQ(RescueErrorOf([&] { velkora_host::Undo(kRescuePath, handle_, kDiskSize + 512); }),
            "X:\\disk.rescue: is of another disk: that one has 8192 bytes, this one 8704");
  EXPECT_EQ(disk_->device().bytes_written(), written_);
}

TEST_F(UndoTest, DiskWithAnotherSectorAtAWitnessIsRefused) {
  ChangeASmallDisk();
  for (const velkora_host::Witness& witness : velkora_host::ReadRescueFile(kRescuePath).witnesses) {
    const std::uint64_t offset = witness.offset;
    if (offset == 4096 || offset == 6144) continue;  // saved later
    Overwrite({offset + 511, 1});
    written_ = disk_->device().bytes_written();
    EXPECT_THAT(Refusal(), HasSubstr("the sector at " + std::to_string(offset) + " has"));
    Overwrite({offset + 511, 1});
  }
  EXPECT_EQ(DiskBytes(), after_);
}

TEST_F(UndoTest, RunThatEndsAtAnyWriteIsRunAgain) {
  ChangeASmallDisk();
  const int writes = 4;
  for (int number = 1; number <= writes; ++number) {
    WriteBytes(*disk_, 0, after_);
    machine_.calls().FailOn("WriteFile", static_cast<std::size_t>(number), ERROR_WRITE_FAULT,
                            simulator::Repeat::kFromThenOn);
    EXPECT_THAT(RescueErrorOf([&] { Undo(); }), HasSubstr("the disk: cannot write")) << number;
    machine_.calls().ClearFailures();
    EXPECT_NE(DiskBytes(), before_);
    EXPECT_GT(Undo(), 0u);
    EXPECT_EQ(DiskBytes(), before_) << number;
  }
  // There is no further write.
  WriteBytes(*disk_, 0, after_);
  machine_.calls().FailOn("WriteFile", writes + 1);
  EXPECT_EQ(Undo(), 5 * 512u);
}

TEST_F(UndoTest, EveryFailureIsToldAndTheNextRunRestoresAll) {
  ChangeASmallDisk();
  machine_.calls().Clear();
  machine_.calls().keeps_calls = true;
  Undo();
  const std::size_t count = machine_.calls().calls().size();
  machine_.calls().keeps_calls = false;
  for (std::size_t number = 1; number < count; ++number) {  // the last call closes the file
    WriteBytes(*disk_, 0, after_);
    machine_.calls().Clear();
    machine_.calls().FailNumber(number);
    EXPECT_NE(RescueErrorOf([&] { Undo(); }), "") << number;
    Undo();
    EXPECT_EQ(DiskBytes(), before_) << number;
  }
}

TEST_F(UndoTest, WriteThatTheSystemRefusesNamesThePlace) {
  ChangeASmallDisk();
  machine_.calls().FailOn("WriteFile", 2, ERROR_ACCESS_DENIED);
  EXPECT_EQ(RescueErrorOf([&] { Undo(); }),
            "the disk: cannot write 1024 bytes at 1024: error 5, access is denied");
}

}  // namespace
}  // namespace testing_support
