// Goes through a rescue file from its start to its end and checks all of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/range_set.h"
#include "host/raw_file.h"
#include "host/rescue_file.h"
#include "host/rescue_format.h"

namespace velkora_host {

// Gives the old bytes of a piece. False when the stored ones are not what was written.
[[nodiscard]] bool Unpack(const RescuePiece& piece, std::span<const std::byte> stored,
                          std::vector<std::byte>& old_bytes);

class RescueParser {
 public:
  explicit RescueParser(const RawFile& file) : file_(file), size_(file.Size()) {}

  // Throws RescueError that names the field and the value.
  RescueContents Parse();

 private:
  [[noreturn]] void Refuse(const std::string& reason) const;
  std::uint64_t Left() const { return size_ - place_; }
  // A structure at `place_`, of which enough is left.
  template <typename T>
  T Peek() const;

  void ReadFileHeader();
  void ReadFirstSet();
  void ReadSeal();
  void CheckSeal(const SealHeader& seal) const;
  void ReadWitnesses(const SealHeader& seal);
  void ReadLaterPieces();
  // Takes the piece at `place_` and goes past it. Gives the reason, and takes nothing, if its bytes
  // are not those that were written; refuses the file for values that no writer makes.
  std::string ReadPiece();
  void CheckPiece(const PieceHeader& header) const;
  bool PieceFollows() const;

  const RawFile& file_;
  const std::uint64_t size_;
  std::uint64_t place_ = 0;
  std::uint32_t content_crc_ = 0;  // of the bytes up to `place_`
  std::uint32_t file_crc_ = 0;     // of the file's header
  RangeSet saved_;
  RescueContents contents_;
  std::vector<std::byte> stored_;
  std::vector<std::byte> old_bytes_;
};

}  // namespace velkora_host
