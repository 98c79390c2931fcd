// The backup module's own transfers.
#include "backup/raw_disk.h"

#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <span>
#include <string>

#include "platform/win32.h"
#include "simulator/handle_object.h"
#include "support/machine_fixture.h"

#ifndef _WIN32
#include <sys/mman.h>
#endif

namespace velkora {
namespace {

using namespace testing_support;

class RawDisk : public MachineTest {
 protected:
  RawDisk() : disk_(NewDisk(1, 1 << 20)), handle_(OpenDisk("\\\\.\\PhysicalDrive1", "Test")) {}
  ~RawDisk() override { win32::CloseHandle(handle_); }

  simulator::Disk& disk_;
  HANDLE handle_;
};

TEST_F(RawDisk, WritesAtItsPlace) {
  std::array<std::byte, 512> sector;
  sector.fill(std::byte{7});
  EXPECT_EQ(WriteAt(handle_, 1024, sector), 512u);
  EXPECT_EQ(ReadBytes(disk_, 1024, 512), std::vector<std::byte>(512, std::byte{7}));
}

TEST_F(RawDisk, PlaceThatIsNotReachedTakesNothing) {
  const std::array<std::byte, 512> sector{};
  machine_.calls().FailOn("SetFilePointerEx");
  EXPECT_EQ(WriteAt(handle_, 1024, sector), 0u);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 0u);
}

// A device that moves everything and reports a failure.
class ComplainingDevice : public simulator::HandleObject {
 public:
  std::string Describe() const override { return "complaining device"; }
  DWORD Read(std::span<std::byte> buffer, DWORD& done) override {
    done = static_cast<DWORD>(buffer.size());
    return 1117;
  }
  DWORD Write(std::span<const std::byte> data, DWORD& done) override {
    done = static_cast<DWORD>(data.size());
    return 1117;
  }
  DWORD Seek(std::int64_t distance, DWORD, std::uint64_t& position) override {
    position = static_cast<std::uint64_t>(distance);
    return ERROR_SUCCESS;
  }
};

// A device whose position comes out one sector further on.
class DriftingDevice : public ComplainingDevice {
 public:
  DWORD Seek(std::int64_t distance, DWORD, std::uint64_t& position) override {
    position = static_cast<std::uint64_t>(distance) + 512;
    return ERROR_SUCCESS;
  }
};

// A device that moves half of what is asked for and calls it a success.
class HalvingDevice : public ComplainingDevice {
 public:
  DWORD Read(std::span<std::byte> buffer, DWORD& done) override {
    done = static_cast<DWORD>(buffer.size() / 2);
    return ERROR_SUCCESS;
  }
  DWORD Write(std::span<const std::byte> data, DWORD& done) override {
    done = static_cast<DWORD>(data.size() / 2);
    return ERROR_SUCCESS;
  }
};

TEST_F(RawDisk, HalfIsCountedAndIsNotAll) {
  HANDLE device = machine_.handles().Add(std::make_unique<HalvingDevice>());
  std::array<std::byte, 512> sector{};
  EXPECT_EQ(ReadAt(device, 1024, sector), 256u);
  EXPECT_FALSE(ReadAllAt(device, 1024, sector));
  EXPECT_EQ(WriteAt(device, 1024, sector), 256u);
}

TEST_F(RawDisk, CountDecidesWhateverTheCallSays) {
  HANDLE device = machine_.handles().Add(std::make_unique<ComplainingDevice>());
  std::array<std::byte, 512> sector{};
  EXPECT_EQ(ReadHere(device, sector), 512u);
  EXPECT_EQ(ReadAt(device, 1024, sector), 512u);
  EXPECT_TRUE(ReadAllAt(device, 1024, sector));
  EXPECT_EQ(WriteAt(device, 1024, sector), 512u);
}

TEST_F(RawDisk, OtherPlaceThanAskedForTakesNothing) {
  HANDLE device = machine_.handles().Add(std::make_unique<DriftingDevice>());
  std::array<std::byte, 512> sector{};
  machine_.calls().Clear();
  EXPECT_EQ(ReadAt(device, 1024, sector), 0u);
  EXPECT_FALSE(ReadAllAt(device, 1024, sector));
  EXPECT_EQ(WriteAt(device, 1024, sector), 0u);
  EXPECT_EQ(machine_.calls().Count("SetFilePointerEx"), 3u);
  EXPECT_EQ(machine_.calls().calls().size(), 3u);
}

#ifndef _WIN32
// Memory that is reserved and never touched, but for its beginning.
TEST_F(RawDisk, LengthOfMoreThan32BitsIsCutAndComesBackShort) {
  constexpr std::size_t kLength = (std::size_t{1} << 32) + 512;
  void* memory =
      mmap(nullptr, kLength, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  EXPECT_EQ(WriteAt(handle_, 0, {static_cast<const std::byte*>(memory), kLength}), 512u);
  EXPECT_EQ(machine_.calls().calls().back().arguments, "offset 0 length 512");
  munmap(memory, kLength);
}
#endif

}  // namespace
}  // namespace velkora
