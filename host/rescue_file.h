// A rescue file keeps the old bytes of a disk before they change. Its layout: rescue_format.h. What
// it is written for is undo.h.
//
//   RescueWriter writer("D:\\disk1.rescue", {disk, size, sector_size});
//   writer.Save(ranges);     // all that is known to change
//   writer.Seal();           // from here on the disk may change
//   writer.SaveMore(range);  // before each write to bytes that are not saved yet
//
// The file must not lie on the disk itself.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/range_set.h"
#include "host/raw_file.h"
#include "host/rescue_format.h"

namespace velkora_host {

// An open disk. The writer moves the position of this handle: give it one of its own.
struct RescueDisk {
  HANDLE handle = INVALID_HANDLE_VALUE;
  std::uint64_t size = 0;         // bytes, a multiple of the sector size
  std::uint32_t sector_size = 0;  // bytes
};

// Failures throw RescueError and leave the file as if the call had not been made: a call can be
// repeated. The disk is only read. The disk's handle outlives the writer.
class RescueWriter {
 public:
  // Makes the file, which must not exist.
  RescueWriter(const std::string& path, const RescueDisk& disk);
  // A file that was not sealed is worth nothing and is removed.
  ~RescueWriter();
  RescueWriter(const RescueWriter&) = delete;
  RescueWriter& operator=(const RescueWriter&) = delete;

  // Saves the sectors of these ranges, each once. Of several ranges, those before a failure stay
  // saved. Throws std::logic_error after Seal.
  void Save(std::span<const ByteRange> ranges);

  // Completes the first set. Returns once the medium has it. Throws std::logic_error the second
  // time.
  void Seal();

  // Saves what of the range is not saved yet. Returns once the medium has it; needs no room and no
  // transfer where all is saved. Throws std::logic_error before Seal.
  void SaveMore(const ByteRange& range);

  // Bytes of the file so far.
  std::uint64_t file_size() const { return end_; }

 private:
  void WriteFileHeader();
  ByteRange WholeSectors(const ByteRange& range) const;
  // `flush`: each piece is flushed before the next begins, so that only the last can be torn.
  void SaveMissing(const ByteRange& range, bool flush);
  void SavePiece(const ByteRange& piece, bool flush);
  PieceHeader MakePiece(std::uint64_t offset, std::span<const std::byte> old_bytes);
  std::vector<Witness> TakeWitnesses();

  const std::string path_;
  const RescueDisk disk_;
  OpenFile open_file_;
  const RawFile file_;
  const RawFile disk_bytes_;
  RangeSet saved_;
  std::uint64_t end_ = 0;          // of what is written and counts
  std::uint32_t content_crc_ = 0;  // of the bytes up to there
  std::uint32_t file_crc_ = 0;     // of the file's header
  std::uint32_t piece_count_ = 0;
  bool sealed_ = false;
  std::vector<std::byte> old_bytes_;  // of one piece
  std::vector<std::byte> record_;     // its header and what it stores
};

struct RescuePiece {
  ByteRange range;           // on the disk
  std::uint64_t place = 0;   // of the stored bytes in the file
  std::uint32_t stored = 0;  // their number
  bool packed = false;
  std::uint32_t data_crc = 0;  // of the old bytes
};

struct RescueContents {
  std::uint64_t disk_size = 0;
  std::uint32_t sector_size = 0;
  std::vector<RescuePiece> pieces;  // in the order of the file; no two overlap
  std::size_t sealed_pieces = 0;    // how many of them are the first set
  std::vector<Witness> witnesses;
  // Bytes at the end that are no whole piece: the write that they were saved for never began.
  std::uint64_t torn_bytes = 0;
};

// A rescue file that was found to be whole.
class RescueReader {
 public:
  // Reads all of the file and checks it. Throws RescueError for one that is cut or damaged before
  // its end, and for values that no writer makes.
  explicit RescueReader(const std::string& path);

  const RescueContents& contents() const { return contents_; }

  // The old bytes of a piece, checked again.
  std::vector<std::byte> Load(const RescuePiece& piece) const;

 private:
  OpenFile open_file_;
  RawFile file_;
  RescueContents contents_;
};

RescueContents ReadRescueFile(const std::string& path);

}  // namespace velkora_host
