// Volumes, letters, and the few other facts of the system.
#include <cctype>
#include <cstring>
#include <set>
#include <vector>

#include "conformance/conformance_fixture.h"

namespace conformance {
namespace {

constexpr char kNoSuchVolume[] = "\\\\?\\Volume{11111111-2222-4333-8444-555555555555}\\";

class SeamVolumes : public ConformanceTest {
 protected:
  // The names of all volumes; a test failure unless the walk ends as it should.
  static std::vector<std::string> Walk() {
    char name[MAX_PATH] = {};
    const HANDLE find = win32::FindFirstVolumeA(name, MAX_PATH);
    EXPECT_NE(find, INVALID_HANDLE_VALUE);
    if (find == INVALID_HANDLE_VALUE) return {};
    std::vector<std::string> names;
    do {
      names.emplace_back(name);
    } while (win32::FindNextVolumeA(find, name, MAX_PATH));
    EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NO_MORE_FILES});
    EXPECT_TRUE(win32::FindVolumeClose(find));
    return names;
  }

  // A volume that has the mount point `X:\`, and that letter.
  static std::string FindVolumeWithLetter(char& letter) {
    for (const std::string& root : Walk()) {
      char names[MAX_PATH] = {};
      DWORD length = 0;
      if (!win32::GetVolumePathNamesForVolumeNameA(root.c_str(), names, MAX_PATH, &length))
        continue;
      if (std::strlen(names) != 3) continue;
      letter = names[0];
      return root;
    }
    return "";
  }
};

TEST_F(SeamVolumes, WalkGivesEachVolumeOnceWithATrailingBackslash) {
  const std::vector<std::string> names = Walk();
  ASSERT_FALSE(names.empty());
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
  for (const std::string& name : names) {
    EXPECT_EQ(name.size(), std::strlen(kNoSuchVolume)) << name;
    EXPECT_TRUE(name.starts_with("\\\\?\\Volume{")) << name;
    EXPECT_TRUE(name.ends_with("}\\")) << name;
  }
}

TEST_F(SeamVolumes, MountPointIsAMultiStringOfLetterPaths) {
  char letter = 0;
  const std::string root = FindVolumeWithLetter(letter);
  ASSERT_NE(root, "");
  char names[MAX_PATH];
  std::memset(names, 'x', sizeof names);
  DWORD length = 0;
  win32::SetLastError(kUntouched);
  ASSERT_TRUE(win32::GetVolumePathNamesForVolumeNameA(root.c_str(), names, sizeof names, &length));
  EXPECT_EQ(std::string(names, length), std::string({letter, ':', '\\', '\0', '\0'}));
  // Wine sets the last error to 0.
  if (!Machine::IsWine()) {
    EXPECT_EQ(win32::GetLastError(), kUntouched);
  }
  const DWORD bit = DWORD{1} << (letter - 'A');
  EXPECT_NE(win32::GetLogicalDrives() & bit, 0u);
}

TEST_F(SeamVolumes, ShortBufferIsError234WithTheLengthNeeded) {
  char letter = 0;
  const std::string root = FindVolumeWithLetter(letter);
  ASSERT_NE(root, "");
  char names[4];
  DWORD length = 0;
  EXPECT_FALSE(win32::GetVolumePathNamesForVolumeNameA(root.c_str(), names, sizeof names, &length));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(length, 5u);
  char enough[5];
  EXPECT_TRUE(
      win32::GetVolumePathNamesForVolumeNameA(root.c_str(), enough, sizeof enough, &length));
}

TEST_F(SeamVolumes, UnknownVolumeIsError2) {
  char names[MAX_PATH];
  DWORD length = 0;
  EXPECT_FALSE(
      win32::GetVolumePathNamesForVolumeNameA(kNoSuchVolume, names, sizeof names, &length));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(SeamVolumes, RootWithoutBackslashIsError123) {
  char letter = 0;
  std::string root = FindVolumeWithLetter(letter);
  ASSERT_NE(root, "");
  root.pop_back();
  char names[MAX_PATH];
  DWORD length = 0;
  EXPECT_FALSE(win32::GetVolumePathNamesForVolumeNameA(root.c_str(), names, sizeof names, &length));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_NAME});
}

TEST_F(SeamVolumes, LetterInUseIsError145) {
  char letter = 0;
  const std::string root = FindVolumeWithLetter(letter);
  ASSERT_NE(root, "");
  const std::string letter_path = std::string(1, letter) + ":\\";
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::SetVolumeMountPointA(letter_path.c_str(), root.c_str()));
  // Wine gives no volume a letter: not implemented (120).
  if (!Machine::IsWine()) {
    EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_DIR_NOT_EMPTY});
  }
}

TEST_F(SeamVolumes, LetterPathWithoutBackslashIsError123) {
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::DeleteVolumeMountPointA("Q:"));
  // Wine takes no letter away, and gives no reason.
  if (!Machine::IsWine()) {
    EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_NAME});
  }
}

TEST_F(SeamVolumes, MaskHasTheCurrentDrive) {
  const int letter = std::toupper(static_cast<unsigned char>(machine_.current_drive()));
  const DWORD bit = DWORD{1} << (letter - 'A');
  win32::SetLastError(kUntouched);
  EXPECT_NE(win32::GetLogicalDrives() & bit, 0u);
  EXPECT_EQ(win32::GetLogicalDrives() >> 26, 0u);
  EXPECT_EQ(win32::GetLastError(), kUntouched);
}

using SeamSystem = ConformanceTest;

TEST_F(SeamSystem, SystemDirectoryHasALetterAndNoTrailingBackslash) {
  char path[MAX_PATH] = {};
  const UINT length = win32::GetSystemDirectoryA(path, MAX_PATH);
  ASSERT_GT(length, 3u);
  EXPECT_EQ(length, std::strlen(path));
  EXPECT_TRUE(std::isupper(static_cast<unsigned char>(path[0])));
  EXPECT_EQ(std::string(path + 1, 2), ":\\");
  EXPECT_NE(path[length - 1], '\\');
}

TEST_F(SeamSystem, ShortBufferGetsTheSizeNeeded) {
  char path[MAX_PATH] = {};
  const UINT length = win32::GetSystemDirectoryA(path, MAX_PATH);
  EXPECT_EQ(win32::GetSystemDirectoryA(path, 2), length + 1);
  EXPECT_EQ(win32::GetSystemDirectoryA(path, length), length + 1);
  EXPECT_EQ(win32::GetSystemDirectoryA(path, length + 1), length);
}

TEST_F(SeamSystem, GuidsAreUnique) {
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    GUID guid{};
    ASSERT_EQ(win32::CoCreateGuid(&guid), S_OK);
    std::string bytes(sizeof guid, '\0');
    std::memcpy(bytes.data(), &guid, sizeof guid);
    EXPECT_TRUE(seen.insert(bytes).second);
  }
}

}  // namespace
}  // namespace conformance
