#include "conversion/gpt_disk.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "conversion/tools.h"

namespace conversion {
namespace {

constexpr std::uint64_t kFirstUsable = 34;
constexpr std::uint64_t kBackupSectors = 33;
constexpr std::uint64_t kMarkedSectors = 4 * kSectorsPerMib;
constexpr std::uint64_t kMarkedEnd = 8;

// Marks both ends of `range`, inside and outside, as far as `usable` reaches.
void MarkEnds(const ImageFile& image, const SectorRange& range, const SectorRange& usable) {
  for (const std::uint64_t end : {range.first, range.last + 1}) {
    MarkSectors(image, {std::max(end - kMarkedEnd, usable.first),
                        std::min(end + kMarkedEnd - 1, usable.last)});
  }
}

}  // namespace

Partitions EvenPartitions(std::size_t count, std::uint64_t mib, std::uint64_t gap_mib) {
  Partitions partitions;
  std::uint64_t first = kSectorsPerMib;
  for (std::size_t i = 0; i < count; ++i) {
    partitions.push_back({first, first + mib * kSectorsPerMib - 1});
    first += (mib + gap_mib) * kSectorsPerMib;
  }
  return partitions;
}

void MakeGptDisk(const std::filesystem::path& image, std::uint64_t size,
                 const Partitions& partitions) {
  CreateImage(image, size);
  std::string script = "label: gpt\nfirst-lba: 34\n";
  for (const Partition& partition : partitions) {
    script += "start=" + std::to_string(partition.first) +
              ", size=" + std::to_string(partition.count()) + ", type=" + partition.type + "\n";
  }
  Tool({"sfdisk", "--quiet", "--no-reread", "--no-tell-kernel", image}, script);

  const ImageFile file(image);
  MarkDisk(file, partitions, {kFirstUsable, file.sector_count() - kBackupSectors - 1});
}

void MarkDisk(const ImageFile& image, const Partitions& partitions, const SectorRange& usable) {
  MarkSectors(image, {usable.first, std::min(kMarkedSectors, usable.last)});
  MarkSectors(image, {image.sector_count() - kSectorsPerMib, usable.last});
  for (const Partition& partition : partitions) MarkEnds(image, partition.range(), usable);
}

void MarkSectors(const ImageFile& image, const SectorRange& range) {
  constexpr std::size_t kUnit = 32;
  std::vector<std::uint8_t> bytes(range.count() * kSectorBytes);
  for (std::uint64_t sector = range.first; sector <= range.last; ++sector) {
    char text[kUnit + 1];
    std::snprintf(text, sizeof text, "this is sector %16llu\n",
                  static_cast<unsigned long long>(sector));
    std::uint8_t* place = &bytes[(sector - range.first) * kSectorBytes];
    for (std::size_t i = 0; i < kSectorBytes; i += kUnit) std::memcpy(place + i, text, kUnit);
  }
  image.Write(range.first * kSectorBytes, bytes);
}

void PlaceVolume(const std::filesystem::path& image, const Partition& partition,
                 const std::filesystem::path& volume) {
  const ImageFile file(image);
  const ImageFile source(volume);
  ZeroSectors(file, partition.range());
  CopySectors(source, 0, std::min(source.sector_count(), partition.count()), file, partition.first);
}

void ExtractVolume(const std::filesystem::path& image, const SectorRange& range,
                   const std::filesystem::path& volume) {
  CreateImage(volume, range.count() * kSectorBytes);
  CopySectors(ImageFile(image), range.first, range.count(), ImageFile(volume), 0);
}

}  // namespace conversion
