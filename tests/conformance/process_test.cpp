// The command interpreter, by both of its ways: `system` and ShellExecuteExW.
#include <cstdio>

#include "conformance/conformance_fixture.h"

namespace conformance {
namespace {

class SeamShell : public ConformanceTest {
 protected:
  std::string Quoted(std::string_view name) const { return "\"" + Path(name) + "\""; }
  static int Run(const std::string& line) { return win32::system(line.c_str()); }
};

TEST_F(SeamShell, ReturnsTheExitStatus) {
  EXPECT_EQ(Run("exit 0"), 0);
  EXPECT_EQ(Run("exit 3"), 3);
}

TEST_F(SeamShell, UnknownCommandIsNotZero) {
  EXPECT_NE(Run("velkora-no-such-tool /s"), 0);
}

TEST_F(SeamShell, SingleSignReplacesTheFile) {
  WriteText("out", "a long text that was there before");
  EXPECT_EQ(Run("echo new>" + Quoted("out")), 0);
  EXPECT_EQ(ReadText("out"), "new\r\n");
}

TEST_F(SeamShell, DoubleSignAppends) {
  EXPECT_EQ(Run("echo one>>" + Quoted("out")), 0);
  EXPECT_EQ(Run("echo two>>" + Quoted("out")), 0);
  EXPECT_EQ(ReadText("out"), "one\r\ntwo\r\n");
}

TEST_F(SeamShell, RedirectedStatusIsTheTools) {
  EXPECT_EQ(Run("exit 4 >>" + Quoted("out")), 4);
  EXPECT_TRUE(Exists("out"));
}

TEST_F(SeamShell, RedirectionThatCannotBeOpenedFails) {
  const int status = Run("echo text>>" + Quoted("absent\\out"));
  // Wine's interpreter prints that there is no such path, and ends with 0.
  if (!Machine::IsWine()) {
    EXPECT_NE(status, 0);
  }
  EXPECT_FALSE(Exists("absent\\out"));
}

TEST_F(SeamShell, PathMayGoWithoutQuotes) {
  EXPECT_EQ(Run("echo text>" + Path("out")), 0);
  EXPECT_EQ(ReadText("out"), "text\r\n");
}

TEST_F(SeamShell, QuotedBlankStaysInThePath) {
  EXPECT_EQ(Run("echo text>" + Quoted("out with blank")), 0);
  EXPECT_EQ(ReadText("out with blank"), "text\r\n");
}

TEST_F(SeamShell, OuterQuotesGoWhenTheyNameNoProgram) {
  EXPECT_EQ(Run("\"exit 5\""), 5);
  EXPECT_EQ(Run("\"echo text>" + Quoted("out") + "\""), 0);
  EXPECT_EQ(ReadText("out"), "text\r\n");
}

TEST_F(SeamShell, QuotesAroundAProgramWithABlankStay) {
  EXPECT_EQ(Run("\"" + machine_.ProgramWithBlank() + "\" /c exit 6"), 6);
}

TEST_F(SeamShell, FirstAndLastQuoteGoWhenThereAreMoreThanTwo) {
  const std::string program = "\"" + machine_.ProgramWithBlank() + "\"";
  // With a second pair on the line the outermost quotes go, and the program's name breaks at its
  // blank; another pair around it all keeps it whole.
  EXPECT_NE(Run(program + " /c exit 7 >>" + Quoted("out")), 7);
  EXPECT_EQ(Run("\"" + program + " /c exit 7 >>" + Quoted("out") + "\""), 7);
}

class SeamElevated : public SeamShell {
 protected:
  // Starts cmd.exe, waits for its end and returns its exit status.
  static DWORD Start(const WideString& parameters) {
    SHELLEXECUTEINFOW info{};
    info.cbSize = sizeof info;
    info.fMask = SEE_MASK_NOCLOSEPROCESS;
    info.lpVerb = WIDE("runas");
    info.lpFile = WIDE("cmd.exe");
    info.lpParameters = parameters.c_str();
    info.nShow = SW_HIDE;
    EXPECT_TRUE(win32::ShellExecuteExW(&info));
    EXPECT_NE(info.hProcess, nullptr);
    EXPECT_EQ(win32::WaitForMultipleObjects(1, &info.hProcess, TRUE, INFINITE),
              DWORD{WAIT_OBJECT_0});
    DWORD status = STILL_ACTIVE;
    EXPECT_TRUE(win32::GetExitCodeProcess(info.hProcess, &status));
    EXPECT_TRUE(win32::CloseHandle(info.hProcess));
    return status;
  }
};

TEST_F(SeamElevated, ReturnsTheExitStatus) {
  EXPECT_EQ(Start(WIDE("/c exit 0")), 0u);
  EXPECT_EQ(Start(WIDE("/c exit 5")), 5u);
}

TEST_F(SeamElevated, UnknownCommandIsNotZero) {
  EXPECT_NE(Start(WIDE("/c velkora-no-such-tool /s")), 0u);
}

TEST_F(SeamElevated, AppendsToAPathWithAnyCharacters) {
  const WideString name = WIDE("Gr\u00fc\u00dfe \u65e5\u672c.log");
  const WideString path = WideString(WIDE("\"")) + WidePath(name) + WIDE("\"");
  EXPECT_EQ(Start(WIDE("/c echo one>>") + path), 0u);
  EXPECT_EQ(Start(WIDE("/c echo two>>") + path), 0u);
  const File file(OpenWide(WidePath(name), GENERIC_READ, OPEN_EXISTING));
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(ReadRest(file), "one\r\ntwo\r\n");
}

TEST_F(SeamElevated, ClosedHandleIsError6) {
  WriteText("file", "text");
  const HANDLE handle = Open(Path("file"), GENERIC_READ, OPEN_EXISTING);
  ASSERT_TRUE(win32::CloseHandle(handle));
  DWORD status = 0;
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::GetExitCodeProcess(handle, &status));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  win32::SetLastError(kUntouched);
  EXPECT_EQ(win32::WaitForMultipleObjects(1, &handle, TRUE, INFINITE), DWORD{WAIT_FAILED});
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

}  // namespace
}  // namespace conformance
