#include "conformance/disk/disk_fixture.h"

#include "platform/clock.h"

namespace conformance {
namespace {

constexpr DWORD kPause = 250;   // milliseconds
constexpr int kPatience = 120;  // pauses

std::string WithoutBackslash(const std::string& root) {
  return root.substr(0, root.size() - 1);
}

HANDLE OpenDevice(const std::string& path, DWORD access, DWORD flags = 0) {
  return win32::CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, flags, nullptr);
}

}  // namespace

void DiskTest::SetUp() {
  ASSERT_EQ(Diskpart("clean\r\n"), 0u) << ReadText("diskpart.txt");
  const Answer answer =
      Ask(OpenDisk(), IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, {}, sizeof(DISK_GEOMETRY_EX));
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  const auto geometry = LoadAt<DISK_GEOMETRY_EX>(answer.bytes);
  sector_count_ = static_cast<std::uint64_t>(geometry.DiskSize.QuadPart) / kSector;
}

bool DiskTest::WaitUntil(const std::function<bool()>& holds) {
  for (int i = 0; i < kPatience; ++i) {
    if (holds()) return true;
    win32::Sleep(kPause);
  }
  return holds();
}

// Nothing of a test is left to be found by the system at its next start.
void DiskTest::TearDown() {
  EXPECT_EQ(Diskpart("clean\r\n"), 0u);
}

File DiskTest::OpenDisk(DWORD access) const {
  return File(OpenDevice("\\\\.\\PhysicalDrive" + std::to_string(machine_.spare_disk()), access));
}

File DiskTest::OpenVolume(const std::string& root, DWORD access) {
  HANDLE handle = INVALID_HANDLE_VALUE;
  WaitUntil([&] {
    handle = OpenDevice(WithoutBackslash(root), access);
    return handle != INVALID_HANDLE_VALUE;
  });
  EXPECT_NE(handle, INVALID_HANDLE_VALUE) << root;
  return File(handle);
}

File DiskTest::OpenOn(const std::string& root, const std::string& name) {
  const HANDLE handle = OpenDevice(root + name, GENERIC_READ, FILE_FLAG_BACKUP_SEMANTICS);
  EXPECT_NE(handle, INVALID_HANDLE_VALUE) << root << name;
  return File(handle);
}

Answer DiskTest::Ask(const File& device, DWORD code, Bytes in, std::size_t room) {
  Answer answer;
  answer.bytes.resize(room);
  DWORD returned = 0;
  win32::SetLastError(kUntouched);
  const bool done = win32::DeviceIoControl(device.get(), code, in.empty() ? nullptr : in.data(),
                                           static_cast<DWORD>(in.size()),
                                           room == 0 ? nullptr : answer.bytes.data(),
                                           static_cast<DWORD>(room), &returned, nullptr) != FALSE;
  answer.error = done ? DWORD{ERROR_SUCCESS} : win32::GetLastError();
  answer.bytes.resize(returned);
  return answer;
}

DWORD DiskTest::Lock(const File& volume) {
  DWORD error = ERROR_SUCCESS;
  WaitUntil([&] {
    error = Ask(volume, FSCTL_LOCK_VOLUME).error;
    return error == ERROR_SUCCESS;
  });
  return error;
}

Answer DiskTest::Read(const File& device, std::uint64_t offset, std::size_t length) {
  Answer answer;
  LARGE_INTEGER position;
  position.QuadPart = static_cast<LONGLONG>(offset);
  DWORD done = 0;
  answer.bytes.resize(length);
  const bool read = win32::SetFilePointerEx(device.get(), position, nullptr, FILE_BEGIN) &&
                    win32::ReadFile(device.get(), answer.bytes.data(), static_cast<DWORD>(length),
                                    &done, nullptr);
  answer.error = read ? DWORD{ERROR_SUCCESS} : win32::GetLastError();
  answer.bytes.resize(done);
  return answer;
}

DWORD DiskTest::Write(const File& device, std::uint64_t offset, const Bytes& bytes) {
  LARGE_INTEGER position;
  position.QuadPart = static_cast<LONGLONG>(offset);
  DWORD done = 0;
  const bool written = win32::SetFilePointerEx(device.get(), position, nullptr, FILE_BEGIN) &&
                       win32::WriteFile(device.get(), bytes.data(),
                                        static_cast<DWORD>(bytes.size()), &done, nullptr);
  if (!written) return win32::GetLastError();
  EXPECT_EQ(done, bytes.size());
  return ERROR_SUCCESS;
}

DWORD DiskTest::Rewrite(const File& device, std::uint64_t offset, std::size_t length) {
  const Answer before = Read(device, offset, length);
  EXPECT_EQ(before.error, DWORD{ERROR_SUCCESS}) << offset;
  EXPECT_EQ(before.bytes.size(), length) << offset;
  return Write(device, offset, before.bytes);
}

Bytes DiskTest::Sectors(std::uint64_t first, std::size_t count) const {
  const Answer answer = Read(OpenDisk(), first * kSector, count * kSector);
  EXPECT_EQ(answer.error, DWORD{ERROR_SUCCESS}) << "sector " << first;
  return answer.bytes;
}

void DiskTest::SetSectors(std::uint64_t first, const Bytes& bytes) const {
  ASSERT_EQ(Write(OpenDisk(), first * kSector, bytes), DWORD{ERROR_SUCCESS}) << "sector " << first;
}

