// Streams of the C runtime, and its clock.
#include <cerrno>

#include "conformance/conformance_fixture.h"

namespace conformance {
namespace {

class SeamStream : public ConformanceTest {
 protected:
  // Opens, writes and closes; returns the error of the open.
  errno_t Write(const WideString& name, const WCHAR* mode, std::string_view text) const {
    std::FILE* file = nullptr;
    const errno_t error = win32::_wfopen_s(&file, WidePath(name).c_str(), mode);
    if (error != 0) return error;
    EXPECT_EQ(win32::fwrite(text.data(), 1, text.size(), file), text.size());
    EXPECT_EQ(win32::fclose(file), 0);
    return 0;
  }
};

TEST_F(SeamStream, WriteModeMakesAFileAndEmptiesAnExistingOne) {
  ASSERT_EQ(Write(WIDE("file"), WIDE("wb"), "a long first text"), 0);
  EXPECT_EQ(ReadText("file"), "a long first text");
  ASSERT_EQ(Write(WIDE("file"), WIDE("wb+"), "second"), 0);
  EXPECT_EQ(ReadText("file"), "second");
}

TEST_F(SeamStream, AppendModeKeepsWhatIsThere) {
  ASSERT_EQ(Write(WIDE("file"), WIDE("ab"), "one"), 0);
  ASSERT_EQ(Write(WIDE("file"), WIDE("ab"), "two"), 0);
  EXPECT_EQ(ReadText("file"), "onetwo");
}

TEST_F(SeamStream, BinaryModeChangesNoByte) {
  const std::string_view text("line\r\nline\n\0\x1A\xFF", 14);
  ASSERT_EQ(Write(WIDE("file"), WIDE("wb"), text), 0);
  EXPECT_EQ(ReadText("file"), text);
}

TEST_F(SeamStream, NamesKeepEveryCharacter) {
  const WideString name = WIDE("Gr\u00fc\u00dfe \u65e5\u672c.log");
  ASSERT_EQ(Write(name, WIDE("wb"), "wide"), 0);
  const File file(OpenWide(WidePath(name), GENERIC_READ, OPEN_EXISTING));
  ASSERT_TRUE(file.is_open());
  EXPECT_EQ(ReadRest(file), "wide");
}

TEST_F(SeamStream, MissingFileOrFolderIsEnoent) {
  char somewhere = 0;
  auto* file = reinterpret_cast<std::FILE*>(&somewhere);
  EXPECT_EQ(win32::_wfopen_s(&file, WidePath(WIDE("absent")).c_str(), WIDE("rb")), ENOENT);
  EXPECT_EQ(file, nullptr);
  file = reinterpret_cast<std::FILE*>(&somewhere);
  EXPECT_EQ(win32::_wfopen_s(&file, WidePath(WIDE("absent\\file")).c_str(), WIDE("wb+")), ENOENT);
  EXPECT_EQ(file, nullptr);
}

TEST_F(SeamStream, FolderIsEacces) {
  char somewhere = 0;
  for (const WCHAR* mode : {WIDE("rb"), WIDE("wb"), WIDE("ab")}) {
    auto* file = reinterpret_cast<std::FILE*>(&somewhere);
    EXPECT_EQ(win32::_wfopen_s(&file, WidePath(WIDE("")).c_str(), mode), EACCES);
    EXPECT_EQ(file, nullptr);
  }
}

TEST_F(SeamStream, WritingToAReaderMovesNothing) {
  WriteText("file", "text");
  std::FILE* file = nullptr;
  ASSERT_EQ(win32::_wfopen_s(&file, WidePath(WIDE("file")).c_str(), WIDE("rb")), 0);
  EXPECT_EQ(win32::fwrite("more", 1, 4, file), 0u);
  win32::fclose(file);  // runtimes differ in whether it repeats the failure
  EXPECT_EQ(ReadText("file"), "text");
}

// ---- Text ---------------------------------------------------------------------------------------

TEST_F(SeamStream, TextIsReadWithLineFeedsForCrLfAndEveryOtherByteKept) {
  WriteText("file", std::string("a\r\n\0b\rc\n\xFF", 9));
  std::FILE* file = win32::fopen(Path("file").c_str(), "r");
  ASSERT_NE(file, nullptr);
  char text[16];
  EXPECT_EQ(win32::fread(text, 1, 3, file), 3u);
  EXPECT_EQ(std::string_view(text, 3), std::string_view("a\n\0", 3));
  EXPECT_EQ(win32::fread(text, 1, sizeof text, file), 5u);
  EXPECT_EQ(std::string_view(text, 5), "b\rc\n\xFF");
  EXPECT_EQ(win32::fread(text, 1, sizeof text, file), 0u);
  EXPECT_EQ(win32::fclose(file), 0);
}

TEST_F(SeamStream, ItemsThatAreNotReadWholeDoNotCount) {
  WriteText("file", "12345");
  std::FILE* file = win32::fopen(Path("file").c_str(), "r");
  ASSERT_NE(file, nullptr);
  char text[16];
  EXPECT_EQ(win32::fread(text, 2, 4, file), 2u);
  EXPECT_EQ(win32::fclose(file), 0);
}

TEST_F(SeamStream, WhatIsAppendedWhileAReaderIsOpenIsNoConcernOfIt) {
  WriteText("file", "before");
  std::FILE* file = win32::fopen(Path("file").c_str(), "r");
  ASSERT_NE(file, nullptr);
  char text[16];
  EXPECT_EQ(win32::fread(text, 1, sizeof text, file), 6u);
  ASSERT_EQ(Write(WIDE("file"), WIDE("ab"), " after"), 0);
  EXPECT_EQ(win32::fclose(file), 0);
  EXPECT_EQ(ReadText("file"), "before after");
}

class SeamReading : public ConformanceTest {
 protected:
  std::FILE* OpenText(std::string_view text, const char* mode) const {
    WriteText("file", text);
    return win32::fopen(Path("file").c_str(), mode);
  }
  static std::string ReadRest(std::FILE* file) {
    char text[100];
    return {text, win32::fread(text, 1, sizeof text, file)};
  }
};

TEST_F(SeamReading, MissingFileFolderOrAFolderItselfIsNull) {
  errno = 0;
  EXPECT_EQ(win32::fopen(Path("absent").c_str(), "rb"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  errno = 0;
  EXPECT_EQ(win32::fopen(Path("absent\\file").c_str(), "wb"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  machine_.MakeFolder("folder");
  errno = 0;
  EXPECT_EQ(win32::fopen(Path("folder").c_str(), "rb"), nullptr);
  EXPECT_EQ(errno, EACCES);
}

TEST_F(SeamReading, TextModeReadsCrLfAsOneLineFeed) {
  std::FILE* file = OpenText("one\r\ntwo\rx\r\r\n\nend", "r");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(ReadRest(file), "one\ntwo\rx\r\n\nend");
  EXPECT_EQ(win32::fclose(file), 0);
}

TEST_F(SeamReading, BinaryModeReadsEveryByte) {
  std::FILE* file = OpenText("one\r\ntwo\r\n", "rb");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(ReadRest(file), "one\r\ntwo\r\n");
  EXPECT_EQ(win32::fclose(file), 0);
}

TEST_F(SeamReading, TextModeWritesLineFeedsAsCrLf) {
  std::FILE* file = win32::fopen(Path("file").c_str(), "w");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(win32::fwrite("a\nb\r\n", 1, 5, file), 5u);
  EXPECT_EQ(win32::fclose(file), 0);
  EXPECT_EQ(ReadText("file"), "a\r\nb\r\r\n");
  file = win32::fopen(Path("file").c_str(), "a");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(win32::fwrite("\n", 1, 1, file), 1u);
  EXPECT_EQ(win32::fclose(file), 0);
  EXPECT_EQ(ReadText("file"), "a\r\nb\r\r\n\r\n");
}

TEST_F(SeamReading, PositionsCountFromEachOrigin) {
  std::FILE* file = OpenText("0123456789", "rb");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(win32::fseek(file, 0, SEEK_END), 0);
  EXPECT_EQ(win32::ftell(file), 10);
  EXPECT_EQ(win32::fseek(file, 8, SEEK_SET), 0);
  EXPECT_EQ(win32::fseek(file, -2, SEEK_CUR), 0);
  EXPECT_EQ(win32::ftell(file), 6);
  EXPECT_EQ(ReadRest(file), "6789");
  EXPECT_EQ(win32::ftell(file), 10);
  win32::rewind(file);
  EXPECT_EQ(win32::ftell(file), 0);
  EXPECT_EQ(ReadRest(file), "0123456789");
  EXPECT_EQ(win32::fclose(file), 0);
}

TEST_F(SeamReading, PositionBeforeTheStartIsRefused) {
  std::FILE* file = OpenText("0123", "rb");
  ASSERT_NE(file, nullptr);
  EXPECT_NE(win32::fseek(file, -1, SEEK_SET), 0);
  EXPECT_EQ(win32::fclose(file), 0);
}

TEST_F(SeamReading, RemoveTakesAFileAway) {
  WriteText("file", "text");
  EXPECT_EQ(win32::remove(Path("file").c_str()), 0);
  EXPECT_FALSE(Exists("file"));
  EXPECT_NE(win32::remove(Path("file").c_str()), 0);
}

using SeamClock = ConformanceTest;

TEST_F(SeamClock, TimeIsTheMachinesAndGoesToBothPlaces) {
  const std::int64_t before = machine_.Now();
  std::int64_t out = 0;
  const std::int64_t time = win32::time(&out);
  EXPECT_EQ(time, out);
  EXPECT_GE(time, before);
  EXPECT_LE(time, before + 60);
  EXPECT_GE(win32::time(nullptr), time);
}

}  // namespace
}  // namespace conformance
