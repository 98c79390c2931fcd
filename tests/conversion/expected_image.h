// What a conversion makes of a disk, worked out on a copy from the description of the table alone.
#pragma once

#include <cstdint>
#include <filesystem>

#include "conversion/gpt_disk.h"
#include "conversion/image_bytes.h"

namespace conversion {

// What each copy of a GPT takes at its end of the disk: a header and 128 entries.
inline constexpr std::uint64_t kGptSectors = 33;

// The simulated machine's clock at its start, which becomes the disk's signature.
inline constexpr std::uint32_t kSignature = 1'700'000'000;

class ExpectedImage {
 public:
  // Starts as a copy of `image`, kept at `copy`. Remembers where `image` is, for the addresses in
  // cylinders that lie behind the last one.
  ExpectedImage(const std::filesystem::path& image, const std::filesystem::path& copy);

  // Zeroes the first and last MiB.
  void Clean();
  // An MBR without partitions.
  void CreateMbr(std::uint32_t signature = kSignature);
  // Entries for `partitions`, in any order: three primary ones, then a container up to the end of
  // the disk (at most 2 TiB) and a chain in which each boot record lies right behind the partition
  // before. Bytes in front of the entries stay.
  void WriteTable(Partitions partitions);
  // All of it.
  void Convert(const Partitions& partitions);

  // The GPT that a conversion leaves. The protective record is known byte by byte; the two headers
  // and arrays, full of GUIDs that cannot be known, are taken over from the converted image.
  void TakeGpt();
  // Takes over sectors of the converted image that have a judge of their own.
  void TakeSectors(const SectorRange& range);
  // Takes over the boot code of the converted image, in sector 0 and in the boot sector of the NTFS
  // volume at `first_sector`, which differs from what was there. All else in the two stays.
  void TakeBootCode(std::uint64_t first_sector);
  // Gives the primary partition at `place`, from 0, the boot mark.
  void Activate(std::size_t place);
  // Gives the logical partition of the boot record at `record_sector` the type 7 and a new range.
  void ChangeLogical(std::uint64_t record_sector, const SectorRange& range);

  // Takes `sectors` off the sector count of the NTFS volume at `first_sector`.
  void ShortenNtfs(std::uint64_t first_sector, std::uint64_t sectors);

  const std::filesystem::path& path() const { return copy_; }

 private:
  void TakeBytes(std::uint64_t sector, std::size_t offset, std::size_t count) const;
  void PutEntry(Sector& record, std::uint64_t record_sector, std::size_t place, std::uint8_t type,
                const SectorRange& range, std::uint64_t origin) const;

  std::filesystem::path image_;
  std::filesystem::path copy_;
};

}  // namespace conversion
