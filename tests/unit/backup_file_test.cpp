#include "backup/backup_file.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "backup/restore.h"
#include "platform/guard.h"
#include "platform/win32.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr char kPath[] = "X:\\disk.backup";

class BackupFile : public BackupDiskTest {
 protected:
  void Write(const BlockMap& blocks, const char* device = kDevice) {
    std::FILE* file = win32::fopen(kPath, "wb");
    ASSERT_NE(file, nullptr);
    WriteBackupFile(file, device, blocks);
    win32::fclose(file);
  }
  std::string Load(BlockMap& blocks) {
    std::FILE* file = win32::fopen(kPath, "rb");
    if (file == nullptr) throw std::runtime_error("no backup file");
    const Closed closed{file};
    return LoadBackupFile(file, blocks);
  }
  std::filesystem::path HostPath() const { return folder_.path() / "disk.backup"; }
  Bytes FileBytes() const {
    std::ifstream file(HostPath(), std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(file), {});
  }
  void Put(const Bytes& bytes) const {
    std::ofstream(HostPath(), std::ios::binary) << std::string(bytes.begin(), bytes.end());
  }

 private:
  struct Closed {
    std::FILE* file;
    ~Closed() { win32::fclose(file); }
  };
};

// Header and path as they stand in a file; the first block begins at byte 28.
Bytes Header() {
  Bytes bytes(28);
  bytes[8] = 0x12;
  PutText(bytes, 10, "\\\\.\\PhysicalDrive1");
  return bytes;
}

void AppendBlock(Bytes& bytes, std::uint64_t offset, std::uint64_t length, const Bytes& data) {
  const std::size_t start = bytes.size();
  bytes.resize(start + 16);
  PutNumber(bytes, start, offset, 8);
  PutNumber(bytes, start + 8, length, 8);
  bytes.insert(bytes.end(), data.begin(), data.end());
}

// ---- Writing ------------------------------------------------------------------------------------

TEST_F(BackupFile, AFileOfOneBlockByteByByte) {
  Write({{0x0807060504030201, {std::byte{0xAA}, std::byte{0xBB}, std::byte{0xCC}}}});
  const Bytes expected = {
      0,    0,    0,    0,    0,    0,    0,    0,  // reserved
      0x12, 0x00,                                   // 18
      '\\', '\\', '.',  '\\', 'P',  'h',  'y',  's',  'i',
      'c',  'a',  'l',  'D',  'r',  'i',  'v',  'e',  '1',  // the device path
      0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08,       // offset
      3,    0,    0,    0,    0,    0,    0,    0,          // length
      0xAA, 0xBB, 0xCC,
  };
  EXPECT_EQ(FileBytes(), expected);
}

TEST_F(BackupFile, BlocksFollowEachOtherInTheMapsOrder) {
  BlockMap blocks;
  for (std::size_t i = 0; i < 20; ++i) blocks[512 * i] = Filled(i, static_cast<int>(i));
  Write(blocks);
  Bytes expected = Header();
  for (const auto& [offset, bytes] : blocks) {
    AppendBlock(expected, offset, bytes.size(),
                Bytes(bytes.size(), static_cast<std::uint8_t>(bytes.size())));
  }
  EXPECT_EQ(FileBytes(), expected);
}

TEST_F(BackupFile, ABlockOfNoLengthIsABareHeader) {
  Write({{0x100000, {}}});
  Bytes expected = Header();
  AppendBlock(expected, 0x100000, 0, {});
  EXPECT_EQ(FileBytes(), expected);
}

TEST_F(BackupFile, WithoutBlocksTheFileEndsWithThePath) {
  Write({});
  EXPECT_EQ(FileBytes(), Header());
}

TEST_F(BackupFile, ThePathIsCutToALengthOf16Bits) {
  const std::string device(65536 + 301, 'd');
  Write({{1, Filled(1, 9)}}, device.c_str());
  Bytes expected(10 + 301, 'd');
  PutNumber(expected, 0, 0, 8);
  PutNumber(expected, 8, 301, 2);
  AppendBlock(expected, 1, 1, {9});
  EXPECT_EQ(FileBytes(), expected);
}

TEST_F(BackupFile, ALengthOfMoreThanOneByteIsLittleEndian) {
  Write({}, std::string(0x1234, 'x').c_str());
  const Bytes bytes = FileBytes();
  ASSERT_EQ(bytes.size(), 10U + 0x1234U);
  EXPECT_EQ(bytes[8], 0x34);
  EXPECT_EQ(bytes[9], 0x12);
}

TEST_F(BackupFile, FailedWritesLeaveACutFileInSilence) {
  machine_.calls().FailOn("fwrite", 1, ERROR_GEN_FAILURE, simulator::Repeat::kFromThenOn);
  Write({{0, Filled(512, 1)}});
  EXPECT_TRUE(FileBytes().empty());
  EXPECT_TRUE(log_.empty());
}

// ---- Reading ------------------------------------------------------------------------------------

