// The device setup services: the disks by their interface paths.
#include <array>
#include <cctype>

#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

constexpr GUID kDiskClass = {
    0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
constexpr std::string_view kClassText = "{53f56307-b6bf-11d0-94f2-00a0c91efb8b}";

class DiskSetup : public DiskTest {
 protected:
  DiskSetup()
      : set_(win32::SetupDiGetClassDevsW(&kDiskClass, nullptr, nullptr,
                                         DIGCF_PRESENT | DIGCF_DEVICEINTERFACE)) {
    const DWORD fixed = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A);
    std::memcpy(detail_.data(), &fixed, sizeof fixed);
  }

  bool Enumerate(DWORD index, SP_DEVICE_INTERFACE_DATA& data) const {
    data = SP_DEVICE_INTERFACE_DATA();
    data.cbSize = sizeof data;
    return win32::SetupDiEnumDeviceInterfaces(set_, nullptr, &kDiskClass, index, &data) != FALSE;
  }
  bool Detail(SP_DEVICE_INTERFACE_DATA& data, DWORD room, DWORD& required) {
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(detail_.data());
    return win32::SetupDiGetDeviceInterfaceDetailA(set_, &data, detail, room, &required, nullptr) !=
           FALSE;
  }
  // The paths of all, in the order of the walk.
  std::vector<std::string> Paths() {
    std::vector<std::string> paths;
    SP_DEVICE_INTERFACE_DATA data;
    for (DWORD index = 0; Enumerate(index, data); ++index) {
      DWORD required = 0;
      EXPECT_TRUE(Detail(data, sizeof detail_, required));
      paths.emplace_back(detail_.data() + offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath));
      EXPECT_EQ(required,
                offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_A, DevicePath) + paths.back().size() + 1);
    }
    EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NO_MORE_ITEMS});
    return paths;
  }

  HDEVINFO set_;
  alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_A) std::array<char, 2048> detail_{};
};

TEST_F(DiskSetup, WalkHasTheDiskUnderAPathThatOpensIt) {
  bool found = false;
  for (const std::string& path : Paths()) {
    const File disk(Open(path, GENERIC_READ, OPEN_EXISTING));
    const Answer answer =
        Ask(disk, IOCTL_STORAGE_GET_DEVICE_NUMBER, {}, sizeof(STORAGE_DEVICE_NUMBER));
    if (answer.error != ERROR_SUCCESS) continue;
    const auto number = LoadAt<STORAGE_DEVICE_NUMBER>(answer.bytes);
    found = found || number.DeviceNumber == machine_.spare_disk();
  }
  EXPECT_TRUE(found);
}

TEST_F(DiskSetup, PathBeginsWithThePrefixAndEndsWithTheClass) {
  const std::vector<std::string> paths = Paths();
  ASSERT_FALSE(paths.empty());
  for (std::string path : paths) {
    for (char& c : path) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_TRUE(path.starts_with("\\\\?\\")) << path;
    EXPECT_TRUE(path.ends_with(kClassText)) << path;
  }
}

TEST_F(DiskSetup, PathThatDoesNotFitIsError122WithTheSizeNeeded) {
  SP_DEVICE_INTERFACE_DATA data;
  ASSERT_TRUE(Enumerate(0, data));
  DWORD required = 0;
  EXPECT_FALSE(Detail(data, sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_A), required));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INSUFFICIENT_BUFFER});
  DWORD again = 0;
  EXPECT_TRUE(Detail(data, required, again));
  EXPECT_EQ(again, required);
}

TEST_F(DiskSetup, StructureOfAnotherSizeIsError1784) {
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof data - 1;
  EXPECT_FALSE(win32::SetupDiEnumDeviceInterfaces(set_, nullptr, &kDiskClass, 0, &data));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_USER_BUFFER});
}

}  // namespace
}  // namespace conformance
