#include "host/rescue_parser.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "host/checksum.h"

namespace velkora_host {

bool Unpack(const RescuePiece& piece, std::span<const std::byte> stored,
            std::vector<std::byte>& old_bytes) {
  old_bytes.resize(static_cast<std::size_t>(piece.range.length));
  if (piece.packed) {
    auto length = static_cast<uLongf>(old_bytes.size());
    const int result = uncompress(reinterpret_cast<Bytef*>(old_bytes.data()), &length,
                                  reinterpret_cast<const Bytef*>(stored.data()),
                                  static_cast<uLong>(stored.size()));
    if (result != Z_OK || length != old_bytes.size()) return false;
  } else {
    if (stored.size() != old_bytes.size()) return false;
    std::copy(stored.begin(), stored.end(), old_bytes.begin());
  }
  return Crc32(old_bytes) == piece.data_crc;
}

void RescueParser::Refuse(const std::string& reason) const {
  throw RescueError(file_.name() + ": at " + std::to_string(place_) + ": " + reason);
}

template <typename T>
T RescueParser::Peek() const {
  T value;
  file_.Read(place_, std::as_writable_bytes(std::span(&value, 1)));
  return value;
}

RescueContents RescueParser::Parse() {
  ReadFileHeader();
  ReadFirstSet();
  ReadSeal();
  ReadLaterPieces();
  return std::move(contents_);
}

void RescueParser::ReadFileHeader() {
  if (Left() < sizeof(FileHeader))
    Refuse("no rescue file: it has " + std::to_string(size_) + " bytes");
  const auto header = Peek<FileHeader>();
  if (header.magic != kFileMagic) Refuse("no rescue file: its mark is missing");
  if (header.version != kFormatVersion) {
    Refuse("version " + std::to_string(header.version) + " is unknown");
  }
  if (header.crc != CrcOfHeader(header)) Refuse("the checksum of the file's header is wrong");
  const std::uint32_t sector_size = header.sector_size;
  if (!std::has_single_bit(sector_size) || sector_size < kMinSectorSize ||
      sector_size > kMaxSectorSize) {
    Refuse("a sector size of " + std::to_string(sector_size) + " bytes is not possible");
  }
  const std::uint64_t disk_size = header.disk_size;
  if (disk_size == 0 || disk_size > kMaxDiskSize || disk_size % sector_size != 0) {
    Refuse("a disk size of " + std::to_string(disk_size) + " bytes is not possible");
  }
  contents_.disk_size = disk_size;
  contents_.sector_size = sector_size;
  content_crc_ = Crc32(BytesOf(header));
  file_crc_ = header.crc;
  place_ = sizeof header;
}

void RescueParser::ReadFirstSet() {
  while (Left() >= sizeof(Little32) && Peek<Little32>() != kSealMagic) {
    const std::string reason = ReadPiece();
    if (!reason.empty()) Refuse(reason);
  }
}

void RescueParser::ReadSeal() {
  if (Left() < sizeof(SealHeader)) Refuse("the file ends without a seal");
  const auto seal = Peek<SealHeader>();
  CheckSeal(seal);
  place_ += sizeof seal;
  ReadWitnesses(seal);
  contents_.sealed_pieces = contents_.pieces.size();
}

void RescueParser::CheckSeal(const SealHeader& seal) const {
  if (seal.crc != CrcOfHeader(seal)) Refuse("the checksum of the seal is wrong");
  if (seal.piece_count != contents_.pieces.size()) {
    Refuse("the seal counts " + std::to_string(seal.piece_count) + " pieces, and there are " +
           std::to_string(contents_.pieces.size()));
  }
  if (seal.content_crc != content_crc_)
    Refuse("the checksum of the bytes before the seal is wrong");
  if (seal.witness_count > kMaxWitnesses) {
    Refuse("a count of " + std::to_string(seal.witness_count) + " witnesses is not possible");
  }
}

void RescueParser::ReadWitnesses(const SealHeader& seal) {
  std::vector<Witness> witnesses(seal.witness_count);
  const auto bytes = std::as_writable_bytes(std::span(witnesses));
  if (Left() < bytes.size()) Refuse("the file ends within the witnesses");
  if (!bytes.empty()) file_.Read(place_, bytes);
  if (seal.witness_crc != Crc32(bytes)) Refuse("the checksum of the witnesses is wrong");
  for (const Witness& witness : witnesses) {
    const std::uint64_t offset = witness.offset;
    if (offset >= contents_.disk_size || offset % contents_.sector_size != 0) {
      Refuse("a witness at " + std::to_string(offset) + " is not possible");
    }
  }
  place_ += bytes.size();
  contents_.witnesses = std::move(witnesses);
}

// A piece is flushed before the next begins. One that is not whole is therefore the last one, and
// the write that it was saved for never began.
void RescueParser::ReadLaterPieces() {
  while (Left() > 0) {
    const std::string reason = ReadPiece();
    if (reason.empty()) continue;
    if (Left() > kMaxPieceBytes || PieceFollows()) Refuse(reason);
    contents_.torn_bytes = Left();
    return;
  }
}

// Whether a piece of this file begins after `place_`: that at `place_` was whole once, then.
bool RescueParser::PieceFollows() const {
  std::vector<std::byte> rest(static_cast<std::size_t>(Left()));
  file_.Read(place_, rest);
  PieceHeader header;
  for (std::size_t at = 1; at + sizeof header <= rest.size(); ++at) {
    std::memcpy(&header, &rest[at], sizeof header);
    if (header.magic == kPieceMagic && header.file_crc == file_crc_ &&
        header.index > contents_.pieces.size() && header.crc == CrcOfHeader(header)) {
      return true;
    }
  }
  return false;
}

std::string RescueParser::ReadPiece() {
  if (Left() < sizeof(PieceHeader)) return "the file ends within the header of a piece";
  const auto header = Peek<PieceHeader>();
  if (header.magic != kPieceMagic || header.file_crc != file_crc_) return "no piece begins here";
  if (header.crc != CrcOfHeader(header)) return "the checksum of the piece's header is wrong";
  CheckPiece(header);
  RescuePiece piece;
  piece.range = {header.offset, header.length};
  piece.place = place_ + sizeof header;
  piece.stored = header.stored;
  piece.packed = header.flags == kPackedFlag;
  piece.data_crc = header.data_crc;
  if (Left() - sizeof header < piece.stored) return "the file ends within a piece";
  stored_.resize(piece.stored);
  file_.Read(piece.place, stored_);
  if (!Unpack(piece, stored_, old_bytes_)) return "the checksum of the piece's bytes is wrong";
  content_crc_ = Crc32(stored_, Crc32(BytesOf(header), content_crc_));
  saved_.Add(piece.range);
  contents_.pieces.push_back(piece);
  place_ = piece.place + piece.stored;
  return {};
}

void RescueParser::CheckPiece(const PieceHeader& header) const {
  const std::uint64_t offset = header.offset;
  const std::uint32_t length = header.length;
  const std::uint32_t stored = header.stored;
  const std::string piece =
      "a piece of " + std::to_string(length) + " bytes of the disk at " + std::to_string(offset);
  if (header.index != contents_.pieces.size()) {
    Refuse("piece " + std::to_string(header.index) + " comes where piece " +
           std::to_string(contents_.pieces.size()) + " belongs");
  }
  if (header.flags > kPackedFlag) {
    Refuse("the flags " + std::to_string(header.flags) + " of a piece are unknown");
  }
  if (length == 0 || length > kMaxPieceLength || length % contents_.sector_size != 0 ||
      offset % contents_.sector_size != 0) {
    Refuse(piece + " is not possible");
  }
  if (offset > contents_.disk_size || length > contents_.disk_size - offset) {
    Refuse(piece + " leaves the disk of " + std::to_string(contents_.disk_size) + " bytes");
  }
  if (header.flags == 0 ? stored != length : stored == 0 || stored >= length) {
    Refuse(piece + " stored in " + std::to_string(stored) + " bytes is not possible");
  }
  if (saved_.Missing({offset, length}) != std::vector<ByteRange>{{offset, length}}) {
    Refuse(piece + " overlaps another one");
  }
}

}  // namespace velkora_host
