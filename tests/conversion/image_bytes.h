// The bytes of disk images, looked at without the library and the simulated machine. Images are
// sparse and may be huge: only what a file holds is read; holes count as zeros.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <span>
#include <vector>

namespace conversion {

inline constexpr std::uint64_t kSectorBytes = 512;
inline constexpr std::uint64_t kSectorsPerMib = 2048;

using Sector = std::array<std::uint8_t, kSectorBytes>;

// Sectors `first` to `last`, both included.
struct SectorRange {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  std::uint64_t count() const { return last - first + 1; }
  bool operator==(const SectorRange&) const = default;
};
void PrintTo(const SectorRange& range, std::ostream* out);
using SectorRanges = std::vector<SectorRange>;

// A file open for reading and writing. Every operation throws std::runtime_error when it fails.
class ImageFile {
 public:
  explicit ImageFile(const std::filesystem::path& path);
  ~ImageFile();
  ImageFile(const ImageFile&) = delete;
  ImageFile& operator=(const ImageFile&) = delete;

  std::uint64_t size() const { return size_; }
  std::uint64_t sector_count() const { return size_ / kSectorBytes; }
  void Read(std::uint64_t offset, std::span<std::uint8_t> bytes) const;
  void Write(std::uint64_t offset, std::span<const std::uint8_t> bytes) const;
  Sector ReadSector(std::uint64_t sector) const;
  void WriteSector(std::uint64_t sector, const Sector& bytes) const;
  // What the file holds, in whole sectors and in ascending order; all else reads as zeros.
  SectorRanges Data() const;

 private:
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
};

// A sparse file that reads as zeros, in place of what was there.
void CreateImage(const std::filesystem::path& path, std::uint64_t size);
void CopyImage(const std::filesystem::path& from, const std::filesystem::path& to);
// Copies `count` sectors. `to` must read as zeros there: holes of `from` are passed over.
void CopySectors(const ImageFile& from, std::uint64_t from_sector, std::uint64_t count,
                 const ImageFile& to, std::uint64_t to_sector);

// Makes sectors read as zeros. Leaves what does so already alone.
void ZeroSectors(const ImageFile& image, const SectorRange& range);

// A hash of all bytes, in which a hole is the same as zeros. Good within one process.
std::uint64_t Hash(const std::filesystem::path& image);
std::uint64_t HashSectors(const std::filesystem::path& image, const SectorRange& range);

// The sectors in which two images of equal size differ.
SectorRanges DifferingSectors(const std::filesystem::path& left,
                              const std::filesystem::path& right);

}  // namespace conversion
