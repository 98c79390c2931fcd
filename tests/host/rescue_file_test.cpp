// What a rescue file holds, and when it is made or not.
#include "host/rescue_file.h"

#include <gmock/gmock.h>
#include <stdexcept>

#include "host/rescue_fixture.h"
#include "platform/win32.h"

namespace testing_support {
namespace {

using ::testing::HasSubstr;
using velkora_host::ReadRescueFile;
using velkora_host::RescueContents;
using velkora_host::RescuePiece;
using velkora_host::RescueReader;
using velkora_host::RescueWriter;
using Ranges = std::vector<ByteRange>;

constexpr std::uint64_t kDiskSize = 64 * 512;

Ranges RangesOf(const RescueContents& contents) {
  Ranges ranges;
  for (const RescuePiece& piece : contents.pieces) ranges.push_back(piece.range);
  return ranges;
}

using RescueFileTest = RescueTest;

TEST_F(RescueFileTest, PiecesHoldTheOldBytes) {
  AttachRandomDisk(kDiskSize);
  SaveSealed({{0, 1024}, {8192, 512}}, {{4096, 512}});
  const RescueReader reader(kRescuePath);
  const RescueContents& contents = reader.contents();
  EXPECT_EQ(contents.disk_size, kDiskSize);
  EXPECT_EQ(contents.sector_size, 512u);
  EXPECT_EQ(contents.sealed_pieces, 2u);
  EXPECT_EQ(contents.torn_bytes, 0u);
  EXPECT_EQ(RangesOf(contents), (Ranges{{0, 1024}, {8192, 512}, {4096, 512}}));
  for (const RescuePiece& piece : contents.pieces) {
    EXPECT_EQ(reader.Load(piece),
              ReadBytes(*disk_, piece.range.offset, static_cast<std::size_t>(piece.range.length)));
  }
}

TEST_F(RescueFileTest, RangesAreRoundedOutToSectors) {
  AttachRandomDisk(kDiskSize);
  SaveSealed({{100, 1}, {1023, 2}, {4200, 0}}, {{kDiskSize - 1, 1}});
  EXPECT_EQ(RangesOf(ReadRescueFile(kRescuePath)),
            (Ranges{{0, 512}, {512, 1024}, {kDiskSize - 512, 512}}));
}

TEST_F(RescueFileTest, SectorsOf4096BytesCount) {
  AttachRandomDisk(16 * 4096, 4096);
  SaveSealed({{512, 512}}, {{9000, 4096}});
  EXPECT_EQ(RangesOf(ReadRescueFile(kRescuePath)), (Ranges{{0, 4096}, {8192, 8192}}));
}

TEST_F(RescueFileTest, OverlappingRangesAreSavedOnce) {
  AttachRandomDisk(kDiskSize);
  SaveSealed({{1024, 2048}, {512, 1024}, {2048, 2048}, {512, 3584}}, {{0, 8192}, {512, 512}});
  EXPECT_EQ(RangesOf(ReadRescueFile(kRescuePath)),
            (Ranges{{1024, 2048}, {512, 512}, {3072, 1024}, {0, 512}, {4096, 4096}}));
}

TEST_F(RescueFileTest, PieceHasOneMiBAtMost) {
  AttachRandomDisk(4 * kMiB);
  SaveSealed({{512, 2 * kMiB + 512}});
  EXPECT_EQ(RangesOf(ReadRescueFile(kRescuePath)),
            (Ranges{{512, kMiB}, {kMiB + 512, kMiB}, {2 * kMiB + 512, 512}}));
}

TEST_F(RescueFileTest, ZerosAreStoredInFewBytesAndRandomOnesAsTheyAre) {
  AttachRandomDisk(2 * kMiB);
  WriteBytes(*disk_, kMiB, Bytes(kMiB));
  RescueWriter writer(kRescuePath, Target());
  const std::uint64_t empty = writer.file_size();
  const Ranges random{{0, kMiB}};
  const Ranges zeros{{kMiB, kMiB}};
  writer.Save(random);
  EXPECT_EQ(writer.file_size() - empty, sizeof(velkora_host::PieceHeader) + kMiB);
  const std::uint64_t before = writer.file_size();
  writer.Save(zeros);
  EXPECT_LT(writer.file_size() - before, 8192u);
  writer.Seal();
  EXPECT_EQ(FileText().size(), writer.file_size());
  const RescueReader reader(kRescuePath);
  ASSERT_EQ(reader.contents().pieces.size(), 2u);
  EXPECT_FALSE(reader.contents().pieces[0].packed);
  EXPECT_TRUE(reader.contents().pieces[1].packed);
  EXPECT_EQ(reader.Load(reader.contents().pieces[1]), Bytes(kMiB));
}

TEST_F(RescueFileTest, WitnessesAreSpreadOverWhatIsNotSaved) {
  AttachRandomDisk(kMiB);
  SaveSealed({{0, 512}, {kMiB / 2, kMiB / 4}});
  const RescueContents contents = ReadRescueFile(kRescuePath);
  std::vector<std::uint64_t> offsets;
  for (const velkora_host::Witness& witness : contents.witnesses) offsets.push_back(witness.offset);
  std::vector<std::uint64_t> expected{512};
  for (std::uint64_t part = 1; part < 64; ++part) {
    if (part < 32 || part >= 48) expected.push_back(part * kMiB / 64);
  }
  EXPECT_EQ(offsets, expected);
}

TEST_F(RescueFileTest, DiskThatIsSavedWholeHasNoWitness) {
  AttachRandomDisk(kDiskSize);
  SaveSealed({{0, kDiskSize}});
  EXPECT_TRUE(ReadRescueFile(kRescuePath).witnesses.empty());
}

TEST_F(RescueFileTest, FileThatExistsIsRefusedAndKept) {
  AttachRandomDisk(kDiskSize);
  SetFileText("precious");
  EXPECT_EQ(RescueErrorOf([&] { RescueWriter(kRescuePath, Target()); }),
            "X:\\disk.rescue: cannot create: error 80, the file exists already");
  EXPECT_EQ(FileText(), "precious");
}

TEST_F(RescueFileTest, UnsealedFileIsRemoved) {
  AttachRandomDisk(kDiskSize);
  {
    RescueWriter writer(kRescuePath, Target());
    const Ranges ranges{{0, 512}};
    writer.Save(ranges);
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.path() / "disk.rescue"));
}

TEST_F(RescueFileTest, RangeOutsideOfTheDiskIsRefused) {
  AttachRandomDisk(kDiskSize);
  RescueWriter writer(kRescuePath, Target());
  constexpr std::uint64_t kHuge = ~std::uint64_t{0};
  for (const ByteRange& range : Ranges{{kDiskSize, 1},
                                       {kDiskSize - 1, 2},
                                       {512, kHuge},
                                       {kHuge, 1},
                                       {kHuge, kHuge},
                                       {kHuge - 511, 512}}) {
    const Ranges ranges{range};
    EXPECT_THAT(RescueErrorOf([&] { writer.Save(ranges); }), HasSubstr("the disk has 32768 bytes"))
        << range.offset << " " << range.length;
  }
  EXPECT_EQ(writer.file_size(), sizeof(velkora_host::FileHeader));
}

TEST_F(RescueFileTest, ImpossibleDiskMakesNoFile) {
  AttachRandomDisk(kDiskSize);
  const auto error_of = [&](std::uint64_t size, std::uint32_t sector_size) {
    return RescueErrorOf([&] { RescueWriter(kRescuePath, {handle_, size, sector_size}); });
  };
  for (const std::uint32_t sector_size : {0u, 256u, 520u, 128u << 10}) {
    EXPECT_EQ(
        error_of(kDiskSize, sector_size),
        "X:\\disk.rescue: sectors of " + std::to_string(sector_size) + " bytes are not supported");
  }
  for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{513}, std::uint64_t{1} << 63}) {
    EXPECT_EQ(error_of(size, 512),
              "X:\\disk.rescue: a disk of " + std::to_string(size) + " bytes is not supported");
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.path() / "disk.rescue"));
}

