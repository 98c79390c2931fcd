// The exports and the object when there is no memory: each allocation of a call fails in turn.
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

#include "frame/global_context.h"
#include "frame/velkora.h"
#include "frame/velkora_sdk.h"
#include "logging/log.h"
#include "support/caller_record.h"
#include "support/machine_fixture.h"

namespace {

constexpr long kNever = -1;
std::atomic<long> allocations_until_failure = kNever;
std::atomic<bool> fails_from_then_on = false;
std::atomic<long> failed_allocations = 0;
bool fail_nothrow_allocations = false;

bool HasToFail() {
  if (allocations_until_failure == kNever) return false;
  if (allocations_until_failure > 0) {
    --allocations_until_failure;
    return false;
  }
  if (!fails_from_then_on) allocations_until_failure = kNever;
  ++failed_allocations;
  return true;
}

}  // namespace

// They replace those of the runtime for the whole program, arrays included, and do the same unless
// told to fail.
void* operator new(std::size_t size) {
  void* const memory = HasToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (fail_nothrow_allocations || HasToFail()) return nullptr;
  return std::malloc(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace velkora {
namespace {

using namespace testing_support;

void Record(void* context, const char*, int level, const char* text) {
  static_cast<std::vector<LogLine>*>(context)->push_back({level, text});
}

class AllocationFailure : public MachineTest {
 protected:
  ~AllocationFailure() override {
    allocations_until_failure = kNever;
    fail_nothrow_allocations = false;
  }

  // Calls `body` while the `number`-th allocation from here fails, and perhaps all later ones.
  // Returns whether one has failed.
  template <typename Body>
  static bool RunWithFailure(long number, bool from_then_on, Body body) {
    failed_allocations = 0;
    fails_from_then_on = from_then_on;
    allocations_until_failure = number - 1;
    body();
    allocations_until_failure = kNever;
    return failed_allocations > 0;
  }
};

TEST_F(AllocationFailure, InitGivesNullAfterItsLines) {
  const LogObserver observer{&Record, &log_};
  fail_nothrow_allocations = true;
  VelkoraSDK* sdk = InitVelkoraSDK(nullptr, "X:\\logs", &observer, nullptr);
  fail_nothrow_allocations = false;
  EXPECT_EQ(sdk, nullptr);
  EXPECT_EQ(AllLines(), (std::vector<std::string>{"1 Velkora SDK Version: 1, 0, 0, 20-d-5130b0fa",
                                                  "1 Logs Folder: X:\\logs"}));
}

TEST_F(AllocationFailure, InitThatGivesNullClosesTheLog) {
  const LogObserver observer{&Record, &log_};
  fail_nothrow_allocations = true;
  EXPECT_EQ(InitVelkoraSDK("X:\\logs", "X:\\logs", &observer, nullptr), nullptr);
  fail_nothrow_allocations = false;
  log_.clear();
  const std::string file = LogsFileText("SDK.log");
  LogEx(kLogModule, kLogProgress, "text");
  EXPECT_TRUE(log_.empty());
  EXPECT_EQ(LogsFileText("SDK.log"), file);
}

TEST_F(AllocationFailure, InitWorksAgainAfterwards) {
  fail_nothrow_allocations = true;
  EXPECT_EQ(InitVelkoraSDK(nullptr, "X:\\logs", nullptr, nullptr), nullptr);
  fail_nothrow_allocations = false;
  VelkoraSDK* sdk = InitVelkoraSDK(nullptr, "X:\\logs", nullptr, nullptr);
  EXPECT_NE(sdk, nullptr);
  DestroyVelkoraSDK(sdk);
}

// A longer path than fits into a string without memory of its own.
TEST_F(AllocationFailure, InitGivesNullWhicheverAllocationFails) {
  constexpr char kFolder[] = "X:\\logs\\a folder with a name of some length";
  for (const bool from_then_on : {false, true}) {
    long number = 0;
    bool failed = true;
    while (failed) {
      SCOPED_TRACE(++number);
      VelkoraSDK* sdk = nullptr;
      failed = RunWithFailure(number, from_then_on,
                              [&] { sdk = InitVelkoraSDK("X:\\logs", kFolder, nullptr, nullptr); });
      EXPECT_EQ(sdk == nullptr, failed);
      DestroyVelkoraSDK(sdk);
      ASSERT_LT(number, 1000);
    }
    EXPECT_GT(number, 5);
    EXPECT_EQ(GetGlobalContext().logs_folder, kFolder);
  }
}

TEST_F(AllocationFailure, StopSetsItsFlagWhicheverAllocationFails) {
  Velkora converter;
  bool failed = true;
  for (long number = 1; failed; ++number) {
    SCOPED_TRACE(number);
    GetGlobalContext().stop_requested = 0;
    failed = RunWithFailure(number, /*from_then_on=*/true, [&] { converter.Stop(); });
    EXPECT_TRUE(StopRequested());
    ASSERT_LT(number, 1000);
  }
  EXPECT_EQ(log_.back(), (LogLine{1, "Set Convert Stop!"}));
}

// Up to the first status: behind it other guards take the failure.
TEST_F(AllocationFailure, ConvertFailsAndClosesTheDiskWhicheverAllocationFails) {
  simulator::Disk& disk = NewDisk(1, 64 << 20);
  testing_support::WriteGpt(disk, {{testing_support::kBasicDataGuid, 2048, 10239, 1}});
  machine_.UpdateProperties(disk);
  CallerRecord record(DiskType::kGpt, 1, 64 << 20);
  Velkora converter;
  long number = 0;
  for (;;) {
    SCOPED_TRACE(++number);
    std::int32_t result = 0;
    EXPECT_TRUE(RunWithFailure(number, /*from_then_on=*/false,
                               [&] { result = converter.Convert(&record.disk(), &RecordEvent); }));
    EXPECT_EQ(result, 1);
    EXPECT_EQ(converter.disk_handle, INVALID_HANDLE_VALUE);
    if (!Events().empty()) break;
    EXPECT_TRUE(machine_.handles().Open().empty());
    ASSERT_LT(number, 1000);
  }
  EXPECT_GT(number, 20);
}

}  // namespace
}  // namespace velkora
