// Every code that a parse can end in, through both entry points that take a backup.
#include <gtest/gtest.h>
#include <ostream>
#include <string>

#include "backup/backup.h"
#include "backup/restore.h"
#include "support/backup_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint64_t kVolume = 1 << 20;

enum class Content { kUnknown, kLinked, kFat16, kFat32, kEndlessFat32, kNtfs, kGpt };

// A call that fails on a disk with this content, and what comes of it.
struct Case {
  const char* name;
  Content content;
  const char* call;  // null for none
  std::size_t occurrence;
  std::int32_t code;
  const char* line;
};
void PrintTo(const Case& tested, std::ostream* out) {
  *out << tested.name;
}

class BackupCodes : public BackupDiskTest, public ::testing::WithParamInterface<Case> {
 protected:
  void SetUp() override {
    Write(GetParam().content);
    Settle();
    if (GetParam().call != nullptr) {
      machine_.calls().FailOn(GetParam().call, GetParam().occurrence, 23);
    }
  }
  void ExpectLine(const std::string& entry) const {
    const std::string line = GetParam().line;
    const std::string crash = "[BackupRestore] [E] " + entry + " crash!";
    EXPECT_EQ(Lines(3), (Texts{GetParam().code == -18 ? crash : "[BackupRestore] " + line}));
  }

 private:
  void Write(Content content) {
    if (content == Content::kGpt) {
      WriteGpt(disk_, {{kBasicDataGuid, 2048, 4095, 1}});
    } else if (content == Content::kLinked) {
      WriteMbr(disk_, {{5, 8192, 8192}}, {{7, 10240, 2048}});
    } else {
      WriteMbr(disk_, {{7, 2048, 8192}});
      WriteVolume(content);
    }
  }
  void WriteVolume(Content content) {
    if (content == Content::kFat16) WriteBytes(disk_, kVolume, Fat16Start({}));
    if (content == Content::kNtfs) WriteNtfs();
    if (content != Content::kFat32 && content != Content::kEndlessFat32) return;
    WriteBytes(disk_, kVolume, Fat32Start({}));
    Bytes table(512);
    PutNumber(table, 8, content == Content::kFat32 ? 0x0FFFFFFF : 2, 4);
    WriteBytes(disk_, kVolume + 4 * 512, table);
  }
  void WriteNtfs() {
    WriteBytes(disk_, kVolume, NtfsStart(4));
    const MftRecordBytes list = MftRecordBytes().AddIndexRoot({{20, 16}});
    WriteBytes(disk_, kVolume + 16384 + 11 * 1024, list.Build());
  }
};

TEST_P(BackupCodes, ComeBackFromTheMemoryForm) {
  BackupStorage* storage = nullptr;
  const std::uint64_t offset = kVolume;
  EXPECT_EQ(BackupDiskPartitionToStorage(kDevice, &offset, 1, &storage), GetParam().code);
  ExpectLine("BackupDiskPartitionToStorage");
  EXPECT_EQ(storage, nullptr);
}

TEST_P(BackupCodes, ComeBackFromTheFileForm) {
  EXPECT_EQ(BackupDiskPartition(kDevice, {kVolume}, "X:\\disk.backup"), GetParam().code);
  ExpectLine("BackupDiskPartition");
  EXPECT_EQ(std::filesystem::file_size(folder_.path() / "disk.backup"), 0U);
}

const Case kCases[] = {
    {"SectorZero", Content::kUnknown, "ReadFile", 1, -10, "Parse read mbr failed. ret=0, error=23"},
    {"SectorZeroAgain", Content::kUnknown, "ReadFile", 2, -10, "ParseMBR read offs 0x0 error:23"},
    {"LinkedRecord", Content::kLinked, "ReadFile", 3, -10, "ParseMBR read offs 0x400000 error:23"},
    {"PlaceOfALinkedRecord", Content::kLinked, "SetFilePointerEx", 2, -10,
     "ParseMBR read offs 0x400000 error:23"},
    {"GptHeader", Content::kGpt, "ReadFile", 2, -12, "ParseGPT: read header error 23"},
    {"PlaceOfTheGptHeader", Content::kGpt, "SetFilePointerEx", 1, -12,
     "ParseGPT: read header error 23"},
    {"GptArray", Content::kGpt, "ReadFile", 3, -12, "ParseGPT: read error 23"},
    {"PlaceOfTheGptArray", Content::kGpt, "SetFilePointerEx", 2, -12, "ParseGPT: read error 23"},
    {"VolumeStart", Content::kUnknown, "ReadFile", 3, -13,
     "ParseFileSystem read offs 0x100000 error:23"},
    {"VolumeStartOfAGpt", Content::kGpt, "ReadFile", 4, -13,
     "ParseFileSystem read offs 0x100000 error:23"},
    {"PlaceOfAVolumeStart", Content::kUnknown, "SetFilePointerEx", 2, -13,
     "ParseFileSystem read offs 0x100000 error:23"},
    {"Fat16Area", Content::kFat16, "ReadFile", 4, -14, "ParseFat16Volume: read error 23"},
    {"PlaceOfAFat16Area", Content::kFat16, "SetFilePointerEx", 3, -14,
     "ParseFat16Volume: read error 23"},
    {"Fat32Area", Content::kFat32, "ReadFile", 4, -15, "ParseFat32Volume: read error 23"},
    {"PlaceOfAFat32Area", Content::kFat32, "SetFilePointerEx", 3, -15,
     "ParseFat32Volume: read error 23"},
    {"Fat32Root", Content::kFat32, "ReadFile", 5, -15, "ParseFat32Volume: read root error 23"},
    {"PlaceOfAFat32Root", Content::kFat32, "SetFilePointerEx", 4, -15,
     "ParseFat32Volume: read root error 23"},
    {"EndlessFat32Chain", Content::kEndlessFat32, nullptr, 1, -18, ""},
    {"NtfsRecords", Content::kNtfs, "ReadFile", 4, -16, "ParseNtfsVolume: read ntfs mft error 23"},
    {"PlaceOfNtfsRecords", Content::kNtfs, "SetFilePointerEx", 3, -16,
     "ParseNtfsVolume: read ntfs mft error 23"},
    {"ListedNtfsRecord", Content::kNtfs, "ReadFile", 5, -16,
     "ParseNtfsVolume: read ntfs tmp error 23"},
    {"PlaceOfAListedNtfsRecord", Content::kNtfs, "SetFilePointerEx", 4, -16,
     "ParseNtfsVolume: read ntfs tmp error 23"},
};

INSTANTIATE_TEST_SUITE_P(Parse, BackupCodes, ::testing::ValuesIn(kCases),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
}  // namespace velkora
