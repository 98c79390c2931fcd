#include <cerrno>
#include <fstream>

#include "platform/guard.h"
#include "simulator/disk.h"
#include "simulator/seam_fixture.h"
#include "simulator/volume.h"

namespace testing_support {
namespace {

class Win32FilesTest : public SeamTest {
 protected:
  HANDLE OpenFile(const char* path, DWORD disposition,
                  DWORD access = GENERIC_READ | GENERIC_WRITE) {
    return win32::CreateFileA(path, access, 0, nullptr, disposition, 0, nullptr);
  }

  DWORD OpenError(const char* path, DWORD disposition = OPEN_EXISTING,
                  DWORD access = GENERIC_READ) {
    win32::SetLastError(kUntouchedError);
    EXPECT_EQ(OpenFile(path, disposition, access), INVALID_HANDLE_VALUE);
    return win32::GetLastError();
  }

  void WriteHostFile(std::string_view name, std::string_view text) {
    std::ofstream(folder_.path() / name, std::ios::binary) << text;
  }

  std::string HostFileText(std::string_view name) {
    return testing_support::TextOf(folder_.path() / name);
  }

  // A disk of 8 GiB, for positions beyond 32 bits.
  HANDLE OpenLargeDisk() {
    machine_.AttachDisk(1, NewImage("large.img", 8192 * kMegabyte));
    return Open("\\\\.\\PhysicalDrive1");
  }

