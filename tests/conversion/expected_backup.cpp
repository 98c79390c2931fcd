#include "conversion/expected_backup.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace conversion {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kVolumeStart = 2048;
constexpr std::size_t kRecordBytes = 1024;  // of the MFT
constexpr std::size_t kFirstRecords = 16;
constexpr std::size_t kExtendRecord = 11;
constexpr std::uint64_t kLongestRun = 4 * kSectorsPerMib * kSectorBytes;

template <typename AnyBytes>
std::uint64_t Number(const AnyBytes& bytes, std::size_t offset, std::size_t width) {
  std::uint64_t number = 0;
  for (std::size_t i = width; i-- > 0;) number = number << 8 | bytes.at(offset + i);
  return number;
}

bool HasText(const Bytes& bytes, std::size_t offset, std::string_view text) {
  return std::memcmp(&bytes.at(offset), text.data(), text.size()) == 0;
}

class Selection {
 public:
  Selection(const ImageFile& image, const Partitions& wanted) : image_(image), wanted_(wanted) {}

  void TakeMbr() {
    std::uint64_t record = 0;
    std::uint64_t base = 0;
    while (blocks.count(record * kSectorBytes) == 0) {
      Take(record * kSectorBytes, kSectorBytes);
      const auto link = TakeRows(record);
      if (link == 0) return;
      record = base + link;
      if (base == 0) base = record;
    }
  }

  void TakeGpt() {
    constexpr std::size_t kEntryBytes = 128;
    const Bytes header = Take(kSectorBytes, kSectorBytes);
    const Bytes array = Take(2 * kSectorBytes, kGptArrayBytes);
    const std::uint64_t secondary = Number(header, 32, 8) * kSectorBytes;
    blocks[secondary - kGptArrayBytes] = array;
    blocks[secondary] = header;
    for (std::size_t entry = 0; entry < array.size(); entry += kEntryBytes) {
      if (Number(array, entry, 8) == 0 && Number(array, entry + 8, 8) == 0) return;
      TakeVolume(Number(array, entry + 32, 8));
    }
  }

  Blocks blocks;

 private:
  static constexpr std::size_t kGptArrayBytes = 16384;

  const Bytes& Take(std::uint64_t offset, std::uint64_t count) {
    Bytes bytes(count);
    image_.Read(offset, bytes);
    return blocks[offset] = bytes;
  }

  // Returns what the link of the record counts from the container's start, 0 for none.
  std::uint64_t TakeRows(std::uint64_t record) {
    const Sector sector = image_.ReadSector(record);
    for (std::size_t row = 446; row < 510; row += 16) {
      const std::uint8_t type = sector.at(row + 4);
      const std::uint64_t first = Number(sector, row + 8, 4);
      if (type == 0x05 || type == 0x0F) return first;
      if (type != 0) TakeVolume(record + first);
    }
    return 0;
  }

  void TakeVolume(std::uint64_t first) {
    const auto starts_here = [first](const Partition& p) { return p.first == first; };
    if (std::none_of(wanted_.begin(), wanted_.end(), starts_here)) return;
    Bytes start(kVolumeStart);
    image_.Read(first * kSectorBytes, start);
    if (HasText(start, 3, "NTFS")) return TakeNtfs(first * kSectorBytes, start);
    if (HasText(start, 54, "FAT16")) return TakeFat16(first * kSectorBytes, start);
    if (HasText(start, 82, "FAT32")) return TakeFat32(first * kSectorBytes, start);
    Take(first * kSectorBytes, kVolumeStart);
  }

  void TakeFat16(std::uint64_t offset, const Bytes& boot) {
    const std::uint64_t sectors = Number(boot, 14, 2) + Number(boot, 16, 1) * Number(boot, 22, 2);
    Take(offset, sectors * Number(boot, 11, 2) + Number(boot, 17, 2) * 32);
  }

