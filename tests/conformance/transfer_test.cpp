// Reading, writing, positions and control codes.
#include "conformance/conformance_fixture.h"

namespace conformance {
namespace {

class SeamTransfer : public ConformanceTest {
 protected:
  SeamTransfer() { WriteText("file", "0123456789"); }

  HANDLE OpenFile(DWORD access) const { return Open(Path("file"), access, OPEN_EXISTING); }
};

TEST_F(SeamTransfer, ReadMovesThePosition) {
  const File file(OpenFile(GENERIC_READ));
  char text[4] = {};
  DWORD done = 0;
  ASSERT_TRUE(win32::ReadFile(file.get(), text, 4, &done, nullptr));
  EXPECT_EQ(done, 4u);
  EXPECT_EQ(std::string(text, 4), "0123");
  EXPECT_EQ(ReadRest(file), "456789");
}

TEST_F(SeamTransfer, ReadAtTheEndSucceedsWithNothing) {
  const File file(OpenFile(GENERIC_READ));
  EXPECT_EQ(win32::SetFilePointer(file.get(), 0, nullptr, FILE_END), 10u);
  char text[4] = {};
  DWORD done = 99;
  win32::SetLastError(kUntouched);
  EXPECT_TRUE(win32::ReadFile(file.get(), text, 4, &done, nullptr));
  EXPECT_EQ(done, 0u);
  EXPECT_EQ(win32::GetLastError(), kUntouched);
}

TEST_F(SeamTransfer, ReadAcrossTheEndIsCut) {
  const File file(OpenFile(GENERIC_READ));
  EXPECT_EQ(win32::SetFilePointer(file.get(), 8, nullptr, FILE_BEGIN), 8u);
  char text[4] = {};
  DWORD done = 0;
  EXPECT_TRUE(win32::ReadFile(file.get(), text, 4, &done, nullptr));
  EXPECT_EQ(done, 2u);
  EXPECT_EQ(std::string(text, 2), "89");
}

TEST_F(SeamTransfer, WriteReplacesAtThePositionAndLeavesTheLastError) {
  {
    const File file(OpenFile(GENERIC_READ | GENERIC_WRITE));
    EXPECT_EQ(win32::SetFilePointer(file.get(), 2, nullptr, FILE_BEGIN), 2u);
    DWORD done = 0;
    win32::SetLastError(kUntouched);
    ASSERT_TRUE(win32::WriteFile(file.get(), "ab", 2, &done, nullptr));
    EXPECT_EQ(done, 2u);
    EXPECT_EQ(win32::GetLastError(), kUntouched);
  }
  EXPECT_EQ(ReadText("file"), "01ab456789");
}

TEST_F(SeamTransfer, AccessIsWhatTheOpenAskedFor) {
  char text[4] = {};
  DWORD done = 99;
  const File reader(OpenFile(GENERIC_READ));
  EXPECT_FALSE(win32::WriteFile(reader.get(), "ab", 2, &done, nullptr));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(done, 0u);
  const File writer(OpenFile(GENERIC_WRITE));
  done = 99;
  EXPECT_FALSE(win32::ReadFile(writer.get(), text, 4, &done, nullptr));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(done, 0u);
}

TEST_F(SeamTransfer, OnePieceCountsFromBeginCurrentAndEnd) {
  const File file(OpenFile(GENERIC_READ));
  const auto reached = [&file](LONGLONG distance, DWORD method) {
    LARGE_INTEGER by;
    LARGE_INTEGER position;
    by.QuadPart = distance;
    position.QuadPart = -1;
    EXPECT_TRUE(win32::SetFilePointerEx(file.get(), by, &position, method));
    return position.QuadPart;
  };
  win32::SetLastError(kUntouched);
  EXPECT_EQ(reached(3, FILE_BEGIN), 3);
  EXPECT_EQ(reached(4, FILE_CURRENT), 7);
  EXPECT_EQ(reached(-2, FILE_CURRENT), 5);
  EXPECT_EQ(reached(LONGLONG{5} << 32, FILE_BEGIN), LONGLONG{5} << 32);
  EXPECT_EQ(reached(-1, FILE_END), 9);
  EXPECT_EQ(win32::GetLastError(), kUntouched);
  EXPECT_EQ(ReadRest(file), "9");
}

TEST_F(SeamTransfer, OnePieceNeedsNoPlaceForThePosition) {
  const File file(OpenFile(GENERIC_READ));
  LARGE_INTEGER by;
  by.QuadPart = 8;
  EXPECT_TRUE(win32::SetFilePointerEx(file.get(), by, nullptr, FILE_BEGIN));
  EXPECT_EQ(ReadRest(file), "89");
}

TEST_F(SeamTransfer, OnePieceBeforeTheStartIsError131AndMovesNothing) {
  const File file(OpenFile(GENERIC_READ));
  LARGE_INTEGER by;
  by.QuadPart = 4;
  ASSERT_TRUE(win32::SetFilePointerEx(file.get(), by, nullptr, FILE_BEGIN));
  by.QuadPart = -5;
  LARGE_INTEGER position;
  position.QuadPart = 99;
  EXPECT_FALSE(win32::SetFilePointerEx(file.get(), by, &position, FILE_CURRENT));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NEGATIVE_SEEK});
  EXPECT_EQ(position.QuadPart, 99);
  EXPECT_FALSE(win32::SetFilePointerEx(file.get(), by, &position, 3));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(ReadRest(file), "456789");
}