  static DWORD SeekError(HANDLE handle, LONG low, LONG* high, DWORD method) {
    win32::SetLastError(kUntouchedError);
    EXPECT_EQ(win32::SetFilePointer(handle, low, high, method), INVALID_SET_FILE_POINTER);
    return win32::GetLastError();
  }
};

TEST_F(Win32FilesTest, NoMachineIsALogicError) {
  // The fixture's machine is current no more once another has come and gone.
  {
    simulator::SimulatedMachine other;
    other.MakeCurrent();
  }
  EXPECT_THROW(win32::GetLogicalDrives(), std::logic_error);
}

TEST_F(Win32FilesTest, OpensDisksVolumesAndLettersInAnyCase) {
  AttachGpt(3, {GptRow(kMegabyte, 8 * kMegabyte, 0xAB)});
  EXPECT_NE(Open("\\\\.\\physicaldrive3"), INVALID_HANDLE_VALUE);
  EXPECT_NE(Open("\\\\.\\c:"), INVALID_HANDLE_VALUE);
  std::string path = GptVolumePath(0xAB);
  path.replace(path.find("abcdef"), 6, "ABCDEF");
  EXPECT_NE(Open(path), INVALID_HANDLE_VALUE);
  EXPECT_EQ(machine_.handles().Open(),
            (std::vector<std::string>{"disk 3", "volume " + GptVolumePath(0xAB),
                                      "volume " + GptVolumePath(0xAB)}));
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
}

TEST_F(Win32FilesTest, UnknownDevicesAreNotFound) {
  AttachGpt(3, {GptRow(kMegabyte, 8 * kMegabyte, 1)});
  EXPECT_EQ(OpenError("\\\\.\\PhysicalDrive1"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenError("\\\\.\\PhysicalDrive"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenError("\\\\.\\PhysicalDrive3x"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenError("\\\\.\\PhysicalDrive99999999999"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenError("\\\\.\\D:"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenError("\\\\.\\X:"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenError("\\\\?\\Volume{00000000-0000-0000-0000-000000000000}"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenError("\\\\.\\nothing"), ERROR_FILE_NOT_FOUND);
}

TEST_F(Win32FilesTest, ATrailingBackslashIsNotTheVolume) {
  AttachGpt(3, {GptRow(kMegabyte, 8 * kMegabyte, 1)});
  constexpr DWORD kUnrecognizedVolume = 1005;
  EXPECT_EQ(OpenError((GptVolumePath(1) + '\\').c_str()), kUnrecognizedVolume);
}

TEST_F(Win32FilesTest, DevicesOpenWithOpenExistingOnly) {
  AttachGpt(3, {GptRow(kMegabyte, 8 * kMegabyte, 1)});
  EXPECT_EQ(OpenError("\\\\.\\PhysicalDrive3", CREATE_ALWAYS), ERROR_INVALID_PARAMETER);
}

TEST_F(Win32FilesTest, TruncationNeedsWriteAccessAndTheDispositionAKnownNumber) {
  WriteHostFile("old.txt", "text");
  EXPECT_EQ(OpenError("X:\\old.txt", TRUNCATE_EXISTING), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(OpenError("X:\\old.txt", 9), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(HostFileText("old.txt"), "text");
}

TEST_F(Win32FilesTest, MissingDriveAndEmptyPathAreError3AndARootIsError5) {
  EXPECT_EQ(OpenError("Q:\\a.txt"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenError(""), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenError("X:\\"), ERROR_ACCESS_DENIED);
}

TEST_F(Win32FilesTest, APositionWithAllLowBitsSetLooksLikeAFailure) {
  const HANDLE disk = OpenLargeDisk();
  LONG high = 1;
  EXPECT_EQ(win32::SetFilePointer(disk, -1, &high, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
  EXPECT_EQ(high, 1);
  high = 0;
  EXPECT_EQ(win32::SetFilePointer(disk, 1, &high, FILE_CURRENT), 0u);
  EXPECT_EQ(high, 2);
}

TEST_F(Win32FilesTest, WithoutAHighHalfAPositionBeyond32BitsIsRefused) {
  const HANDLE disk = OpenLargeDisk();
  LONG high = 0;
  ASSERT_EQ(win32::SetFilePointer(disk, static_cast<LONG>(0xFFFFFF00), &high, FILE_BEGIN),
            0xFFFFFF00u);
  EXPECT_EQ(SeekError(disk, 0x100, nullptr, FILE_CURRENT), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(win32::SetFilePointer(disk, 0, &high, FILE_CURRENT), 0xFFFFFF00u);
}

TEST_F(Win32FilesTest, ASeekBeyond63BitsMovesNothing) {
  const HANDLE disk = OpenLargeDisk();
  win32::SetFilePointer(disk, 0x600, nullptr, FILE_BEGIN);
  LONG high = 0x7FFFFFFF;
  EXPECT_EQ(SeekError(disk, -1, &high, FILE_CURRENT), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(win32::SetFilePointer(disk, 0, nullptr, FILE_CURRENT), 0x600u);
}

TEST_F(Win32FilesTest, CallsAreRecordedWithWhatTheyActOn) {
  machine_.AttachDisk(1, NewImage("raw.img", kMegabyte));
  const HANDLE disk = Open("\\\\.\\PhysicalDrive1", GENERIC_READ);
  std::vector<std::byte> sector(512);
  ReadAt(disk, 1024, sector);
  WriteAt(disk, 0, sector);
  Control(disk, IOCTL_DISK_UPDATE_PROPERTIES);
  Control(disk, 0x70000);
  win32::CloseHandle(disk);
  EXPECT_EQ(
      machine_.calls().Lines(),
      (std::vector<std::string>{
          "CreateFileA/\\\\.\\PhysicalDrive1 access 0x80000000 share 0x3 disposition 3 flags 0x0",
          "SetFilePointer/disk 1 distance 1024 method 0",
          "ReadFile/disk 1 offset 1024 length 512",
          "SetFilePointer/disk 1 distance 0 method 0",
          "WriteFile/disk 1 offset 0 length 512",
          "DeviceIoControl/IOCTL_DISK_UPDATE_PROPERTIES disk 1 in 0 out 0",
          "DeviceIoControl/0x70000 disk 1 in 0 out 0",
          "CloseHandle/disk 1",
      }));
}

TEST_F(Win32FilesTest, AFailedOpenOnDemandOpensNothing) {
  machine_.calls().FailOn("CreateFileA", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError("X:\\new.txt", CREATE_ALWAYS), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(std::filesystem::exists(folder_.path() / "new.txt"));
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Win32FilesTest, FailuresOnDemandHaveNoEffect) {
  simulator::Disk& disk = machine_.AttachDisk(1, NewImage("raw.img", kMegabyte));
  const HANDLE handle = Open("\\\\.\\PhysicalDrive1");
  std::vector<std::byte> ones(512, std::byte{1});

  machine_.calls().FailOn("WriteFile/disk 1", 1, ERROR_WRITE_FAULT);
  EXPECT_EQ(WriteAt(handle, 0, ones), ERROR_WRITE_FAULT);
  EXPECT_EQ(done_, 0u);
  EXPECT_EQ(disk.device().bytes_written(), 0u);

  machine_.calls().FailOn("ReadFile", 1, ERROR_READ_FAULT);
  EXPECT_EQ(ReadAt(handle, 0, ones), ERROR_READ_FAULT);
  EXPECT_EQ(ones[0], std::byte{1});
  EXPECT_EQ(win32::SetFilePointer(handle, 0, nullptr, FILE_CURRENT), 0u);

  machine_.calls().FailOn("SetFilePointer", 1, ERROR_GEN_FAILURE);
  EXPECT_EQ(SeekError(handle, 512, nullptr, FILE_BEGIN), ERROR_GEN_FAILURE);
  EXPECT_EQ(win32::SetFilePointer(handle, 0, nullptr, FILE_CURRENT), 0u);

  machine_.calls().FailOn("CloseHandle", 1, ERROR_GEN_FAILURE);
  EXPECT_FALSE(win32::CloseHandle(handle));
  EXPECT_EQ(machine_.handles().Open().size(), 1u);
}

TEST_F(Win32FilesTest, AFailedControlCodeOnDemandLeavesTheTable) {
  AttachGpt(1, {GptRow(kMegabyte, 8 * kMegabyte, 1)});
  const HANDLE handle = Open("\\\\.\\PhysicalDrive1");
  machine_.calls().FailOn("DeviceIoControl/IOCTL_DISK_CREATE_DISK", 1, ERROR_ACCESS_DENIED);
  CREATE_DISK request{};
  DWORD returned = 0;
  EXPECT_FALSE(win32::DeviceIoControl(handle, IOCTL_DISK_CREATE_DISK, &request, sizeof request,
                                      nullptr, 0, &returned, nullptr));
  EXPECT_EQ(win32::GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_EQ(machine_.volumes().size(), 1u);
}

TEST_F(Win32FilesTest, FilesOfTheRuntimeAreWrittenOnTheHost) {
  std::FILE* file = nullptr;
  ASSERT_EQ(win32::_wfopen_s(&file, WIDE("X:\\a.txt"), WIDE("wb+")), 0);
  EXPECT_EQ(win32::fwrite("text", 1, 4, file), 4u);
  EXPECT_EQ(win32::fclose(file), 0);
  EXPECT_EQ(HostFileText("a.txt"), "text");
  EXPECT_EQ(machine_.calls().Lines(),
            (std::vector<std::string>{"_wfopen_s/a.txt wb+", "fwrite 4 of 1 bytes", "fclose"}));
}

TEST_F(Win32FilesTest, OpeningAFileOfTheRuntimeReportsErrno) {
  std::FILE* file = nullptr;
  EXPECT_EQ(win32::_wfopen_s(&file, WIDE("Q:\\a.txt"), WIDE("wb+")), ENOENT);
  EXPECT_EQ(win32::_wfopen_s(&file, nullptr, WIDE("wb+")), EINVAL);
  EXPECT_EQ(win32::_wfopen_s(nullptr, WIDE("X:\\a.txt"), WIDE("wb+")), EINVAL);
  EXPECT_EQ(file, nullptr);
}

TEST_F(Win32FilesTest, FilesOfTheRuntimeFailOnDemand) {
  std::FILE* file = nullptr;
  machine_.calls().FailOn("_wfopen_s/a.txt");
  EXPECT_EQ(win32::_wfopen_s(&file, WIDE("X:\\a.txt"), WIDE("wb+")), EACCES);
  EXPECT_EQ(file, nullptr);
  EXPECT_FALSE(std::filesystem::exists(folder_.path() / "a.txt"));
  machine_.calls().FailOn("_wfopen_s", 1, ENOSPC);
  EXPECT_EQ(win32::_wfopen_s(&file, WIDE("X:\\a.txt"), WIDE("wb+")), ENOSPC);

  ASSERT_EQ(win32::_wfopen_s(&file, WIDE("X:\\a.txt"), WIDE("wb+")), 0);
  machine_.calls().FailOn("fwrite", 1, ERROR_DISK_FULL);
  EXPECT_EQ(win32::fwrite("text", 1, 4, file), 0u);
  EXPECT_EQ(win32::GetLastError(), ERROR_DISK_FULL);
  machine_.calls().FailOn("fclose");
  EXPECT_EQ(win32::fclose(file), EOF);
  EXPECT_EQ(HostFileText("a.txt"), "");
}

TEST_F(Win32FilesTest, TimeIsTheMachines) {
  machine_.SetTime(1'234'567'890'123);
  std::int64_t seconds = 0;
  EXPECT_EQ(win32::time(&seconds), 1'234'567'890'123);
  EXPECT_EQ(seconds, 1'234'567'890'123);
  machine_.calls().FailOn("time");
  EXPECT_EQ(win32::time(&seconds), -1);
  EXPECT_EQ(seconds, 1'234'567'890'123);
  EXPECT_EQ(win32::time(nullptr), 1'234'567'890'123);
}

TEST_F(Win32FilesTest, GuidsDifferAndRepeatWithTheSeed) {
  GUID first{};
  GUID second{};
  GUID again{};
  machine_.SetGuidSeed(5);
  EXPECT_EQ(win32::CoCreateGuid(&first), S_OK);
  EXPECT_EQ(win32::CoCreateGuid(&second), S_OK);
  EXPECT_NE(first.Data1, second.Data1);
  EXPECT_EQ(first.Data3 >> 12, 4);
  EXPECT_EQ(first.Data4[0] >> 6, 2);
  machine_.SetGuidSeed(5);
  EXPECT_EQ(win32::CoCreateGuid(&again), S_OK);
  EXPECT_EQ(first.Data1, again.Data1);

  const GUID before = again;
  machine_.calls().FailOn("CoCreateGuid");
  EXPECT_EQ(win32::CoCreateGuid(&again), static_cast<HRESULT>(0x80004005));
  EXPECT_EQ(win32::GetLastError(), ERROR_GEN_FAILURE);
  EXPECT_EQ(again.Data1, before.Data1);
}

TEST_F(Win32FilesTest, FlushesWhatIsOpenForWriting) {
  AttachGpt(1, {GptRow(kMegabyte, 8 * kMegabyte, 1)}, {kMegabyte});
  const HANDLE handles[] = {Open("\\\\.\\PhysicalDrive1"), Open(GptVolumePath(1)),
                            OpenFile("X:\\a.txt", CREATE_NEW)};
  for (const HANDLE handle : handles) EXPECT_TRUE(win32::FlushFileBuffers(handle));
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
  for (const HANDLE handle :
       {Open("\\\\.\\PhysicalDrive1", GENERIC_READ), Open(GptVolumePath(1), GENERIC_READ),
        OpenFile("X:\\a.txt", OPEN_EXISTING, GENERIC_READ)}) {
    EXPECT_FALSE(win32::FlushFileBuffers(handle));
    EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_ACCESS_DENIED});
  }
}

TEST_F(Win32FilesTest, FlushIsRecordedAndFailsOnDemand) {
  const HANDLE file = OpenFile("X:\\a.txt", CREATE_NEW);
  machine_.calls().Clear();
  machine_.calls().FailOn("FlushFileBuffers/file a.txt", 2, ERROR_WRITE_FAULT);
  EXPECT_TRUE(win32::FlushFileBuffers(file));
  EXPECT_FALSE(win32::FlushFileBuffers(file));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_WRITE_FAULT});
  EXPECT_EQ(machine_.calls().Lines(), (std::vector<std::string>{"FlushFileBuffers/file a.txt",
                                                                "FlushFileBuffers/file a.txt"}));
}

TEST_F(Win32FilesTest, FlushOfADismountedVolumeIsError21) {
  AttachGpt(1, {GptRow(kMegabyte, 8 * kMegabyte, 1)}, {kMegabyte});
  const HANDLE volume = Open(GptVolumePath(1));
  ASSERT_EQ(Control(Open(GptVolumePath(1)), FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
  EXPECT_FALSE(win32::FlushFileBuffers(volume));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NOT_READY});
}

}  // namespace
}  // namespace testing_support
