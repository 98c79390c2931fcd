// A disk whose bytes come from a fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <vector>

#include "simulator/simulated_machine.h"
#include "simulator/storage/image_overlay.h"

namespace fuzz {

inline constexpr std::size_t kPieceHeaderBytes = 5;
inline constexpr std::size_t kSectorBytes = 512;

// One machine with one disk of 1 GiB that reads as zeros, but for what an input lays over it. An
// input is a row of pieces: four bytes of a sector number (little-endian, taken modulo the disk's
// size), one byte that counts sectors, then the bytes of those sectors; the last piece may be cut.
class FuzzDisk {
 public:
  static FuzzDisk& Instance();

  // Calls `body` with the disk, open and at position 0, as the input makes it. Ends a body that
  // takes more than `most_calls` calls of the seam; that and a lack of memory are no findings.
  void Run(std::span<const std::uint8_t> input, std::size_t most_calls,
           const std::function<void(HANDLE disk)>& body);

  // Where the pieces of the last input begin, in bytes.
  const std::vector<std::uint64_t>& offsets() const { return offsets_; }
  simulator::SimulatedMachine& machine() { return machine_; }
  // The folder that is drive X of the machine.
  const std::filesystem::path& folder() const { return folder_; }

 private:
  FuzzDisk();
  ~FuzzDisk();
  FuzzDisk(const FuzzDisk&) = delete;
  FuzzDisk& operator=(const FuzzDisk&) = delete;

  void LayPieces(std::span<const std::uint8_t> input);

  std::filesystem::path folder_;
  simulator::SimulatedMachine machine_;
  simulator::ImageOverlay overlay_;
  HANDLE disk_ = INVALID_HANDLE_VALUE;
  std::vector<std::uint64_t> offsets_;
};

}  // namespace fuzz