TEST_F(SeamTransfer, PositionsCountFromBeginCurrentAndEnd) {
  const File file(OpenFile(GENERIC_READ));
  EXPECT_EQ(win32::SetFilePointer(file.get(), 3, nullptr, FILE_BEGIN), 3u);
  EXPECT_EQ(win32::SetFilePointer(file.get(), 4, nullptr, FILE_CURRENT), 7u);
  EXPECT_EQ(win32::SetFilePointer(file.get(), -2, nullptr, FILE_CURRENT), 5u);
  EXPECT_EQ(win32::SetFilePointer(file.get(), -1, nullptr, FILE_END), 9u);
  EXPECT_EQ(ReadRest(file), "9");
}

TEST_F(SeamTransfer, UpperHalfOfThePositionComesBack) {
  const File file(OpenFile(GENERIC_READ));
  LONG high = 3;
  win32::SetLastError(kUntouched);
  EXPECT_EQ(win32::SetFilePointer(file.get(), 5, &high, FILE_BEGIN), 5u);
  EXPECT_EQ(high, 3);
  EXPECT_EQ(win32::GetLastError(), kUntouched);
  // One back from 0x3'0000'0005 by 6 crosses into the half below.
  high = -1;
  EXPECT_EQ(win32::SetFilePointer(file.get(), -6, &high, FILE_CURRENT), 0xFFFFFFFFu);
  EXPECT_EQ(high, 2);
}

TEST_F(SeamTransfer, LowerHalfCountsAsUnsignedBesideAnUpperOne) {
  const File file(OpenFile(GENERIC_READ));
  LONG high = 0;
  EXPECT_EQ(win32::SetFilePointer(file.get(), static_cast<LONG>(0x8000'0000), &high, FILE_BEGIN),
            0x8000'0000u);
  EXPECT_EQ(high, 0);
}

TEST_F(SeamTransfer, NegativePositionIsError131AndMovesNothing) {
  const File file(OpenFile(GENERIC_READ));
  EXPECT_EQ(win32::SetFilePointer(file.get(), 3, nullptr, FILE_BEGIN), 3u);
  EXPECT_EQ(win32::SetFilePointer(file.get(), -1, nullptr, FILE_BEGIN),
            DWORD{INVALID_SET_FILE_POINTER});
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NEGATIVE_SEEK});
  LONG high = -1;
  EXPECT_EQ(win32::SetFilePointer(file.get(), -4, &high, FILE_CURRENT),
            DWORD{INVALID_SET_FILE_POINTER});
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NEGATIVE_SEEK});
  EXPECT_EQ(ReadRest(file), "3456789");
}

TEST_F(SeamTransfer, FlushWantsTheRightToWriteAndLeavesTheLastError) {
  const File writer(OpenFile(GENERIC_WRITE));
  DWORD done = 0;
  ASSERT_TRUE(win32::WriteFile(writer.get(), "ab", 2, &done, nullptr));
  win32::SetLastError(kUntouched);
  EXPECT_TRUE(win32::FlushFileBuffers(writer.get()));
  EXPECT_EQ(win32::GetLastError(), kUntouched);
  EXPECT_EQ(ReadText("file"), "ab23456789");
  const File reader(OpenFile(GENERIC_READ));
  EXPECT_FALSE(win32::FlushFileBuffers(reader.get()));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(SeamTransfer, ClosedHandleIsError6ForEveryOperation) {
  const HANDLE handle = OpenFile(GENERIC_READ | GENERIC_WRITE);
  ASSERT_TRUE(win32::CloseHandle(handle));
  char bytes[8] = {};
  DWORD done = 99;
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::ReadFile(handle, bytes, 4, &done, nullptr));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_EQ(done, 0u);
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::WriteFile(handle, bytes, 4, &done, nullptr));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  win32::SetLastError(kUntouched);
  EXPECT_EQ(win32::SetFilePointer(handle, 0, nullptr, FILE_BEGIN), DWORD{INVALID_SET_FILE_POINTER});
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::SetFilePointerEx(handle, LARGE_INTEGER(), nullptr, FILE_BEGIN));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::FlushFileBuffers(handle));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::DeviceIoControl(handle, IOCTL_DISK_UPDATE_PROPERTIES, nullptr, 0, nullptr, 0,
                                      &done, nullptr));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST_F(SeamTransfer, InvalidHandleValueTakesNoControlCode) {
  DWORD done = 0;
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::DeviceIoControl(INVALID_HANDLE_VALUE, IOCTL_DISK_UPDATE_PROPERTIES, nullptr,
                                      0, nullptr, 0, &done, nullptr));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_HANDLE});
}

TEST_F(SeamTransfer, FileKnowsNoDiskControlCode) {
  const File file(OpenFile(GENERIC_READ | GENERIC_WRITE));
  DWORD done = 0;
  win32::SetLastError(kUntouched);
  EXPECT_FALSE(win32::DeviceIoControl(file.get(), IOCTL_DISK_UPDATE_PROPERTIES, nullptr, 0, nullptr,
                                      0, &done, nullptr));
  // Wine calls a code that a file does not know "not supported" (50).
  if (!Machine::IsWine()) {
    EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_FUNCTION});
  }
}

}  // namespace
}  // namespace conformance
