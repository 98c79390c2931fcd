#include "simulator/commands/chkdsk.h"

#include "simulator/diskpart_fixture.h"
#include "simulator/volume.h"

namespace testing_support {
namespace {

constexpr DWORD kNotChecked = 3;

// What chkdsk and `shrink` refuse before the host's programs come in.
class RefusedNtfsWork : public DiskpartTest {
 protected:
  DWORD Chkdsk(const std::vector<std::string>& arguments) {
    const auto result = simulator::RunChkdsk(machine_.system(), arguments);
    output_ = result.output;
    return result.exit_status;
  }
};

TEST_F(RefusedNtfsWork, ChkdskNeedsAVolumeAndASwitchThatRepairs) {
  EXPECT_EQ(Chkdsk({}), kNotChecked);
  EXPECT_EQ(Chkdsk({"D:"}), kNotChecked);
  EXPECT_EQ(Chkdsk({"D:", "/scan"}), kNotChecked);
  EXPECT_EQ(Chkdsk({"D:", "/x"}), kNotChecked);
  EXPECT_TRUE(Printed("There is no such volume."));
}

TEST_F(RefusedNtfsWork, ChkdskKnowsNtfsAlone) {
  MakeGpt(AttachDisk(512 * kMiB), {{kMiB, 100 * kMiB}});
  const std::string path = machine_.FindVolumeAt(1, kMiB)->path;
  EXPECT_EQ(Chkdsk({path, "/x"}), kNotChecked);
  EXPECT_TRUE(Printed("The volume is not accessible."));
  ASSERT_EQ(RunOnDisk({"select part 1", "format fs=fat32 quick override"}), 0U);
  EXPECT_EQ(Chkdsk({path, "/x"}), kNotChecked);
  EXPECT_TRUE(Printed("The volume is not NTFS."));
  machine_.FindVolumeAt(1, kMiB)->locked = true;
  EXPECT_EQ(Chkdsk({path, "/x"}), kNotChecked);
  EXPECT_TRUE(Printed("The volume is not accessible."));
}

TEST_F(RefusedNtfsWork, ShrinkNeedsASizeAndAnNtfsVolumeInFocus) {
  MakeGpt(AttachDisk(512 * kMiB), {{kMiB, 100 * kMiB}});
  EXPECT_EQ(RunOnDisk({"shrink desired=5"}), kObjectNotFound);
  EXPECT_EQ(RunOnDisk({"select part 1", "shrink desired=0"}), kSyntaxError);
  EXPECT_EQ(RunOnDisk({"select part 1", "shrink desired=x"}), kSyntaxError);
  EXPECT_EQ(RunOnDisk({"select part 1", "shrink minimum=5"}), kSyntaxError);
  EXPECT_EQ(RunOnDisk({"select part 1", "shrink"}), kSyntaxError);
  EXPECT_EQ(RunOnDisk({"select part 1", "shrink desired=5"}), 0x8004251EU);
  ASSERT_EQ(RunOnDisk({"select part 1", "format fs=fat32 quick override"}), 0U);
  EXPECT_EQ(RunOnDisk({"select part 1", "shrink desired=5"}), 0x8004251EU);
  EXPECT_EQ(RunOnDisk({"select part 1", "offline disk", "shrink desired=5"}), kDiskOffline);
}

}  // namespace
}  // namespace testing_support