DWORD DiskTest::CreateMbr(DWORD signature) const {
  auto request = CREATE_DISK();
  request.PartitionStyle = PARTITION_STYLE_MBR;
  request.Mbr.Signature = signature;
  return Ask(OpenDisk(), IOCTL_DISK_CREATE_DISK, BytesOf(request)).error;
}

DWORD DiskTest::CreateGpt() const {
  auto request = CREATE_DISK();
  request.PartitionStyle = PARTITION_STYLE_GPT;
  request.Gpt.DiskId = GptRow(kBasicDataType, 0xD1, 0, 0).Gpt.PartitionId;
  request.Gpt.MaxPartitionCount = 128;
  return Ask(OpenDisk(), IOCTL_DISK_CREATE_DISK, BytesOf(request)).error;
}

DWORD DiskTest::SetLayout(const DriveLayout& layout) const {
  return Ask(OpenDisk(), IOCTL_DISK_SET_DRIVE_LAYOUT_EX, ToBytes(layout)).error;
}

DriveLayout DiskTest::GetLayout() const {
  const Answer answer = Ask(OpenDisk(), IOCTL_DISK_GET_DRIVE_LAYOUT_EX, {}, 64 * 1024);
  EXPECT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  return ToLayout(answer.bytes);
}

void DiskTest::UpdateProperties() const {
  EXPECT_EQ(Ask(OpenDisk(), IOCTL_DISK_UPDATE_PROPERTIES).error, DWORD{ERROR_SUCCESS});
}

void DiskTest::MakeMbr(const std::vector<PARTITION_INFORMATION_EX>& rows) const {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(SetLayout(MbrLayout(rows)), DWORD{ERROR_SUCCESS});
}

void DiskTest::MakeGpt(const std::vector<PARTITION_INFORMATION_EX>& rows) const {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  ASSERT_EQ(SetLayout(GptLayout(rows)), DWORD{ERROR_SUCCESS});
}

std::string DiskTest::FindVolume(std::uint64_t offset) const {
  char name[MAX_PATH] = {};
  const HANDLE find = win32::FindFirstVolumeA(name, MAX_PATH);
  if (find == INVALID_HANDLE_VALUE) return "";
  std::string found;
  do {
    // Neither reading nor writing, which asks for no media.
    const File volume(OpenDevice(WithoutBackslash(name), 0));
    if (!volume.is_open()) continue;
    const Answer answer =
        Ask(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, {}, sizeof(VOLUME_DISK_EXTENTS));
    const auto extents = LoadAt<VOLUME_DISK_EXTENTS>(answer.bytes);
    if (answer.error == ERROR_SUCCESS && extents.NumberOfDiskExtents == 1 &&
        extents.Extents[0].DiskNumber == machine_.spare_disk() &&
        static_cast<std::uint64_t>(extents.Extents[0].StartingOffset.QuadPart) == offset) {
      found = name;
    }
  } while (found.empty() && win32::FindNextVolumeA(find, name, MAX_PATH));
  win32::FindVolumeClose(find);
  return found;
}

std::string DiskTest::WaitForVolume(std::uint64_t offset) const {
  std::string root;
  WaitUntil([&] {
    root = FindVolume(offset);
    return !root.empty();
  });
  EXPECT_NE(root, "") << "no volume at byte " << offset;
  return root;
}

void DiskTest::WaitUntilGone(std::uint64_t offset) const {
  EXPECT_TRUE(WaitUntil([&] { return FindVolume(offset).empty(); })) << "volume at " << offset;
}

std::optional<std::string> DiskTest::LettersOf(const std::string& root) {
  char names[MAX_PATH] = {};
  DWORD length = 0;
  if (!win32::GetVolumePathNamesForVolumeNameA(root.c_str(), names, sizeof names, &length)) {
    return std::nullopt;
  }
  std::string letters;
  for (const char* name = names; *name != '\0'; name += std::string_view(name).size() + 1) {
    letters += *name;
  }
  return letters;
}

char DiskTest::WaitForLetter(const std::string& root) {
  std::string letters;
  WaitUntil([&] {
    letters = LettersOf(root).value_or("");
    return !letters.empty();
  });
  EXPECT_EQ(letters.size(), 1u) << root;
  return letters.empty() ? '\0' : letters.front();
}

char DiskTest::FreeLetter() {
  const DWORD used = win32::GetLogicalDrives();
  for (char letter = 'Y'; letter > 'C'; --letter) {
    if ((used >> (letter - 'A') & 1) == 0) return letter;
  }
  ADD_FAILURE() << "every letter is in use";
  return '\0';
}

std::string DiskTest::MakeFat32() const {
  MakeMbr({MbrRow(0x0C, kSectorsPerMiB, 100 * kSectorsPerMiB)});
  WaitForVolume(kMiB);
  EXPECT_EQ(Diskpart("select partition 1\r\nformat fs=fat32 quick override\r\n"), 0u)
      << ReadText("diskpart.txt");
  return WaitForVolume(kMiB);
}

DWORD DiskTest::Diskpart(std::string_view lines) const {
  return RunDiskpartScript("select disk " + std::to_string(machine_.spare_disk()) + "\r\n" +
                           std::string(lines));
}

DWORD DiskTest::RunDiskpartScript(std::string_view script) const {
  WriteText("diskpart.in", script);
  const std::string line = "diskpart /s " + Path("diskpart.in") + " > " + Path("diskpart.txt");
  return static_cast<DWORD>(win32::system(line.c_str()));
}

}  // namespace conformance
