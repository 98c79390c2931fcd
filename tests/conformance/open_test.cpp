// Opening and closing files and devices.
#include <atomic>
#include <thread>

#include "conformance/conformance_fixture.h"

namespace conformance {
namespace {

constexpr DWORD kFileExists = 80;

using SeamOpen = ConformanceTest;

TEST_F(SeamOpen, MissingFileIsError2) {
  EXPECT_FALSE(File(Open(Path("absent"), GENERIC_READ, OPEN_EXISTING)).is_open());
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(SeamOpen, MissingFolderIsError3) {
  EXPECT_FALSE(File(Open(Path("absent\\file"), GENERIC_READ, OPEN_EXISTING)).is_open());
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
  EXPECT_FALSE(File(Open(Path("absent\\file"), GENERIC_WRITE, CREATE_ALWAYS)).is_open());
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_PATH_NOT_FOUND});
}

TEST_F(SeamOpen, MissingDiskIsError2) {
  EXPECT_FALSE(File(Open("\\\\.\\PhysicalDrive99", GENERIC_READ, OPEN_EXISTING)).is_open());
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
}

TEST_F(SeamOpen, CreateAlwaysEmptiesAnExistingFileAndSaysSo) {
  WriteText("file", "old text");
  const File file(Open(Path("file"), GENERIC_READ | GENERIC_WRITE, CREATE_ALWAYS));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(ReadRest(file), "");
}

TEST_F(SeamOpen, OpenAlwaysKeepsAnExistingFileAndSaysSo) {
  WriteText("file", "old text");
  const File file(Open(Path("file"), GENERIC_READ, OPEN_ALWAYS));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(ReadRest(file), "old text");
}

TEST_F(SeamOpen, CreateNewMakesAFileAndRefusesAnExistingOne) {
  WriteText("file", "old text");
  EXPECT_FALSE(File(Open(Path("file"), GENERIC_WRITE, CREATE_NEW)).is_open());
  EXPECT_EQ(win32::GetLastError(), kFileExists);
  EXPECT_EQ(ReadText("file"), "old text");
  EXPECT_TRUE(File(Open(Path("new"), GENERIC_WRITE, CREATE_NEW)).is_open());
  EXPECT_EQ(ReadText("new"), "");
}

TEST_F(SeamOpen, TruncateExistingWantsAFile) {
  EXPECT_FALSE(File(Open(Path("absent"), GENERIC_WRITE, TRUNCATE_EXISTING)).is_open());
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_FILE_NOT_FOUND});
  WriteText("file", "old text");
  EXPECT_TRUE(File(Open(Path("file"), GENERIC_WRITE, TRUNCATE_EXISTING)).is_open());
  EXPECT_EQ(ReadText("file"), "");
}

TEST_F(SeamOpen, FolderThatIsOpenedAsAFileIsError5) {
  machine_.MakeFolder("folder");
  const File folder(Open(Path("folder"), GENERIC_READ, OPEN_EXISTING));
  EXPECT_FALSE(folder.is_open());
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(SeamOpen, SuccessLeavesTheLastError) {
  WriteText("file", "text");
  win32::SetLastError(kUntouched);
  const File file(Open(Path("file"), GENERIC_READ, OPEN_EXISTING));
  ASSERT_TRUE(file.is_open());
  // Wine sets the last error to 0 on every open that succeeds; Windows does so only where the
  // disposition makes a file that is not there.
  if (!Machine::IsWine()) {
    EXPECT_EQ(win32::GetLastError(), kUntouched);
  }
}

TEST_F(SeamOpen, NamesAreFoundWithoutRegardToSeparator) {
  WriteText("file", "text");
  const File file(Open(machine_.folder() + "/file", GENERIC_READ, OPEN_EXISTING));
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(ReadRest(file), "text");
}

TEST_F(SeamOpen, PathMayBeginWithTheLongPathPrefix) {
  WriteText("file", "text");
  const File file(Open("\\\\?\\" + Path("file"), GENERIC_READ, OPEN_EXISTING));
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(ReadRest(file), "text");
}

TEST_F(SeamOpen, WideNamesKeepEveryCharacter) {
  const WideString path = WidePath(WIDE("Gr\u00fc\u00dfe \u65e5\u672c.txt"));
  {
    const File file(OpenWide(path, GENERIC_WRITE, CREATE_ALWAYS));
    ASSERT_TRUE(file.is_open());
    DWORD done = 0;
    ASSERT_TRUE(win32::WriteFile(file.get(), "wide", 4, &done, nullptr));
  }
  const File file(OpenWide(path, GENERIC_READ, OPEN_EXISTING));
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(ReadRest(file), "wide");
  EXPECT_FALSE(File(OpenWide(WidePath(WIDE("Gru\u0308\u00dfe \u65e5\u672c.txt")), GENERIC_READ,
                             OPEN_EXISTING))
                   .is_open());
}

TEST_F(SeamOpen, WideAndNarrowPathsLeadToTheSameFile) {
  WriteText("plain.txt", "text");
  const File file(OpenWide(WidePath(WIDE("plain.txt")), GENERIC_READ, OPEN_EXISTING));
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(ReadRest(file), "text");
}

TEST_F(SeamOpen, ClosedHandleIsError6) {
  WriteText("file", "text");
  const HANDLE handle = Open(Path("file"), GENERIC_READ, OPEN_EXISTING);
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(win32::CloseHandle(handle));
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::CloseHandle(handle));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

// The same value names the calling process, which closing leaves alone.
TEST_F(SeamOpen, InvalidHandleValueIsClosedWithoutHarm) {
  EXPECT_TRUE(win32::CloseHandle(INVALID_HANDLE_VALUE));
}

TEST_F(SeamOpen, CloseLeavesTheLastError) {
  WriteText("file", "text");
  const HANDLE handle = Open(Path("file"), GENERIC_READ, OPEN_EXISTING);
  ASSERT_NE(handle, INVALID_HANDLE_VALUE);
  win32::SetLastError(kUntouched);
  EXPECT_TRUE(win32::CloseHandle(handle));
  EXPECT_EQ(win32::GetLastError(), kUntouched);
}

TEST_F(SeamOpen, LastErrorBelongsToTheThread) {
  // The threads meet in two flags, since waiting in any other way may set a last error.
  std::atomic<bool> begun = false;
  std::atomic<bool> done = false;
  std::thread other([&] {
    while (!begun) {
    }
    win32::SetLastError(ERROR_ACCESS_DENIED);
    done = true;
  });
  win32::SetLastError(kUntouched);
  begun = true;
  while (!done) {
  }
  EXPECT_EQ(win32::GetLastError(), kUntouched);
  other.join();
}

}  // namespace
}  // namespace conformance
