// A table that the library has renumbered, judged by sfdisk.
#include "disk/device_handle.h"
#include "disk/reidentify.h"
#include "simulator/tools/sfdisk_table.h"
#include "support/machine_fixture.h"
#include "support/tools/run_tool.h"

namespace testing_support {
namespace {

class RenumberTools : public MachineTest {
 protected:
  // Has sfdisk make the table, renumbers it, and expects every start, length and type to stay.
  void ExpectUnchanged(const std::string& script) {
    const auto image = NewImage("disk.img", 256 * kMiB);
    const ToolResult made = RunTool({"sfdisk", "--quiet", image.string()}, script);
    ASSERT_EQ(made.exit_status, 0) << made.output;
    const auto before = simulator::storage_testing::SfdiskList(image);
    machine_.AttachDisk(1, image);
    HANDLE disk = velkora::GetDeviceHandleById("\\\\.\\PhysicalDrive1");
    EXPECT_TRUE(velkora::RenumberPartitions(disk));
    velkora::CloseDeviceHandle(disk);
    EXPECT_EQ(simulator::storage_testing::SfdiskList(image), before);
    const ToolResult verified = RunTool({"sfdisk", "--verify", image.string()});
    EXPECT_EQ(verified.exit_status, 0) << verified.output;
  }
  // The numbers of the lines that begin so, in their order.
  std::vector<std::string> Numbers(const std::string& when) const {
    std::vector<std::string> numbers;
    const std::string begin = when + " part number: ";
    for (const std::string& line : Lines(1)) {
      if (line.starts_with(begin)) numbers.push_back(line.substr(begin.size(), 1));
    }
    return numbers;
  }
};

TEST_F(RenumberTools, MbrRowsOutOfOrder) {
  ExpectUnchanged(
      "label: dos\nstart=262144, size=40960, type=7, bootable\nstart=2048, size=40960, type=c\n"
      "start=81920, size=81920, type=83\n");
  EXPECT_EQ(Numbers("now"), (std::vector<std::string>{"3", "1", "2"}));
}

TEST_F(RenumberTools, MbrWithLogicalsInFrontOfAPrimary) {
  ExpectUnchanged(
      "label: dos\n1: start=409600, size=40960, type=7\n2: start=2048, size=40960, type=7\n"
      "3: start=81920, size=245760, type=5\n5: start=83968, size=40960, type=7\n"
      "6: start=131072, size=40960, type=b\n");
  EXPECT_EQ(Numbers("before"), (std::vector<std::string>{"1", "2", "3", "4"}));
  EXPECT_EQ(Numbers("now"), (std::vector<std::string>{"4", "1", "2", "3"}));
}

TEST_F(RenumberTools, GptEntriesOutOfOrder) {
  ExpectUnchanged(
      "label: gpt\nstart=262144, size=40960, name=third\nstart=2048, size=40960, name=first\n"
      "start=81920, size=81920, name=second\n");
  EXPECT_EQ(Numbers("now"), (std::vector<std::string>{"3", "1", "2"}));
}

}  // namespace
}  // namespace testing_support