TEST_F(RescueFileTest, CallsOutOfTheirOrderAreALogicError) {
  AttachRandomDisk(kDiskSize);
  RescueWriter writer(kRescuePath, Target());
  EXPECT_THROW(writer.SaveMore({0, 512}), std::logic_error);
  writer.Seal();
  EXPECT_THROW(writer.Seal(), std::logic_error);
  EXPECT_THROW(writer.Save({}), std::logic_error);
}

// "name detail" of each call that is not a seek.
std::vector<std::string> Transfers(const simulator::CallLog& log) {
  std::vector<std::string> calls;
  for (const simulator::Call& call : log.calls()) {
    if (call.name != "SetFilePointerEx") calls.push_back(call.name + " " + call.detail);
  }
  return calls;
}

TEST_F(RescueFileTest, FirstSetIsFlushedBeforeTheSealReturns) {
  AttachRandomDisk(2 * 512);
  const Ranges ranges{{0, 1024}};
  RescueWriter writer(kRescuePath, Target());
  writer.Save(ranges);
  writer.Seal();
  EXPECT_EQ(Transfers(machine_.calls()),
            (std::vector<std::string>{"CreateFileA X:\\disk.rescue", "CoCreateGuid ",
                                      "WriteFile file disk.rescue", "ReadFile disk 1",
                                      "WriteFile file disk.rescue", "WriteFile file disk.rescue",
                                      "FlushFileBuffers file disk.rescue"}));
}

