// Values that no writer makes, with every checksum right.
#include <cstring>
#include <functional>
#include <gmock/gmock.h>

#include "host/checksum.h"
#include "host/rescue_fixture.h"

namespace testing_support {
namespace {

using ::testing::EndsWith;
using velkora_host::BytesOf;
using velkora_host::Crc32;
using velkora_host::CrcOfHeader;
using velkora_host::FileHeader;
using velkora_host::PieceHeader;
using velkora_host::SealHeader;
using velkora_host::Witness;

constexpr std::uint64_t kDiskSize = 16 * 512;

// The parts of a file, put together with right checksums.
struct Parts {
  struct Piece {
    PieceHeader header;
    Bytes stored = Bytes(512, std::byte{'p'});
  };
  FileHeader file;
  std::vector<Piece> pieces;
  SealHeader seal;
  std::vector<Witness> witnesses;
};

Parts GoodParts() {
  Parts parts;
  parts.file.magic = velkora_host::kFileMagic;
  parts.file.version = velkora_host::kFormatVersion;
  parts.file.sector_size = 512;
  parts.file.disk_size = kDiskSize;
  parts.file.id = {1, 2, 3};
  for (const std::uint32_t index : {0u, 1u}) {
    Parts::Piece piece;
    piece.header.magic = velkora_host::kPieceMagic;
    piece.header.index = index;
    piece.header.flags = 0;
    piece.header.offset = 1024 * index;
    piece.header.length = 512;
    piece.header.stored = 512;
    parts.pieces.push_back(piece);
  }
  parts.seal.magic = velkora_host::kSealMagic;
  parts.seal.piece_count = 2;
  parts.seal.witness_count = 1;
  parts.witnesses = {{4096, 0}};
  return parts;
}

std::string Text(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string Assemble(Parts parts) {
  parts.file.crc = CrcOfHeader(parts.file);
  std::string text = Text(BytesOf(parts.file));
  for (Parts::Piece& piece : parts.pieces) {
    piece.header.file_crc = parts.file.crc;
    piece.header.data_crc = Crc32(piece.stored);
    piece.header.crc = CrcOfHeader(piece.header);
    text += Text(BytesOf(piece.header)) + Text(piece.stored);
  }
  parts.seal.content_crc = Crc32(std::as_bytes(std::span(text)));
  parts.seal.witness_crc = Crc32(std::as_bytes(std::span(parts.witnesses)));
  parts.seal.crc = CrcOfHeader(parts.seal);
  return text + Text(BytesOf(parts.seal)) + Text(std::as_bytes(std::span(parts.witnesses)));
}

class RescueValuesTest : public RescueTest {
 protected:
  // What is said about the file when `change` was made to a good one.
  std::string ErrorAfter(const std::function<void(Parts&)>& change) const {
    Parts parts = GoodParts();
    change(parts);
    SetFileText(Assemble(parts));
    return RescueErrorOf([] { velkora_host::ReadRescueFile(kRescuePath); });
  }
  std::string ErrorOfSecondPiece(const std::function<void(PieceHeader&)>& change) const {
    return ErrorAfter([&](Parts& parts) { change(parts.pieces[1].header); });
  }
};

TEST_F(RescueValuesTest, GoodPartsAreRead) {
  EXPECT_EQ(ErrorAfter([](Parts&) {}), "");
}

TEST_F(RescueValuesTest, FileHeader) {
  EXPECT_THAT(ErrorAfter([](Parts& parts) { parts.file.version = 2; }),
              EndsWith("at 0: version 2 is unknown"));
  for (const std::uint32_t size : {0u, 511u, 256u, 0x80000000u}) {
    EXPECT_THAT(ErrorAfter([=](Parts& parts) { parts.file.sector_size = size; }),
                EndsWith("a sector size of " + std::to_string(size) + " bytes is not possible"));
  }
  for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{8193}, ~std::uint64_t{0} << 9}) {
    EXPECT_THAT(ErrorAfter([=](Parts& parts) { parts.file.disk_size = size; }),
                EndsWith("a disk size of " + std::to_string(size) + " bytes is not possible"));
  }
}

TEST_F(RescueValuesTest, PiecePlaces) {
  const auto error_at = [this](std::uint64_t offset) {
    return ErrorOfSecondPiece([=](PieceHeader& header) { header.offset = offset; });
  };
  EXPECT_EQ(error_at(512), "");
  EXPECT_EQ(error_at(kDiskSize - 512), "");
  EXPECT_THAT(error_at(0), EndsWith("at 0 overlaps another one"));
  EXPECT_THAT(error_at(100), EndsWith("at 100 is not possible"));
  EXPECT_THAT(error_at(kDiskSize), EndsWith("leaves the disk of 8192 bytes"));
  EXPECT_THAT(error_at(~std::uint64_t{511}), EndsWith("leaves the disk of 8192 bytes"));
}

TEST_F(RescueValuesTest, PieceLengths) {
  for (const std::uint32_t length : {0u, 100u, (1u << 20) + 512, 0xFFFFFE00u}) {
    EXPECT_THAT(ErrorOfSecondPiece([=](PieceHeader& header) { header.length = length; }),
                EndsWith("a piece of " + std::to_string(length) +
                         " bytes of the disk at 1024 is not possible"));
  }
  EXPECT_THAT(ErrorOfSecondPiece([](PieceHeader& header) { header.length = 1 << 20; }),
              EndsWith("leaves the disk of 8192 bytes"));
  for (const std::uint32_t stored : {0u, 511u, 513u, 0xFFFFFFFFu}) {
    EXPECT_THAT(ErrorOfSecondPiece([=](PieceHeader& header) { header.stored = stored; }),
                EndsWith("stored in " + std::to_string(stored) + " bytes is not possible"));
  }
  EXPECT_THAT(ErrorOfSecondPiece([](PieceHeader& header) { header.flags = 1; }),
              EndsWith("stored in 512 bytes is not possible"));
}

TEST_F(RescueValuesTest, PieceFlagsAndIndex) {
  EXPECT_THAT(ErrorOfSecondPiece([](PieceHeader& header) { header.flags = 2; }),
              EndsWith("the flags 2 of a piece are unknown"));
  EXPECT_THAT(ErrorOfSecondPiece([](PieceHeader& header) { header.index = 0; }),
              EndsWith("piece 0 comes where piece 1 belongs"));
}

TEST_F(RescueValuesTest, PackedBytesThatAreNoneAreRefused) {
  EXPECT_THAT(ErrorAfter([](Parts& parts) {
                parts.pieces[1].header.flags = 1;
                parts.pieces[1].header.stored = 100;
                parts.pieces[1].stored.resize(100);
              }),
              EndsWith("the checksum of the piece's bytes is wrong"));
}

TEST_F(RescueValuesTest, PieceThatWasExchangedForAnotherGoodOneIsRefused) {
  Parts parts = GoodParts();
  const std::string text = Assemble(parts);
  parts.pieces[1].stored[0] = std::byte{'q'};
  const std::string other = Assemble(parts);
  const std::size_t seal = text.size() - sizeof(SealHeader) - sizeof(Witness);
  SetFileText(other.substr(0, seal) + text.substr(seal));
  EXPECT_THAT(RescueErrorOf([] { velkora_host::ReadRescueFile(kRescuePath); }),
              EndsWith("the checksum of the bytes before the seal is wrong"));
}

TEST_F(RescueValuesTest, Seal) {
  EXPECT_THAT(ErrorAfter([](Parts& parts) { parts.seal.piece_count = 3; }),
              EndsWith("the seal counts 3 pieces, and there are 2"));
  EXPECT_THAT(ErrorAfter([](Parts& parts) { parts.seal.witness_count = 65; }),
              EndsWith("a count of 65 witnesses is not possible"));
  EXPECT_THAT(ErrorAfter([](Parts& parts) { parts.seal.witness_count = 2; }),
              EndsWith("the file ends within the witnesses"));
  for (const std::uint64_t offset : {std::uint64_t{100}, kDiskSize, ~std::uint64_t{511}}) {
    EXPECT_THAT(ErrorAfter([=](Parts& parts) { parts.witnesses[0].offset = offset; }),
                EndsWith("a witness at " + std::to_string(offset) + " is not possible"));
  }
}

}  // namespace
}  // namespace testing_support
