#include "backup/file_system_detection.h"

#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <string_view>

namespace velkora {
namespace {

using SectorBytes = std::array<std::uint8_t, 512>;

SectorBytes BootRecord(std::uint8_t first_type = 7) {
  SectorBytes sector{};
  sector[446] = 0x80;
  sector[450] = first_type;
  sector[510] = 0x55;
  sector[511] = 0xAA;
  return sector;
}

DiskStyle StyleOf(const SectorBytes& sector) {
  return DetectDiskStyle(std::as_bytes(std::span(sector)));
}

TEST(DiskStyle, ASignedSectorIsAMasterBootRecord) {
  EXPECT_EQ(StyleOf(BootRecord()), DiskStyle::kMbr);
  EXPECT_EQ(StyleOf(BootRecord(0)), DiskStyle::kMbr);
  EXPECT_EQ(StyleOf(BootRecord(0xEF)), DiskStyle::kMbr);
}

TEST(DiskStyle, AProtectiveFirstRowIsAGpt) {
  EXPECT_EQ(StyleOf(BootRecord(0xEE)), DiskStyle::kGpt);
}

TEST(DiskStyle, AProtectiveLaterRowIsNoGpt) {
  for (const std::size_t row : {1u, 2u, 3u}) {
    SectorBytes sector = BootRecord();
    sector.at(450 + 16 * row) = 0xEE;
    EXPECT_EQ(StyleOf(sector), DiskStyle::kMbr) << row;
  }
}

TEST(DiskStyle, EitherByteOfTheSignatureMissingIsNeither) {
  for (const std::uint8_t type : {std::uint8_t{0x07}, std::uint8_t{0xEE}}) {
    SectorBytes sector = BootRecord(type);
    sector[510] = 0x54;
    EXPECT_EQ(StyleOf(sector), DiskStyle::kNeither);
    sector = BootRecord(type);
    sector[511] = 0xAB;
    EXPECT_EQ(StyleOf(sector), DiskStyle::kNeither);
  }
  EXPECT_EQ(StyleOf({}), DiskStyle::kNeither);
}

TEST(DiskStyle, ABootFlagWithAnyBitButTheTopOneIsNeither) {
  for (int bit = 0; bit < 7; ++bit) {
    SectorBytes sector = BootRecord(0xEE);
    sector[446] = static_cast<std::uint8_t>(0x80 | 1 << bit);
    EXPECT_EQ(StyleOf(sector), DiskStyle::kNeither) << bit;
    sector[446] = static_cast<std::uint8_t>(1 << bit);
    EXPECT_EQ(StyleOf(sector), DiskStyle::kNeither) << bit;
  }
}

TEST(DiskStyle, TheBootFlagsOfLaterRowsAreNotLookedAt) {
  SectorBytes sector = BootRecord();
  sector[446] = 0;
  sector[462] = 0x01;
  sector[478] = 0xFF;
  EXPECT_EQ(StyleOf(sector), DiskStyle::kMbr);
}

// ---- File systems -------------------------------------------------------------------------------

class VolumeStart {
 public:
  VolumeStart& Text(std::size_t offset, std::string_view text) {
    for (const char c : text) bytes_.at(offset++) = static_cast<std::uint8_t>(c);
    return *this;
  }
  VolumeStart& Number(std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
      bytes_.at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
    }
    return *this;
  }
  // The mark of the ext family, and its two sets of features.
  VolumeStart& Ext(std::uint32_t compat, std::uint32_t incompat) {
    return Text(1080, "\x53\xEF").Number(1116, compat).Number(1120, incompat);
  }
  int Detected() const {
    return static_cast<int>(DetectFileSystem(std::as_bytes(std::span(bytes_))));
  }