TEST_F(BackupFile, WhatWasWrittenIsReadBack) {
  const BlockMap blocks = {
      {0, Filled(512, 1)}, {1 << 20, {}}, {~std::uint64_t{0}, Filled(70000, 3)}};
  Write(blocks);
  BlockMap loaded;
  EXPECT_EQ(Load(loaded), kDevice);
  EXPECT_EQ(loaded, blocks);
}

TEST_F(BackupFile, TheReservedBytesMayHoldAnything) {
  Bytes bytes = Header();
  for (std::size_t i = 0; i < 8; ++i) bytes[i] = 0xFF;
  AppendBlock(bytes, 5, 1, {1});
  Put(bytes);
  BlockMap loaded;
  EXPECT_EQ(Load(loaded), kDevice);
  EXPECT_EQ(loaded, (BlockMap{{5, Filled(1, 1)}}));
}

TEST_F(BackupFile, OfBlocksWithOneOffsetTheLastIsRead) {
  Bytes bytes = Header();
  AppendBlock(bytes, 5, 3, {1, 1, 1});
  AppendBlock(bytes, 6, 1, {2});
  AppendBlock(bytes, 5, 2, {3, 3});
  Put(bytes);
  BlockMap loaded;
  Load(loaded);
  EXPECT_EQ(loaded, (BlockMap{{5, Filled(2, 3)}, {6, Filled(1, 2)}}));
}

TEST_F(BackupFile, APathOfNoLengthIsEmpty) {
  Bytes bytes(10);
  AppendBlock(bytes, 5, 1, {1});
  Put(bytes);
  BlockMap loaded;
  EXPECT_EQ(Load(loaded), "");
  EXPECT_EQ(loaded.size(), 1U);
}

// Each file that ends in the guard leaves its stream open, and the C runtime of Windows has 512 in
// all: there some lengths stand for the rest, the ends of the blocks among them.
#ifdef _WIN32
constexpr std::size_t kCutStep = 4;
#else
constexpr std::size_t kCutStep = 1;
#endif

// Complete only at the ends of its blocks; nothing of a file that is cut elsewhere reaches a disk.
TEST_F(BackupFile, AFileCutAnywhereEndsInSuccessOrInTheGuard) {
  Bytes bytes = Header();
  AppendBlock(bytes, 0, 512, Bytes(512, 1));
  AppendBlock(bytes, 1024, 0, {});
  const std::set<std::size_t> whole = {28, 28 + 528, 28 + 544};
  for (std::size_t length = 0; length <= bytes.size(); length += kCutStep) {
    Put(Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)));
    machine_.calls().Clear();
    log_.clear();
    const bool is_whole = whole.contains(length);
    ASSERT_EQ(RestoreDiskPartition(kPath), is_whole ? 0 : -18) << length;
    ASSERT_EQ(machine_.calls().Count(std::string("CreateFileA/") + kDevice), is_whole ? 1U : 0U);
    const Texts crash = {"[BackupRestore] [E] RestoreDiskPartition crash!"};
    ASSERT_EQ(Lines(3), is_whole ? Texts() : crash) << length;
  }
}

TEST_F(BackupFile, ALengthThatLeavesTheFileEndsInTheGuard) {
  for (const std::uint64_t length :
       {std::uint64_t{2}, std::uint64_t{0x7FFFFFFF}, std::uint64_t{0xFFFFFFFF}, ~std::uint64_t{0},
        ~std::uint64_t{0} - 15, ~std::uint64_t{0} - 43}) {
    Bytes bytes = Header();
    AppendBlock(bytes, 0, length, {1});
    Put(bytes);
    machine_.calls().Clear();
    EXPECT_EQ(RestoreDiskPartition(kPath), -18) << length;
    EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U);
  }
}

TEST_F(BackupFile, APathThatLeavesTheFileEndsInTheGuard) {
  Bytes bytes = Header();
  PutNumber(bytes, 8, 19, 2);
  Put(bytes);
  EXPECT_EQ(RestoreDiskPartition(kPath), -18);
  PutNumber(bytes, 8, 0xFFFF, 2);
  Put(bytes);
  EXPECT_EQ(RestoreDiskPartition(kPath), -18);
  EXPECT_EQ(machine_.calls().Count(std::string("CreateFileA/") + kDevice), 0U);
}

// None of the calls that read the file is asked for its result.
TEST_F(BackupFile, AFileThatCannotBeReadEndsInTheGuard) {
  for (const char* call : {"fseek", "ftell", "fread"}) {
    Write({{0, Filled(512, 1)}});
    machine_.calls().FailOn(call);
    EXPECT_EQ(RestoreDiskPartition(kPath), -18) << call;
    machine_.calls().ClearFailures();
    EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U);
  }
}

TEST_F(BackupFile, AFileOf2GibEndsInTheGuard) {
  Put(Header());
  std::filesystem::resize_file(HostPath(), std::uint64_t{1} << 31);
  EXPECT_EQ(RestoreDiskPartition(kPath), -18);
  EXPECT_EQ(machine_.calls().Count(std::string("CreateFileA/") + kDevice), 0U);
}

}  // namespace
}  // namespace velkora