  void TakeFat32(std::uint64_t offset, const Bytes& boot) {
    const std::uint64_t sector_bytes = Number(boot, 11, 2);
    const std::uint64_t cluster_bytes = Number(boot, 13, 1) * sector_bytes;
    const std::uint64_t fat = Number(boot, 14, 2) * sector_bytes;
    const std::uint64_t fat_bytes = Number(boot, 36, 4) * sector_bytes;
    const std::uint64_t area = fat + Number(boot, 16, 1) * fat_bytes;
    const Bytes front = Take(offset, area);
    for (std::uint64_t cluster = Number(boot, 44, 4); 4 * cluster + 4 <= fat_bytes;
         cluster = Number(front, fat + 4 * cluster, 4)) {
      Take(offset + area + (cluster - 2) * cluster_bytes, cluster_bytes);
    }
  }

  void TakeNtfs(std::uint64_t offset, const Bytes& boot) {
    const std::uint64_t cluster_bytes = Number(boot, 13, 1) * Number(boot, 11, 2);
    const std::uint64_t mft = Number(boot, 48, 8) * cluster_bytes + offset;
    Take(offset, kSectorBytes);
    const Bytes records = Take(mft, kFirstRecords * kRecordBytes);
    std::vector<std::uint64_t> extended;
    for (std::size_t i = 1; i < kFirstRecords; ++i) {
      const auto begin = records.begin() + static_cast<std::ptrdiff_t>(i * kRecordBytes);
      const Bytes record(begin, begin + kRecordBytes);
      TakeFile(record, offset, cluster_bytes);
      if (i == kExtendRecord) extended = Listed(record);
    }
    for (const std::uint64_t number : extended) {
      TakeFile(Bytes(Take(mft + number * kRecordBytes, kRecordBytes)), offset, cluster_bytes);
    }
  }

  // Calls `body(type, position)` for each attribute of an MFT record.
  template <typename Body>
  static void ForEachAttribute(const Bytes& record, Body body) {
    std::uint64_t position = Number(record, 20, 2);
    while (position < kRecordBytes && record.at(position) != 0xFF) {
      const std::uint64_t length = Number(record, position + 4, 4);
      if (length == 0) return;
      body(record.at(position), position);
      position += length;
    }
  }

  void TakeFile(const Bytes& record, std::uint64_t volume, std::uint64_t cluster_bytes) {
    ForEachAttribute(record, [&](std::uint8_t type, std::uint64_t position) {
      const bool has_runs = (type == 0x80 || type == 0xA0) && record.at(position + 8) == 1;
      if (!has_runs) return;
      const std::uint64_t run = position + Number(record, position + 32, 2);
      const std::size_t length_width = record.at(run) & 0xFu;
      const std::uint64_t length = Number(record, run + 1, length_width);
      const std::uint64_t cluster = Number(record, run + 1 + length_width, record.at(run) >> 4);
      Take(volume + cluster * cluster_bytes, std::min(length * cluster_bytes, kLongestRun));
    });
  }

  // The files in the index of a directory.
  static std::vector<std::uint64_t> Listed(const Bytes& record) {
    std::vector<std::uint64_t> numbers;
    ForEachAttribute(record, [&](std::uint8_t type, std::uint64_t position) {
      if (type != 0x90) return;
      const std::uint64_t end = position + Number(record, position + 4, 4);
      for (std::uint64_t entry = position + 64; entry < end;) {
        const std::uint64_t number = Number(record, entry, 4);
        if (number == 0 || number == 0xFFFF'FFFF) return;
        numbers.push_back(number);
        entry += Number(record, entry + 8, 2);
      }
    });
    return numbers;
  }

  const ImageFile& image_;
  const Partitions& wanted_;
};

}  // namespace

bool HasGpt(const ImageFile& image) {
  return image.ReadSector(0).at(450) == 0xEE;
}

Blocks BackedUpBlocks(const ImageFile& image, const Partitions& wanted) {
  Selection selection(image, wanted);
  HasGpt(image) ? selection.TakeGpt() : selection.TakeMbr();
  return selection.blocks;
}

}  // namespace conversion
