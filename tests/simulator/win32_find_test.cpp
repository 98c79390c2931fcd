// Folder listings of the machine.
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/seam_fixture.h"
#include "simulator/text.h"
#include "simulator/wide_text.h"

namespace testing_support {
namespace {

constexpr DWORD kNotAFolder = 267;

using Names = std::vector<std::string>;

class Win32FindTest : public SeamTest {
 protected:
  void MakeFile(std::string_view name, std::string_view content = "text") const {
    const std::filesystem::path path = folder_.path() / std::u8string(name.begin(), name.end());
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }

  // All names, in their order; the walk must end with error 18.
  static Names List(std::string_view pattern) {
    WIN32_FIND_DATAW data{};
    const HANDLE find = win32::FindFirstFileW(simulator::Utf8ToUtf16(pattern).c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return {};
    Names names;
    do {
      names.push_back(simulator::Utf16ToUtf8(data.cFileName));
    } while (win32::FindNextFileW(find, &data));
    EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NO_MORE_FILES});
    EXPECT_TRUE(win32::FindClose(find));
    return names;
  }

  static DWORD ErrorOf(std::string_view pattern) {
    EXPECT_EQ(List(pattern), Names());
    return win32::GetLastError();
  }
};

TEST_F(Win32FindTest, AFolderBeginsWithTheDotsAndIsSortedWithoutRegardToCase) {
  MakeFile("logs/b.txt");
  MakeFile("logs/C.txt");
  MakeFile("logs/A_.txt");
  MakeFile("logs/aB.txt");
  EXPECT_EQ(List("X:\\logs\\*"), (Names{".", "..", "aB.txt", "A_.txt", "b.txt", "C.txt"}));
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Win32FindTest, ARootHasNoDots) {
  MakeFile("one");
  MakeFile("two/file");
  EXPECT_EQ(List("X:\\*"), (Names{"one", "two"}));
  EXPECT_EQ(List("\\\\?\\X:\\*"), (Names{"one", "two"}));
  EXPECT_EQ(List("*"), (Names{"one", "two"}));
}

TEST_F(Win32FindTest, AnEmptyFolderHasTheDotsAndAnEmptyRootNothing) {
  EXPECT_EQ(ErrorOf("X:\\*"), DWORD{ERROR_FILE_NOT_FOUND});
  std::filesystem::create_directory(folder_.path() / "empty");
  EXPECT_EQ(List("X:\\empty\\*"), (Names{".", ".."}));
}

TEST_F(Win32FindTest, TellsFoldersFromFilesAndTheSize) {
  MakeFile("logs/file", "12345");
  MakeFile("logs/sub/file");
  WIN32_FIND_DATAW data{};
  HANDLE find = win32::FindFirstFileW(WIDE("X:\\logs\\f*"), &data);
  ASSERT_NE(find, INVALID_HANDLE_VALUE);
  EXPECT_EQ(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
  EXPECT_EQ(data.nFileSizeLow, 5u);
  EXPECT_EQ(data.nFileSizeHigh, 0u);
  EXPECT_TRUE(win32::FindClose(find));
  find = win32::FindFirstFileW(WIDE("X:\\logs\\sub"), &data);
  ASSERT_NE(find, INVALID_HANDLE_VALUE);
  EXPECT_NE(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
  EXPECT_TRUE(win32::FindClose(find));
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
}

TEST_F(Win32FindTest, Wildcards) {
  for (const char* name : {"logs/one.txt", "logs/two.txt", "logs/two.log", "logs/plain"}) {
    MakeFile(name);
  }
  EXPECT_EQ(List("X:\\logs\\*.TXT"), (Names{"one.txt", "two.txt"}));
  EXPECT_EQ(List("X:\\logs\\t?o.*"), (Names{"two.log", "two.txt"}));
  EXPECT_EQ(List("X:\\logs\\*o*t*"), (Names{"one.txt", "two.txt"}));
  EXPECT_EQ(List("X:\\logs\\*.*").size(), 6u);
  EXPECT_EQ(List("X:\\logs\\plain"), Names{"plain"});
}

TEST_F(Win32FindTest, ErrorsTellWhatIsMissing) {
  MakeFile("logs/file");
  EXPECT_EQ(ErrorOf("X:\\logs\\absent*"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(ErrorOf("X:\\absent\\*"), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_EQ(ErrorOf("Q:\\*"), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_EQ(ErrorOf("X:\\logs\\"), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(ErrorOf(""), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_EQ(ErrorOf("X:\\logs\\file\\*"), kNotAFolder);
}

TEST_F(Win32FindTest, NamesKeepEveryCharacter) {
  const std::string name =
      "Gr\xC3\xBC\xC3\x9F"
      "e \xE6\x97\xA5 \xF0\x9F\x98\x80.txt";
  MakeFile("logs/" + name);
  EXPECT_EQ(List("X:\\logs\\*"), (Names{".", "..", name}));
}

TEST_F(Win32FindTest, TheListingIsThatOfItsBeginning) {
  MakeFile("logs/a");
  WIN32_FIND_DATAW data{};
  const HANDLE find = win32::FindFirstFileW(WIDE("X:\\logs\\*"), &data);
  MakeFile("logs/b");
  Names names;
  while (win32::FindNextFileW(find, &data)) {
    names.push_back(simulator::Utf16ToUtf8(data.cFileName));
  }
  EXPECT_EQ(names, (Names{"..", "a"}));
  EXPECT_TRUE(win32::FindClose(find));
}

TEST_F(Win32FindTest, OtherHandlesAreNoWalk) {
  MakeFile("file");
  const HANDLE file = Open("X:\\file", GENERIC_READ);
  WIN32_FIND_DATAW data{};
  EXPECT_FALSE(win32::FindNextFileW(file, &data));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_FALSE(win32::FindClose(file));
  EXPECT_TRUE(win32::CloseHandle(file));
}

TEST_F(Win32FindTest, EachStepFailsOnDemand) {
  MakeFile("file");
  machine_.calls().FailOn("FindFirstFileW/X:\\*", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(ErrorOf("X:\\*"), DWORD{ERROR_ACCESS_DENIED});
  WIN32_FIND_DATAW data{};
  const HANDLE find = win32::FindFirstFileW(WIDE("X:\\*"), &data);
  machine_.calls().FailOn("FindNextFileW", 1, ERROR_READ_FAULT);
  EXPECT_FALSE(win32::FindNextFileW(find, &data));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_READ_FAULT});
  machine_.calls().FailOn("FindClose");
  EXPECT_FALSE(win32::FindClose(find));
  EXPECT_EQ(machine_.handles().Open(), Names{"file walk"});
  EXPECT_TRUE(win32::FindClose(find));
}

}  // namespace
}  // namespace testing_support