 private:
  std::array<std::uint8_t, 2048> bytes_{};
};

TEST(FileSystemDetection, EachMarkTellsItsFileSystem) {
  EXPECT_EQ(VolumeStart().Text(1024, "H+").Detected(), 1);
  EXPECT_EQ(VolumeStart().Text(1024, "HX").Detected(), 1);
  EXPECT_EQ(VolumeStart().Text(32, "NXSB").Detected(), 2);
  EXPECT_EQ(VolumeStart().Text(3, "NTFS").Detected(), 3);
  EXPECT_EQ(VolumeStart().Text(54, "FAT12").Detected(), 4);
  EXPECT_EQ(VolumeStart().Text(54, "FAT16").Detected(), 5);
  EXPECT_EQ(VolumeStart().Text(82, "FAT32").Detected(), 6);
  EXPECT_EQ(VolumeStart().Text(3, "EXFAT").Detected(), 7);
  EXPECT_EQ(VolumeStart().Text(3, "ReFS").Detected(), 11);
  EXPECT_EQ(VolumeStart().Detected(), 0);
}

// Every byte of a mark counts, and nothing behind it.
TEST(FileSystemDetection, AMarkWithOneOtherByteIsUnknown) {
  const struct {
    std::size_t offset;
    std::string_view mark;
    int value;
  } kMarks[] = {{3, "NTFS", 3},   {3, "EXFAT", 7},  {3, "ReFS", 11},
                {32, "NXSB", 2},  {54, "FAT12", 4}, {54, "FAT16", 5},
                {82, "FAT32", 6}, {1024, "H+", 1},  {1024, "HX", 1}};
  for (const auto& mark : kMarks) {
    for (std::size_t i = 0; i < mark.mark.size(); ++i) {
      VolumeStart start;
      start.Text(mark.offset, mark.mark).Text(mark.offset + i, "?");
      EXPECT_EQ(start.Detected(), 0) << mark.mark << " byte " << i;
    }
    VolumeStart start;
    start.Text(mark.offset, mark.mark).Text(mark.offset + mark.mark.size(), "?");
    EXPECT_EQ(start.Detected(), mark.value) << mark.mark;
  }
}

TEST(FileSystemDetection, AMarkInAnotherPlaceIsUnknown) {
  EXPECT_EQ(VolumeStart().Text(4, "NTFS").Detected(), 0);
  EXPECT_EQ(VolumeStart().Text(82, "FAT16").Detected(), 0);
  EXPECT_EQ(VolumeStart().Text(54, "FAT32").Detected(), 0);
  EXPECT_EQ(VolumeStart().Text(54, "FAT10").Detected(), 0);
}

// The first mark in the order of the looks decides.
TEST(FileSystemDetection, OfSeveralMarksTheEarlierLookDecides) {
  VolumeStart start;
  start.Ext(0, 0);
  EXPECT_EQ(start.Detected(), 8);
  start.Text(1024, "HX");
  EXPECT_EQ(start.Detected(), 1);
  start.Text(82, "FAT32");
  EXPECT_EQ(start.Detected(), 6);
  start.Text(54, "FAT16");
  EXPECT_EQ(start.Detected(), 5);
  start.Text(54, "FAT12");
  EXPECT_EQ(start.Detected(), 4);
  start.Text(32, "NXSB");
  EXPECT_EQ(start.Detected(), 2);
  start.Text(3, "ReFS");
  EXPECT_EQ(start.Detected(), 11);
  start.Text(3, "EXFAT");
  EXPECT_EQ(start.Detected(), 7);
  start.Text(3, "NTFS");
  EXPECT_EQ(start.Detected(), 3);
}

TEST(FileSystemDetection, BothBytesOfTheExtMarkCount) {
  EXPECT_EQ(VolumeStart().Text(1080, "\x53").Detected(), 0);
  EXPECT_EQ(VolumeStart().Text(1081, "\xEF").Detected(), 0);
}

TEST(FileSystemDetection, TheFeaturesTellTheExtFamilyApart) {
  EXPECT_EQ(VolumeStart().Ext(0, 0).Detected(), 8);
  EXPECT_EQ(VolumeStart().Ext(0x3B, 0x13).Detected(), 8) << "all but the journal's";
  EXPECT_EQ(VolumeStart().Ext(4, 0).Detected(), 9);
  EXPECT_EQ(VolumeStart().Ext(0, 4).Detected(), 9);
  EXPECT_EQ(VolumeStart().Ext(0, 8).Detected(), 9);
  EXPECT_EQ(VolumeStart().Ext(63, 31).Detected(), 9);
  EXPECT_EQ(VolumeStart().Ext(0, 32).Detected(), 10);
  EXPECT_EQ(VolumeStart().Ext(64, 0).Detected(), 10);
  EXPECT_EQ(VolumeStart().Ext(0, 0x80000000).Detected(), 10);
  EXPECT_EQ(VolumeStart().Ext(0x80000000, 0).Detected(), 10);
}

}  // namespace
}  // namespace velkora
