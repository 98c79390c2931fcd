#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>

#include "host/checksum.h"
#include "host/rescue_file.h"
#include "platform/win32.h"

namespace velkora_host {
namespace {

std::string RangeText(const ByteRange& range) {
  return std::to_string(range.length) + " bytes at " + std::to_string(range.offset);
}

void CheckDisk(const std::string& path, const RescueDisk& disk) {
  if (!std::has_single_bit(disk.sector_size) || disk.sector_size < kMinSectorSize ||
      disk.sector_size > kMaxSectorSize) {
    throw RescueError(path + ": sectors of " + std::to_string(disk.sector_size) +
                      " bytes are not supported");
  }
  if (disk.size == 0 || disk.size > kMaxDiskSize || disk.size % disk.sector_size != 0) {
    throw RescueError(path + ": a disk of " + std::to_string(disk.size) +
                      " bytes is not supported");
  }
}

// Only after the values are found to be possible is the file made.
const std::string& Checked(const std::string& path, const RescueDisk& disk) {
  CheckDisk(path, disk);
  return path;
}

// Packs `bytes` into the start of `packed`. Returns the packed length, or 0 if nothing is gained.
std::uint32_t Pack(std::span<const std::byte> bytes, std::span<std::byte> packed) {
  auto length = static_cast<uLongf>(packed.size());
  const int result = compress2(reinterpret_cast<Bytef*>(packed.data()), &length,
                               reinterpret_cast<const Bytef*>(bytes.data()),
                               static_cast<uLong>(bytes.size()), Z_BEST_SPEED);
  return result == Z_OK && length < bytes.size() ? static_cast<std::uint32_t>(length) : 0;
}

}  // namespace

RescueWriter::RescueWriter(const std::string& path, const RescueDisk& disk)
    : path_(path),
      disk_(disk),
      open_file_(Checked(path, disk), CREATE_NEW),
      file_(open_file_.handle(), path),
      disk_bytes_(disk.handle, "the disk") {
  try {
    WriteFileHeader();
  } catch (...) {
    open_file_.Close();
    win32::DeleteFileA(path_.c_str());
    throw;
  }
}

RescueWriter::~RescueWriter() {
  open_file_.Close();
  if (!sealed_) win32::DeleteFileA(path_.c_str());
}

void RescueWriter::WriteFileHeader() {
  GUID id{};
  if (win32::CoCreateGuid(&id) != S_OK) throw RescueError(path_ + ": no new identity can be made");
  FileHeader header{};
  header.magic = kFileMagic;
  header.version = kFormatVersion;
  header.sector_size = disk_.sector_size;
  header.disk_size = disk_.size;
  static_assert(sizeof id == sizeof header.id);
  std::memcpy(header.id.data(), &id, sizeof id);
  header.crc = CrcOfHeader(header);
  file_.Write(0, BytesOf(header));
  end_ = sizeof header;
  content_crc_ = Crc32(BytesOf(header));
  file_crc_ = header.crc;
}

void RescueWriter::Save(std::span<const ByteRange> ranges) {
  if (sealed_) throw std::logic_error("Save after Seal");
  for (const ByteRange& range : ranges) SaveMissing(range, false);
}

void RescueWriter::SaveMore(const ByteRange& range) {
  if (!sealed_) throw std::logic_error("SaveMore before Seal");
  SaveMissing(range, true);
}

ByteRange RescueWriter::WholeSectors(const ByteRange& range) const {
  if (range.offset > disk_.size || range.length > disk_.size - range.offset) {
    throw RescueError(path_ + ": cannot save " + RangeText(range) + ": the disk has " +
                      std::to_string(disk_.size) + " bytes");
  }
  if (range.length == 0) return {range.offset, 0};
  // The disk's size is a multiple of the sector size and below 2^63, so neither leaves it.
  const std::uint64_t mask = disk_.sector_size - 1;
  const std::uint64_t start = range.offset & ~mask;
  const std::uint64_t end = (range.offset + range.length + mask) & ~mask;
  return {start, end - start};
}

void RescueWriter::SaveMissing(const ByteRange& range, bool flush) {
  for (ByteRange part : saved_.Missing(WholeSectors(range))) {
    while (part.length > 0) {
      const std::uint64_t length = std::min<std::uint64_t>(part.length, kMaxPieceLength);
      SavePiece({part.offset, length}, flush);
      part.offset += length;
      part.length -= length;
    }
  }
}

// What a failed call has written lies past end_, and the next piece is written over it.
void RescueWriter::SavePiece(const ByteRange& piece, bool flush) {
  old_bytes_.resize(static_cast<std::size_t>(piece.length));
  disk_bytes_.Read(piece.offset, old_bytes_);
  const PieceHeader header = MakePiece(piece.offset, old_bytes_);
  const auto record = std::span(record_).first(sizeof header + header.stored);
  file_.Write(end_, record);
  if (flush) file_.Flush();
  end_ += record.size();
  content_crc_ = Crc32(record, content_crc_);
  ++piece_count_;
  saved_.Add(piece);
}

// Leaves the header and what it stores at the start of record_.
PieceHeader RescueWriter::MakePiece(std::uint64_t offset, std::span<const std::byte> old_bytes) {
  const auto length = static_cast<std::uint32_t>(old_bytes.size());
  record_.resize(sizeof(PieceHeader) + length);
  const auto stored = std::span(record_).subspan(sizeof(PieceHeader));
  const std::uint32_t packed = Pack(old_bytes, stored);
  if (packed == 0) std::copy(old_bytes.begin(), old_bytes.end(), stored.begin());
  PieceHeader header{};
  header.magic = kPieceMagic;
  header.file_crc = file_crc_;
  header.index = piece_count_;
  header.flags = packed != 0 ? kPackedFlag : 0;
  header.offset = offset;
  header.length = length;
  header.stored = packed != 0 ? packed : length;
  header.data_crc = Crc32(old_bytes);
  header.crc = CrcOfHeader(header);
  std::memcpy(record_.data(), &header, sizeof header);
  return header;
}

void RescueWriter::Seal() {
  if (sealed_) throw std::logic_error("Seal after Seal");
  const std::vector<Witness> witnesses = TakeWitnesses();
  const auto entries = std::as_bytes(std::span(witnesses));
  SealHeader header{};
  header.magic = kSealMagic;
  header.piece_count = piece_count_;
  header.content_crc = content_crc_;
  header.witness_count = static_cast<std::uint32_t>(witnesses.size());
  header.witness_crc = Crc32(entries);
  header.crc = CrcOfHeader(header);
  record_.resize(sizeof header + entries.size());
  std::memcpy(record_.data(), &header, sizeof header);
  std::copy(entries.begin(), entries.end(), record_.begin() + sizeof header);
  file_.Write(end_, record_);
  file_.Flush();
  end_ += record_.size();
  sealed_ = true;
}

// The disk is cut into equal parts; of each, the first sector that is in no piece.
std::vector<Witness> RescueWriter::TakeWitnesses() {
  const std::uint64_t sectors = disk_.size / disk_.sector_size;
  const std::uint64_t parts = std::min<std::uint64_t>(sectors, kMaxWitnesses);
  std::vector<Witness> witnesses;
  old_bytes_.resize(disk_.sector_size);
  for (std::uint64_t part = 0; part < parts; ++part) {
    const std::uint64_t start = sectors * part / parts * disk_.sector_size;
    const std::uint64_t end = sectors * (part + 1) / parts * disk_.sector_size;
    const std::uint64_t place = saved_.FirstFree(start);
    if (place >= end) continue;
    disk_bytes_.Read(place, old_bytes_);
    witnesses.push_back({place, Crc32(old_bytes_)});
  }
  return witnesses;
}

}  // namespace velkora_host
