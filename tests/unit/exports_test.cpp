#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "frame/global_context.h"
#include "frame/velkora.h"
#include "frame/velkora_sdk.h"
#include "logging/log.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

// Applications end an object through DestroyVelkoraSDK alone.
static_assert(!std::has_virtual_destructor_v<VelkoraSDK>);
static_assert(!std::is_destructible_v<VelkoraSDK>);

void Record(void* context, const char*, int level, const char* text) {
  static_cast<std::vector<LogLine>*>(context)->push_back({level, text});
}

class Exports : public MachineTest {
 protected:
  ~Exports() override { DestroyVelkoraSDK(sdk_); }

  void Init(const char* logs_folder, const void* log_folder = nullptr) {
    const LogObserver observer{&Record, &log_};
    DestroyVelkoraSDK(sdk_);
    sdk_ = InitVelkoraSDK(log_folder, logs_folder, &observer, nullptr);
  }

  VelkoraSDK* sdk_ = nullptr;
};

TEST_F(Exports, InitLogsVersionThenLogsFolder) {
  Init("X:\\logs");
  EXPECT_EQ(AllLines(),
            (Texts{"1 Velkora SDK Version: 1, 0, 0, 20-d-5130b0fa", "1 Logs Folder: X:\\logs"}));
}

TEST_F(Exports, InitKeepsTheLogsFolderAsItStands) {
  Init("X:\\first\\");
  EXPECT_EQ(GetGlobalContext().logs_folder, "X:\\first\\");
  Init("");
  EXPECT_EQ(GetGlobalContext().logs_folder, "");
}

TEST_F(Exports, InitOpensTheLogUnderTheModuleName) {
  Init("X:\\elsewhere", "X:\\logs");
  const std::string text = LogsFileText("SDK.log");
  const auto version = text.find("[1] [SDK] Velkora SDK Version: 1, 0, 0, 20-d-5130b0fa");
  const auto folder = text.find("[1] [SDK] Logs Folder: X:\\elsewhere");
  ASSERT_NE(version, std::string::npos);
  ASSERT_NE(folder, std::string::npos);
  EXPECT_LT(version, folder);
}

TEST_F(Exports, InitGivesAConverterThatHasNothingYet) {
  Init("X:\\logs");
  ASSERT_NE(sdk_, nullptr);
  const auto* converter = static_cast<Velkora*>(sdk_);
  EXPECT_EQ(converter->disk_info, nullptr);
  EXPECT_EQ(converter->disk_handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(converter->callback, nullptr);
  EXPECT_EQ(converter->backup_data, nullptr);
  EXPECT_TRUE(converter->partition_offsets.empty());
}

TEST_F(Exports, InitDoesNotTakeAStopBack) {
  Init("X:\\logs");
  sdk_->Stop();
  Init("X:\\logs");
  EXPECT_TRUE(StopRequested());
}

TEST_F(Exports, DestroyOfNullDoesNothing) {
  DestroyVelkoraSDK(nullptr);
  EXPECT_TRUE(log_.empty());
  EXPECT_TRUE(machine_.calls().calls().empty());
}

TEST_F(Exports, DestroyLogsNothing) {
  Init("X:\\logs");
  log_.clear();
  DestroyVelkoraSDK(sdk_);
  sdk_ = nullptr;
  EXPECT_TRUE(log_.empty());
}

TEST_F(Exports, DestroyLeavesThePartitionOffsetsAllocated) {
  Init("X:\\logs");
  auto* converter = static_cast<Velkora*>(sdk_);
  converter->partition_offsets = {1, 2, 3};
  std::uint64_t* const offsets = converter->partition_offsets.data();
  const std::size_t capacity = converter->partition_offsets.capacity();
  DestroyVelkoraSDK(std::exchange(sdk_, nullptr));
  EXPECT_EQ(std::vector<std::uint64_t>(offsets, offsets + 3),
            (std::vector<std::uint64_t>{1, 2, 3}));
  std::allocator<std::uint64_t>().deallocate(offsets, capacity);
}

}  // namespace
}  // namespace velkora