TEST_F(RescueFileTest, LaterPieceIsFlushedBeforeTheNextBegins) {
  AttachRandomDisk(4 * kMiB);
  RescueWriter writer(kRescuePath, Target());
  writer.Seal();
  machine_.calls().Clear();
  writer.SaveMore({0, kMiB + 512});
  const std::vector<std::string> one{"ReadFile disk 1", "WriteFile file disk.rescue",
                                     "FlushFileBuffers file disk.rescue"};
  std::vector<std::string> expected = one;
  expected.insert(expected.end(), one.begin(), one.end());
  EXPECT_EQ(Transfers(machine_.calls()), expected);
}

TEST_F(RescueFileTest, SavedRangeNeedsNoCallEvenWithoutRoom) {
  AttachRandomDisk(kDiskSize);
  RescueWriter writer(kRescuePath, Target());
  const Ranges ranges{{1024, 1024}};
  writer.Save(ranges);
  writer.Seal();
  machine_.calls().Clear();
  machine_.calls().FailOn("WriteFile", 1, ERROR_DISK_FULL, simulator::Repeat::kFromThenOn);
  EXPECT_NO_THROW(writer.SaveMore({1100, 900}));
  EXPECT_TRUE(machine_.calls().calls().empty());
  EXPECT_THAT(RescueErrorOf([&] {
                writer.SaveMore({0, 512});
              }),
              HasSubstr("error 112, there is no room"));
}

TEST_F(RescueFileTest, ReaderOfAMissingFileNamesIt) {
  EXPECT_EQ(RescueErrorOf([] { ReadRescueFile("X:\\absent"); }),
            "X:\\absent: cannot open: error 2, there is no such file");
}

TEST_F(RescueFileTest, PieceThatIsCutAfterTheCheckIsNotLoaded) {
  AttachRandomDisk(kDiskSize);
  SaveSealed({}, {{0, 512}});
  const RescueReader reader(kRescuePath);
  std::filesystem::resize_file(folder_.path() / "disk.rescue", FileText().size() - 1);
  EXPECT_THAT(RescueErrorOf([&] { reader.Load(reader.contents().pieces.at(0)); }),
              HasSubstr("only 511 came"));
}

}  // namespace
}  // namespace testing_support
