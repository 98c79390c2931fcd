// Streams of the C runtime: their modes, their positions, their failures.
#include <cerrno>
#include <fstream>
#include <string>
#include <string_view>

#include "simulator/seam_fixture.h"
#include "simulator/system.h"

namespace testing_support {
namespace {

class Win32StreamsTest : public SeamTest {
 protected:
  void SetContent(std::string_view content) const {
    std::ofstream(folder_.path() / "file", std::ios::binary) << content;
  }
  std::string Content() const { return testing_support::TextOf(folder_.path() / "file"); }
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

TEST_F(Win32StreamsTest, TextModeKeepsACarriageReturnAtTheEnd) {
  SetContent("one\r\nend\r");
  EXPECT_EQ(Text("r"), "one\nend\r");
  EXPECT_EQ(Text("rt"), "one\nend\r");
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
  EXPECT_EQ(errno_of("Q:\\absent"), ENOENT);
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

TEST_F(Win32StreamsTest, SeekInOnePieceFailsOnDemandAndWritesNoPosition) {
  AttachGpt(1, {});
  const HANDLE disk = Open("\\\\.\\PhysicalDrive1");
  LARGE_INTEGER distance{};
  LARGE_INTEGER reached{};
  reached.QuadPart = 99;
  machine_.calls().FailOn("SetFilePointerEx/disk 1", 1, ERROR_GEN_FAILURE);
  EXPECT_FALSE(win32::SetFilePointerEx(disk, distance, &reached, FILE_BEGIN));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_GEN_FAILURE});
  EXPECT_EQ(reached.QuadPart, 99);
}

}  // namespace
}  // namespace testing_support
