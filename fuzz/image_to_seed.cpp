// image_to_seed IMAGE SEED: makes a fuzzer's input of a disk image: its sectors that are not all of
// one byte, in pieces (see fuzz_disk.h), up to 1 MiB.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t kSectorBytes = 512;
constexpr std::size_t kMostBytes = std::size_t{1} << 20;
constexpr std::size_t kMostSectors = 255;

using Sector = std::array<char, kSectorBytes>;

struct Piece {
  std::uint64_t first = 0;
  std::vector<Sector> sectors;
};

bool IsPlain(const Sector& sector) {
  return std::all_of(sector.begin(), sector.end(), [&](char c) { return c == sector[0]; });
}

// Holes are passed over, so that large images take no longer than what they hold.
std::vector<Piece> Pieces(int image) {
  std::vector<Piece> pieces;
  std::size_t bytes = 0;
  off_t place = 0;
  while (bytes < kMostBytes && (place = lseek(image, place, SEEK_DATA)) >= 0) {
    const off_t end = lseek(image, place, SEEK_HOLE);
    for (; place < end && bytes < kMostBytes; place += kSectorBytes) {
      Sector sector;
      if (pread(image, sector.data(), sector.size(), place) != kSectorBytes) return pieces;
      if (IsPlain(sector)) continue;
      const std::uint64_t number = static_cast<std::uint64_t>(place) / kSectorBytes;
      const bool goes_on = !pieces.empty() && pieces.back().sectors.size() < kMostSectors &&
                           pieces.back().first + pieces.back().sectors.size() == number;
      if (!goes_on) pieces.push_back({number, {}});
      pieces.back().sectors.push_back(sector);
      bytes += kSectorBytes;
    }
  }
  return pieces;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 3) return std::fputs("usage: image_to_seed IMAGE SEED\n", stderr), 2;
  const int image = open(arguments[1], O_RDONLY);
  if (image < 0) return std::perror(arguments[1]), 2;
  std::ofstream seed(arguments[2], std::ios::binary);
  for (const Piece& piece : Pieces(image)) {
    for (unsigned shift = 0; shift < 32; shift += 8) {
      seed.put(static_cast<char>(piece.first >> shift & 0xFF));
    }
    seed.put(static_cast<char>(piece.sectors.size()));
    for (const Sector& sector : piece.sectors) {
      seed.write(sector.data(), static_cast<std::streamsize>(sector.size()));
    }
  }
  seed.flush();
  close(image);
  if (seed) return 0;
  return std::fprintf(stderr, "%s: cannot be written\n", arguments[2]), 2;
}
