#include "conversion/image_bytes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>

namespace conversion {
namespace {

constexpr std::uint64_t kPieceSectors = 2048;

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

// The part of `range` that lies within `limits`; false if there is none.
bool Cut(SectorRange& range, const SectorRange& limits) {
  range.first = std::max(range.first, limits.first);
  range.last = std::min(range.last, limits.last);
  return range.first <= range.last;
}

// Calls `body(first, bytes)` for the sectors of `range` that the file holds, piece by piece.
template <typename Body>
void ForEachPiece(const ImageFile& image, const SectorRange& range, Body body) {
  std::vector<std::uint8_t> bytes;
  for (SectorRange data : image.Data()) {
    if (!Cut(data, range)) continue;
    for (std::uint64_t first = data.first; first <= data.last; first += kPieceSectors) {
      bytes.resize(std::min(kPieceSectors, data.last - first + 1) * kSectorBytes);
      image.Read(first * kSectorBytes, bytes);
      body(first, std::span<const std::uint8_t>(bytes));
    }
  }
}

SectorRanges Union(const SectorRanges& left, const SectorRanges& right) {
  SectorRanges all = left;
  all.insert(all.end(), right.begin(), right.end());
  std::sort(all.begin(), all.end(),
            [](const SectorRange& a, const SectorRange& b) { return a.first < b.first; });
  SectorRanges merged;
  for (const SectorRange& range : all) {
    if (merged.empty() || range.first > merged.back().last + 1) {
      merged.push_back(range);
    } else {
      merged.back().last = std::max(merged.back().last, range.last);
    }
  }
  return merged;
}

void AddSector(SectorRanges& ranges, std::uint64_t sector) {
  if (!ranges.empty() && ranges.back().last + 1 == sector) {
    ranges.back().last = sector;
  } else {
    ranges.push_back({sector, sector});
  }
}

bool IsZero(const std::uint8_t* sector) {
  static constexpr Sector kZeros = {};
  return std::memcmp(sector, kZeros.data(), kSectorBytes) == 0;
}

// So that the order of the values counts.
void AddToHash(std::uint64_t& hash, std::uint64_t value) {
  hash ^= value + 0x9E3779B97F4A7C15 + (hash << 6) + (hash >> 2);
}

}  // namespace

void PrintTo(const SectorRange& range, std::ostream* out) {
  *out << range.first << "-" << range.last;
}

ImageFile::ImageFile(const std::filesystem::path& path)
    : descriptor_(::open(path.c_str(), O_RDWR | O_CLOEXEC)) {
  if (descriptor_ < 0) Fail("cannot open " + path.string());
  size_ = std::filesystem::file_size(path);
}

ImageFile::~ImageFile() {
  ::close(descriptor_);
}

void ImageFile::Read(std::uint64_t offset, std::span<std::uint8_t> bytes) const {
  const auto moved = ::pread(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
  if (moved != static_cast<ssize_t>(bytes.size())) Fail("cannot read an image");
}

void ImageFile::Write(std::uint64_t offset, std::span<const std::uint8_t> bytes) const {
  const auto moved = ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
  if (moved != static_cast<ssize_t>(bytes.size())) Fail("cannot write an image");
}

Sector ImageFile::ReadSector(std::uint64_t sector) const {
  Sector bytes{};
  Read(sector * kSectorBytes, bytes);
  return bytes;
}

void ImageFile::WriteSector(std::uint64_t sector, const Sector& bytes) const {
  Write(sector * kSectorBytes, bytes);
}

SectorRanges ImageFile::Data() const {
  SectorRanges ranges;
  off_t position = 0;
  for (;;) {
    const off_t begin = ::lseek(descriptor_, position, SEEK_DATA);
    if (begin < 0 && errno == ENXIO) return ranges;
    if (begin < 0) Fail("cannot look for data");
    position = ::lseek(descriptor_, begin, SEEK_HOLE);
    if (position < 0) Fail("cannot look for a hole");
    const auto end = static_cast<std::uint64_t>(position) + kSectorBytes - 1;
    ranges.push_back({static_cast<std::uint64_t>(begin) / kSectorBytes, end / kSectorBytes - 1});
  }
}

void CreateImage(const std::filesystem::path& path, std::uint64_t size) {
  const int descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (descriptor < 0) Fail("cannot create " + path.string());
  const bool sized = ::ftruncate(descriptor, static_cast<off_t>(size)) == 0;
  const int error = errno;
  ::close(descriptor);
  errno = error;
  if (!sized) Fail("cannot make " + path.string() + " " + std::to_string(size) + " bytes long");
}

void CopyImage(const std::filesystem::path& from, const std::filesystem::path& to) {
  const ImageFile source(from);
  CreateImage(to, source.size());
  CopySectors(source, 0, source.sector_count(), ImageFile(to), 0);
}

void CopySectors(const ImageFile& from, std::uint64_t from_sector, std::uint64_t count,
                 const ImageFile& to, std::uint64_t to_sector) {
  ForEachPiece(from, {from_sector, from_sector + count - 1},
               [&](std::uint64_t first, std::span<const std::uint8_t> bytes) {
                 to.Write((to_sector + (first - from_sector)) * kSectorBytes, bytes);
               });
}

void ZeroSectors(const ImageFile& image, const SectorRange& range) {
  ForEachPiece(image, range, [&](std::uint64_t first, std::span<const std::uint8_t> bytes) {
    image.Write(first * kSectorBytes, std::vector<std::uint8_t>(bytes.size()));
  });
}

std::uint64_t Hash(const std::filesystem::path& image) {
  return HashSectors(image, {0, ImageFile(image).sector_count() - 1});
}

std::uint64_t HashSectors(const std::filesystem::path& image, const SectorRange& range) {
  std::uint64_t hash = 0;
  ForEachPiece(ImageFile(image), range,
               [&](std::uint64_t first, std::span<const std::uint8_t> bytes) {
                 for (std::uint64_t i = 0; i < bytes.size() / kSectorBytes; ++i) {
                   const std::uint8_t* sector = &bytes[i * kSectorBytes];
                   if (IsZero(sector)) continue;
                   AddToHash(hash, first + i - range.first);
                   AddToHash(hash, std::hash<std::string_view>()(std::string_view(
                                       reinterpret_cast<const char*>(sector), kSectorBytes)));
                 }
               });
  return hash;
}

SectorRanges DifferingSectors(const std::filesystem::path& left,
                              const std::filesystem::path& right) {
  const ImageFile one(left);
  const ImageFile other(right);
  if (one.size() != other.size()) throw std::runtime_error("images of different sizes");
  SectorRanges differing;
  std::vector<std::uint8_t> bytes;
  std::vector<std::uint8_t> others;
  for (const SectorRange& data : Union(one.Data(), other.Data())) {
    for (std::uint64_t first = data.first; first <= data.last; first += kPieceSectors) {
      const std::uint64_t count = std::min(kPieceSectors, data.last - first + 1);
      bytes.resize(count * kSectorBytes);
      others.resize(count * kSectorBytes);
      one.Read(first * kSectorBytes, bytes);
      other.Read(first * kSectorBytes, others);
      if (bytes == others) continue;
      for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint64_t at = i * kSectorBytes;
        if (std::memcmp(&bytes[at], &others[at], kSectorBytes) != 0)
          AddSector(differing, first + i);
      }
    }
  }
  return differing;
}

}  // namespace conversion
