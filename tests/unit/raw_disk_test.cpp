// The backup module's own transfers.
#include "backup/raw_disk.h"

#include <array>
#include <gtest/gtest.h>

#include "platform/win32.h"
#include "support/machine_test.h"

#ifndef _WIN32
#include <sys/mman.h>
#endif

namespace velkora {
namespace {

class RawDisk : public testing_support::MachineTest {
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
  EXPECT_EQ(testing_support::ReadBytes(disk_, 1024, 512),
            std::vector<std::byte>(512, std::byte{7}));
}

TEST_F(RawDisk, PlaceThatIsNotReachedTakesNothing) {
  const std::array<std::byte, 512> sector{};
  machine_.calls().FailOn("SetFilePointerEx");
  EXPECT_EQ(WriteAt(handle_, 1024, sector), 0u);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 0u);
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
