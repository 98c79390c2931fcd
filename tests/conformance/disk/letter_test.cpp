// Letters of the disk's volumes: who gets one, who keeps it, and how it is given and taken.
#include <array>

#include "conformance/disk/disk_fixture.h"
#include "platform/clock.h"

namespace conformance {
namespace {

constexpr std::uint64_t kFirst = kSectorsPerMiB;
constexpr std::uint64_t kCount = 100 * kSectorsPerMiB;
constexpr DWORD kLetterDelay = 3000;  // milliseconds in which Windows would have given a letter

class DiskLetter : public DiskTest {
 protected:
  void ExpectNoLetter(const std::string& root) const {
    ASSERT_NE(root, "");
    win32::Sleep(kLetterDelay);
    EXPECT_EQ(LettersOf(root), "");
  }
  // Letters are remembered beyond a test, so each one has identities of its own.
  static GUID NewIdentity() {
    GUID guid{};
    EXPECT_EQ(win32::CoCreateGuid(&guid), S_OK);
    return guid;
  }
  static PARTITION_INFORMATION_EX NewGptRow(const GUID& type) {
    PARTITION_INFORMATION_EX row = GptRow(type, 0, kFirst, kCount);
    row.Gpt.PartitionId = NewIdentity();
    return row;
  }
  void MakeMbrWith(DWORD signature, const std::vector<PARTITION_INFORMATION_EX>& rows) const {
    ASSERT_EQ(CreateMbr(signature), DWORD{ERROR_SUCCESS});
    DriveLayout layout = MbrLayout(rows);
    layout.header.Mbr.Signature = signature;
    ASSERT_EQ(SetLayout(layout), DWORD{ERROR_SUCCESS});
  }
  std::string MakeVolume(DWORD signature) const {
    MakeMbrWith(signature, {MbrRow(7, kFirst, kCount)});
    return WaitForVolume(kMiB);
  }
  static std::string LetterPath(char letter) { return std::string(1, letter) + ":\\"; }
  static DWORD Give(char letter, const std::string& root) {
    const bool given =
        win32::SetVolumeMountPointA(LetterPath(letter).c_str(), root.c_str()) != FALSE;
    return given ? DWORD{ERROR_SUCCESS} : win32::GetLastError();
  }
  static DWORD Take(char letter) {
    const bool taken = win32::DeleteVolumeMountPointA(LetterPath(letter).c_str()) != FALSE;
    return taken ? DWORD{ERROR_SUCCESS} : win32::GetLastError();
  }
  // The letter that was given to a volume on a disk that has been cleaned since.
  char CleanVolumeWithALetter() const {
    const std::string root = MakeVolume(signature_);
    EXPECT_EQ(Take(WaitForLetter(root)), DWORD{ERROR_SUCCESS});
    const char letter = FreeLetter();
    EXPECT_EQ(Give(letter, root), DWORD{ERROR_SUCCESS});
    EXPECT_EQ(Diskpart("clean\r\n"), 0u);
    WaitUntilGone(kMiB);
    return letter;
  }
  static bool IsUsed(char letter) { return (win32::GetLogicalDrives() >> (letter - 'A') & 1) != 0; }

  const DWORD signature_ = NewIdentity().Data1;
};

TEST_F(DiskLetter, NewVolumeGetsALetterByItself) {
  const char letter = WaitForLetter(MakeVolume(signature_));
  ASSERT_NE(letter, '\0');
  EXPECT_TRUE(IsUsed(letter));
}

TEST_F(DiskLetter, HiddenMbrTypesGetNone) {
  constexpr std::array<std::array<BYTE, 3>, 4> kTypes = {
      {{0x11, 0x12, 0x14}, {0x16, 0x17, 0x1B}, {0x1C, 0x1E, 0x27}, {0xEF, 0x17, 0x27}}};
  for (const auto& types : kTypes) {
    ASSERT_EQ(Diskpart("clean\r\n"), 0u);
    WaitUntilGone(kMiB);
    MakeMbrWith(NewIdentity().Data1, {MbrRow(types[0], kFirst, 40 * kSectorsPerMiB),
                                      MbrRow(types[1], 50 * kSectorsPerMiB, 40 * kSectorsPerMiB),
                                      MbrRow(types[2], 100 * kSectorsPerMiB, 40 * kSectorsPerMiB)});
    ExpectNoLetter(WaitForVolume(kMiB));
    ExpectNoLetter(WaitForVolume(50 * kMiB));
    ExpectNoLetter(WaitForVolume(100 * kMiB));
  }
}

TEST_F(DiskLetter, EfiSystemPartitionGetsNone) {
  MakeGpt({NewGptRow(kEfiSystemType)});
  ExpectNoLetter(WaitForVolume(kMiB));
}

TEST_F(DiskLetter, GptAttribute63KeepsItAway) {
  PARTITION_INFORMATION_EX row = NewGptRow(kBasicDataType);
  row.Gpt.Attributes = DWORD64{1} << 63;
  MakeGpt({row});
  ExpectNoLetter(WaitForVolume(kMiB));
}

TEST_F(DiskLetter, VolumeWithoutAMountPointHasAnEmptyListOfLength1) {
  MakeGpt({NewGptRow(kEfiSystemType)});
  const std::string root = WaitForVolume(kMiB);
  win32::Sleep(kLetterDelay);
  char names[8] = {'x', 'x'};
  DWORD length = 99;
  ASSERT_TRUE(win32::GetVolumePathNamesForVolumeNameA(root.c_str(), names, sizeof names, &length));
  EXPECT_EQ(length, 1u);
  EXPECT_EQ(names[0], '\0');
}

TEST_F(DiskLetter, LetterIsTakenAndAnotherGiven) {
  const std::string root = MakeVolume(signature_);
  const char old = WaitForLetter(root);
  ASSERT_EQ(Take(old), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(LettersOf(root), "");
  EXPECT_FALSE(IsUsed(old));
  const char letter = FreeLetter();
  ASSERT_EQ(Give(letter, root), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(LettersOf(root), std::string(1, letter));
  EXPECT_TRUE(IsUsed(letter));
}

TEST_F(DiskLetter, SecondLetterForAVolumeIsError87) {
  const std::string root = MakeVolume(signature_);
  WaitForLetter(root);
  EXPECT_EQ(Give(FreeLetter(), root), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskLetter, TakingALetterThatNobodyHasIsError2) {
  EXPECT_EQ(Take(FreeLetter()), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(DiskLetter, LetterComesBackWithTheSameSignatureAndOffset) {
  const char letter = CleanVolumeWithALetter();
  EXPECT_FALSE(IsUsed(letter));
  EXPECT_EQ(WaitForLetter(MakeVolume(signature_)), letter);
}

TEST_F(DiskLetter, NewSignatureLosesTheLetter) {
  const char letter = CleanVolumeWithALetter();
  EXPECT_NE(WaitForLetter(MakeVolume(signature_ + 1)), letter);
  EXPECT_FALSE(IsUsed(letter));
}

TEST_F(DiskLetter, LetterIsGivenToAnEfiSystemPartition) {
  MakeGpt({NewGptRow(kEfiSystemType)});
  const std::string root = WaitForVolume(kMiB);
  const char letter = FreeLetter();
  EXPECT_EQ(Diskpart(std::string("select partition 1\r\nassign letter=") + letter + "\r\n"), 0u);
  EXPECT_EQ(LettersOf(root), std::string(1, letter));
  EXPECT_EQ(Diskpart(std::string("select partition 1\r\nremove letter=") + letter + "\r\n"), 0u);
  EXPECT_EQ(LettersOf(root), "");
}

}  // namespace
}  // namespace conformance
