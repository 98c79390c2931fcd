// What a conversion makes of a disk, worked out on a copy from the description of the table alone.
#pragma once

#include <cstdint>
#include <filesystem>

#include "conversion/expected_backup.h"
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

  // Takes a backup of the disk as it is now, with what these partitions keep of themselves.
  void BackUp(const Partitions& wanted);
  // What a rollback makes of the disk as it is now. Compared with what BackUp saw, this and nothing
  // else may differ then:
  //
  //   first MiB    zeros, but for a GPT and blocks of volumes that lie there, and on an MBR disk
  //                sector 0 and boot records
  //   sector 0     of a GPT disk: a new protective record without boot code and signature; on a
  //   disk
  //                of less than 128 MiB, which diskpart makes no GPT, zeros
  //   last MiB     zeros, but for blocks of volumes and boot records that lie there, and on a GPT
  //                disk array and header, which are the primary ones' bytes
  //   elsewhere    whatever was changed outside the blocks: boot records that were written between
  //                partitions, the EFI system partition
  //
  // The GPT's alternate header is in the last sector.
  void RollBack();

  const std::filesystem::path& path() const { return copy_; }

 private:
  static void WriteProtectiveRecord(const ImageFile& image);
  void TakeBytes(std::uint64_t sector, std::size_t offset, std::size_t count) const;
  void PutEntry(Sector& record, std::uint64_t record_sector, std::size_t place, std::uint8_t type,
                const SectorRange& range, std::uint64_t origin) const;

  std::filesystem::path image_;
  std::filesystem::path copy_;
  bool had_gpt_ = false;
  Blocks backup_;
};

}  // namespace conversion
