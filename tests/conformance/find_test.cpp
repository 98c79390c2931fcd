// Listing folders.
#include <algorithm>
#include <string>
#include <vector>

#include "conformance/conformance_fixture.h"

namespace conformance {
namespace {

constexpr DWORD kNotAFolder = 267;

using Names = std::vector<WideString>;

class SeamFind : public ConformanceTest {
 protected:
  SeamFind() { machine_.MakeFolder("folder"); }

  HANDLE First(const WideString& pattern, WIN32_FIND_DATAW& data) const {
    return win32::FindFirstFileW(WidePath(pattern).c_str(), &data);
  }

  // All names in their order; a test failure unless the walk ends as it should.
  Names List(const WideString& pattern) const {
    WIN32_FIND_DATAW data{};
    const HANDLE find = First(pattern, data);
    EXPECT_NE(find, INVALID_HANDLE_VALUE);
    if (find == INVALID_HANDLE_VALUE) return {};
    Names names;
    do {
      names.emplace_back(data.cFileName);
    } while (win32::FindNextFileW(find, &data));
    EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NO_MORE_FILES});
    EXPECT_TRUE(win32::FindClose(find));
    return names;
  }

  // Which order the files have is the file system's; the dots stand in front.
  Names ListSorted(const WideString& pattern) const {
    Names names = List(pattern);
    std::sort(names.begin(), names.end());
    return names;
  }

  DWORD ErrorOf(const WideString& pattern) const {
    WIN32_FIND_DATAW data{};
    win32::SetLastError(kUntouched);
    EXPECT_EQ(First(pattern, data), INVALID_HANDLE_VALUE);
    return win32::GetLastError();
  }
};

TEST_F(SeamFind, FolderBeginsWithTheDots) {
  WriteText("folder\\file", "text");
  const Names names = List(WIDE("folder\\*"));
  EXPECT_EQ(names, (Names{WIDE("."), WIDE(".."), WIDE("file")}));
}

TEST_F(SeamFind, EmptyFolderHasTheDotsOnly) {
  EXPECT_EQ(List(WIDE("folder\\*")), (Names{WIDE("."), WIDE("..")}));
}

TEST_F(SeamFind, PatternChoosesWithoutRegardToCase) {
  for (const char* name : {"one.txt", "two.TXT", "one.log", "plain"}) {
    WriteText(std::string("folder\\") + name, "text");
  }
  EXPECT_EQ(ListSorted(WIDE("folder\\*.txt")), (Names{WIDE("one.txt"), WIDE("two.TXT")}));
  EXPECT_EQ(ListSorted(WIDE("folder\\ONE.*")), (Names{WIDE("one.log"), WIDE("one.txt")}));
  EXPECT_EQ(ListSorted(WIDE("folder\\?ne.l?g")), Names{WIDE("one.log")});
  EXPECT_EQ(List(WIDE("folder\\*.*")).size(), 6u);
  EXPECT_EQ(List(WIDE("folder\\plain")), Names{WIDE("plain")});
  EXPECT_EQ(List(WIDE("folder")), Names{WIDE("folder")});
}

TEST_F(SeamFind, TellsKindAndSize) {
  WriteText("folder\\file", "12345");
  WIN32_FIND_DATAW data{};
  HANDLE find = First(WIDE("folder\\file"), data);
  ASSERT_NE(find, INVALID_HANDLE_VALUE);
  EXPECT_EQ(data.dwFileAttributes & DWORD{FILE_ATTRIBUTE_DIRECTORY}, 0u);
  EXPECT_EQ(data.nFileSizeHigh, 0u);
  EXPECT_EQ(data.nFileSizeLow, 5u);
  EXPECT_TRUE(win32::FindClose(find));
  find = First(WIDE("folder"), data);
  ASSERT_NE(find, INVALID_HANDLE_VALUE);
  EXPECT_EQ(data.dwFileAttributes & DWORD{FILE_ATTRIBUTE_DIRECTORY},
            DWORD{FILE_ATTRIBUTE_DIRECTORY});
  EXPECT_TRUE(win32::FindClose(find));
}

TEST_F(SeamFind, NothingThatMatchesIsError2) {
  EXPECT_EQ(ErrorOf(WIDE("folder\\absent*")), DWORD{ERROR_FILE_NOT_FOUND});
  EXPECT_EQ(ErrorOf(WIDE("folder\\")), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(SeamFind, MissingFolderIsError3) {
  EXPECT_EQ(ErrorOf(WIDE("absent\\*")), DWORD{ERROR_PATH_NOT_FOUND});
}

TEST_F(SeamFind, FileInPlaceOfTheFolderIsError267) {
  WriteText("folder\\file", "text");
  const DWORD error = ErrorOf(WIDE("folder\\file\\*"));
  // Wine takes it for a bad name (123).
  if (!Machine::IsWine()) {
    EXPECT_EQ(error, kNotAFolder);
  }
}

TEST_F(SeamFind, NamesKeepEveryCharacter) {
  const WideString name = WIDE("Gr\u00fc\u00dfe \u65e5\u672c.log");
  File(OpenWide(WidePath(WIDE("folder\\") + name), GENERIC_WRITE, CREATE_ALWAYS)).Close();
  EXPECT_EQ(List(WIDE("folder\\*")), (Names{WIDE("."), WIDE(".."), name}));
}

}  // namespace
}  // namespace conformance
