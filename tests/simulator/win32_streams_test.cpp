// Streams of the C runtime: their modes, their positions, their failures.
#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/seam_fixture.h"
#include "simulator/system.h"

namespace testing_support {
namespace {

class Win32StreamsTest : public SeamTest {
 protected:
  void SetContent(std::string_view content) const {
    std::ofstream(folder_.path() / "file", std::ios::binary) << content;
  }
  std::string Content() const {
    std::ifstream file(folder_.path() / "file", std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  static std::string Text(const char* mode) {
    std::FILE* file = win32::fopen("X:\\file", mode);
    char text[100];
    const std::size_t length = win32::fread(text, 1, sizeof text, file);
    win32::fclose(file);
    return {text, length};
  }
  static void Write(const char* mode, std::string_view text) {
    std::FILE* file = win32::fopen("X:\\file", mode);
    EXPECT_EQ(win32::fwrite(text.data(), 1, text.size(), file), text.size());
    EXPECT_EQ(win32::fclose(file), 0);
  }
};

TEST_F(Win32StreamsTest, TextModeReadsCrLfAsOneLineFeed) {
  SetContent("one\r\ntwo\rx\r\r\n\nend\r");
  EXPECT_EQ(Text("r"), "one\ntwo\rx\r\n\nend\r");
  EXPECT_EQ(Text("rt"), Text("r"));
}

TEST_F(Win32StreamsTest, BinaryModeReadsEveryByte) {
  SetContent("one\r\ntwo\r\n");
  EXPECT_EQ(Text("rb"), "one\r\ntwo\r\n");
}

TEST_F(Win32StreamsTest, TheModeDecidesWhatIsWritten) {
  Write("w", "one\ntwo\n");
  EXPECT_EQ(Content(), "one\r\ntwo\r\n");
  Write("a", "\n");
  EXPECT_EQ(Content(), "one\r\ntwo\r\n\r\n");
  Write("wb", "one\ntwo\n");
  EXPECT_EQ(Content(), "one\ntwo\n");
}

TEST_F(Win32StreamsTest, AStreamThatComesBackUnderTheSameAddressHasItsOwnMode) {
  for (int i = 0; i < 10; ++i) {
    Write("w", "\n");
    EXPECT_EQ(Content(), "\r\n");
    Write("wb", "\n");
    EXPECT_EQ(Content(), "\n");
  }
  EXPECT_TRUE(machine_.system().text_streams().empty());
}

TEST_F(Win32StreamsTest, PositionsFromEachOrigin) {
  SetContent("0123456789");
  std::FILE* file = win32::fopen("X:\\file", "rb");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(win32::fseek(file, 0, SEEK_END), 0);
  EXPECT_EQ(win32::ftell(file), 10);
  EXPECT_EQ(win32::fseek(file, 4, SEEK_SET), 0);
  EXPECT_EQ(win32::fseek(file, -1, SEEK_CUR), 0);
  char piece[2];
  EXPECT_EQ(win32::fread(piece, 1, sizeof piece, file), 2u);
  EXPECT_EQ(std::string_view(piece, sizeof piece), "34");
  EXPECT_EQ(win32::ftell(file), 5);
  EXPECT_NE(win32::fseek(file, -1, SEEK_SET), 0);
  win32::rewind(file);
  EXPECT_EQ(win32::ftell(file), 0);
  EXPECT_EQ(win32::fclose(file), 0);
}

TEST_F(Win32StreamsTest, APositionBeyond31BitsCannotBeTold) {
  SetContent("");
  std::FILE* file = win32::fopen("X:\\file", "wb");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(win32::fseek(file, 0x7FFFFFFF, SEEK_SET), 0);
  EXPECT_EQ(win32::ftell(file), 0x7FFFFFFF);
  EXPECT_EQ(win32::fseek(file, 1, SEEK_CUR), 0);
  EXPECT_EQ(win32::ftell(file), -1);
  EXPECT_EQ(win32::fclose(file), 0);
}

TEST_F(Win32StreamsTest, OpenLeavesItsReasonInErrno) {
  const auto errno_of = [](const char* path) {
    errno = 0;
    EXPECT_EQ(win32::fopen(path, "rb"), nullptr);
    return errno;
  };
  EXPECT_EQ(errno_of("X:\\absent"), ENOENT);
  EXPECT_EQ(errno_of("Q:\\absent"), ENOENT);
  EXPECT_EQ(errno_of("X:\\"), EACCES);
  machine_.calls().FailOn("fopen");
  EXPECT_EQ(errno_of("X:\\file"), EACCES);
  machine_.calls().FailOn("fopen", 1, ENOSPC);
  EXPECT_EQ(errno_of("X:\\file"), ENOSPC);
}

TEST_F(Win32StreamsTest, PositionsFailOnDemand) {
  SetContent("0123");
  std::FILE* file = win32::fopen("X:\\file", "rb");
  ASSERT_EQ(win32::fseek(file, 2, SEEK_SET), 0);
  for (const char* name : {"fseek", "ftell", "rewind"}) machine_.calls().FailOn(name);
  EXPECT_NE(win32::fseek(file, 0, SEEK_SET), 0);
  win32::rewind(file);
  EXPECT_EQ(win32::ftell(file), -1);
  EXPECT_EQ(win32::ftell(file), 2);
  win32::fclose(file);
}

using Win32SeekTest = SeamTest;

TEST_F(Win32SeekTest, OnePieceMovesAsTwoDo) {
  AttachGpt(1, {});
  const HANDLE disk = Open("\\\\.\\PhysicalDrive1");
  LARGE_INTEGER distance{};
  LARGE_INTEGER reached{};
  distance.QuadPart = LONGLONG{5} << 32;
  EXPECT_TRUE(win32::SetFilePointerEx(disk, distance, &reached, FILE_BEGIN));
  EXPECT_EQ(reached.QuadPart, distance.QuadPart);
  distance.QuadPart = -1024;
  EXPECT_TRUE(win32::SetFilePointerEx(disk, distance, nullptr, FILE_CURRENT));
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
  LONG high = 0;
  EXPECT_EQ(win32::SetFilePointer(disk, 0, &high, FILE_CURRENT), 0xFFFFFC00u);
  EXPECT_EQ(high, 4);
}

TEST_F(Win32SeekTest, ARefusalMovesNothingAndWritesNoPosition) {
  AttachGpt(1, {});
  const HANDLE disk = Open("\\\\.\\PhysicalDrive1");
  LARGE_INTEGER distance{};
  LARGE_INTEGER reached{};
  reached.QuadPart = 99;
  distance.QuadPart = -1;
  EXPECT_FALSE(win32::SetFilePointerEx(disk, distance, &reached, FILE_BEGIN));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NEGATIVE_SEEK});
  machine_.calls().FailOn("SetFilePointerEx/disk 1", 1, ERROR_GEN_FAILURE);
  distance.QuadPart = 512;
  EXPECT_FALSE(win32::SetFilePointerEx(disk, distance, &reached, FILE_BEGIN));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_GEN_FAILURE});
  EXPECT_EQ(reached.QuadPart, 99);
  EXPECT_FALSE(win32::SetFilePointerEx(nullptr, distance, &reached, FILE_BEGIN));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

}  // namespace
}  // namespace testing_support
