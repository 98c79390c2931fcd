#include "conversion/expected_image.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace conversion {
namespace {

constexpr std::size_t kSignatureOffset = 440;
constexpr std::size_t kEntriesOffset = 446;
constexpr std::size_t kEntryBytes = 16;
constexpr std::size_t kPrimaries = 3;
constexpr std::uint64_t kMostSectors = std::uint64_t{1} << 32;  // 2 TiB
constexpr std::uint64_t kSmallestGptDisk = 128 * kSectorsPerMib * kSectorBytes;
constexpr std::uint64_t kHeads = 255;
constexpr std::uint64_t kTrackSectors = 63;
constexpr std::uint64_t kCylinders = 1024;

void Put(Sector& bytes, std::size_t offset, std::uint64_t value, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    bytes.at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

// Head, sector and cylinder as an entry holds them.
std::uint64_t CylinderAddress(std::uint64_t sector) {
  const std::uint64_t cylinder = sector / (kHeads * kTrackSectors);
  const std::uint64_t head = sector / kTrackSectors % kHeads;
  const std::uint64_t in_track = sector % kTrackSectors + 1;
  return head | (in_track | (cylinder >> 8) << 6) << 8 | (cylinder & 0xFF) << 16;
}

bool HasCylinderAddress(std::uint64_t sector) {
  return sector < kCylinders * kHeads * kTrackSectors;
}

}  // namespace

ExpectedImage::ExpectedImage(const std::filesystem::path& image, const std::filesystem::path& copy)
    : image_(image), copy_(copy) {
  CopyImage(image, copy);
}

void ExpectedImage::Clean() {
  const ImageFile image(copy_);
  const std::vector<std::uint8_t> zeros(kSectorsPerMib * kSectorBytes);
  image.Write(0, zeros);
  image.Write(image.size() - zeros.size(), zeros);
}

void ExpectedImage::CreateMbr(std::uint32_t signature) {
  const ImageFile image(copy_);
  Sector record = image.ReadSector(0);
  Put(record, kSignatureOffset, signature, 4);
  std::fill(record.begin() + kEntriesOffset, record.begin() + 510, std::uint8_t{0});
  Put(record, 510, 0xAA55, 2);
  image.WriteSector(0, record);
}

void ExpectedImage::PutEntry(Sector& record, std::uint64_t record_sector, std::size_t place,
                             std::uint8_t type, const SectorRange& range,
                             std::uint64_t origin) const {
  const std::size_t offset = kEntriesOffset + kEntryBytes * place;
  const Sector actual = ImageFile(image_).ReadSector(record_sector);
  std::copy_n(actual.begin() + static_cast<std::ptrdiff_t>(offset), kEntryBytes,
              record.begin() + static_cast<std::ptrdiff_t>(offset));
  Put(record, offset, 0, 1);
  if (HasCylinderAddress(range.first)) Put(record, offset + 1, CylinderAddress(range.first), 3);
  Put(record, offset + 4, type, 1);
  if (HasCylinderAddress(range.last)) Put(record, offset + 5, CylinderAddress(range.last), 3);
  Put(record, offset + 8, range.first - origin, 4);
  Put(record, offset + 12, range.count(), 4);
}

void ExpectedImage::WriteTable(Partitions partitions) {
  std::sort(partitions.begin(), partitions.end(),
            [](const Partition& a, const Partition& b) { return a.first < b.first; });
  const ImageFile image(copy_);
  const std::uint64_t last_sector = std::min(image.sector_count(), kMostSectors) - 1;
  Sector master = image.ReadSector(0);
  for (std::size_t i = 0; i < std::min(kPrimaries, partitions.size()); ++i) {
    PutEntry(master, 0, i, 7, partitions[i].range(), 0);
  }
  const std::uint64_t base = partitions.size() > kPrimaries ? partitions[2].last + 1 : 0;
  if (base != 0) PutEntry(master, 0, 3, 15, {base, last_sector}, 0);
  image.WriteSector(0, master);

  for (std::size_t i = kPrimaries; i < partitions.size(); ++i) {
    const std::uint64_t place = partitions[i - 1].last + 1;
    Sector record = image.ReadSector(place);
    std::fill(record.begin() + kEntriesOffset, record.end(), std::uint8_t{0});
    PutEntry(record, place, 0, 7, partitions[i].range(), place);
    if (i + 1 < partitions.size()) {
      PutEntry(record, place, 1, 5, {partitions[i].last + 1, last_sector}, base);
    }
    Put(record, 510, 0xAA55, 2);
    image.WriteSector(place, record);
  }
}

void ExpectedImage::Convert(const Partitions& partitions) {
  Clean();
  CreateMbr();
  WriteTable(partitions);
}

void ExpectedImage::WriteProtectiveRecord(const ImageFile& image) {
  Sector record{};
  const std::size_t entry = kEntriesOffset;
  Put(record, entry, 0x0002'0000, 4);      // not active, CHS 0/0/2
  Put(record, entry + 4, 0xFFFF'FFEE, 4);  // protective, CHS behind all addresses
  Put(record, entry + 8, 1, 4);
  Put(record, entry + 12, 0xFFFF'FFFF, 4);
  Put(record, 510, 0xAA55, 2);
  image.WriteSector(0, record);
}

void ExpectedImage::TakeGpt() {
  const ImageFile image(copy_);
  WriteProtectiveRecord(image);
  TakeSectors({1, kGptSectors});
  TakeSectors({image.sector_count() - kGptSectors, image.sector_count() - 1});
}

void ExpectedImage::TakeSectors(const SectorRange& range) {
  const ImageFile to(copy_);
  ZeroSectors(to, range);
  CopySectors(ImageFile(image_), range.first, range.count(), to, range.first);
}

void ExpectedImage::TakeBootCode(std::uint64_t first_sector) {
  constexpr std::size_t kCodeOffset = 0x54;  // behind what describes the volume
  TakeBytes(0, 0, kSignatureOffset);
  TakeBytes(first_sector, kCodeOffset, 510 - kCodeOffset);
}

void ExpectedImage::TakeBytes(std::uint64_t sector, std::size_t offset, std::size_t count) const {
  const ImageFile image(copy_);
  const Sector before = image.ReadSector(sector);
  const Sector actual = ImageFile(image_).ReadSector(sector);
  Sector bytes = before;
  std::copy_n(actual.begin() + static_cast<std::ptrdiff_t>(offset), count,
              bytes.begin() + static_cast<std::ptrdiff_t>(offset));
  EXPECT_NE(bytes, before) << "sector " << sector;
  image.WriteSector(sector, bytes);
}

void ExpectedImage::Activate(std::size_t place) {
  const ImageFile image(copy_);
  Sector record = image.ReadSector(0);
  Put(record, kEntriesOffset + kEntryBytes * place, 0x80, 1);
  image.WriteSector(0, record);
}

void ExpectedImage::ChangeLogical(std::uint64_t record_sector, const SectorRange& range) {
  const ImageFile image(copy_);
  Sector record = image.ReadSector(record_sector);
  PutEntry(record, record_sector, 0, 7, range, record_sector);
  image.WriteSector(record_sector, record);
}

void ExpectedImage::ShortenNtfs(std::uint64_t first_sector, std::uint64_t sectors) {
  constexpr std::size_t kTotalSectorsOffset = 40;
  const ImageFile image(copy_);
  Sector boot = image.ReadSector(first_sector);
  std::uint64_t total = 0;
  for (std::size_t i = 8; i-- > 0;) total = total << 8 | boot.at(kTotalSectorsOffset + i);
  Put(boot, kTotalSectorsOffset, total - sectors, 8);
  image.WriteSector(first_sector, boot);
}

void ExpectedImage::BackUp(const Partitions& wanted) {
  const ImageFile image(copy_);
  had_gpt_ = HasGpt(image);
  backup_ = BackedUpBlocks(image, wanted);
}

void ExpectedImage::RollBack() {
  Clean();
  const ImageFile image(copy_);
  if (had_gpt_ && image.size() >= kSmallestGptDisk) WriteProtectiveRecord(image);
  for (const auto& [offset, bytes] : backup_) image.Write(offset, bytes);
}

}  // namespace conversion
