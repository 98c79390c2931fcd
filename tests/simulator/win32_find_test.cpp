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
  EXPECT_EQ(ErrorOf("X:\\*"), DWORD{ERROR_FILE_NOT_FOUND});
  MakeFile("one");
  MakeFile("two/file");
  EXPECT_EQ(List("X:\\*"), (Names{"one", "two"}));
  EXPECT_EQ(List("\\\\?\\X:\\*"), (Names{"one", "two"}));
  EXPECT_EQ(List("*"), (Names{"one", "two"}));
}

TEST_F(Win32FindTest, MissingDriveAndEmptyPatternAreError3) {
  EXPECT_EQ(ErrorOf("Q:\\*"), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_EQ(ErrorOf(""), DWORD{ERROR_PATH_NOT_FOUND});
}

TEST_F(Win32FindTest, TheListingIsThatOfItsBeginning) {
  MakeFile("logs/a");
  WIN32_FIND_DATAW data{};
  const HANDLE find = win32::FindFirstFileW(WIDE("X:\\logs\\*"), &data);
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
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
