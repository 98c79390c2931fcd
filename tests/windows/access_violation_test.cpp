// A real access violation in the middle of each conversion: the structured guard of Windows around
// the library, which runs on the simulated machine.
#include <cstdint>
#include <gtest/gtest.h>

#include "convert/gpt_to_mbr.h"
#include "convert/mbr_to_gpt.h"
#include "frame/crash_reporting.h"
#include "support/gpt_disk_fixture.h"
#include "support/mbr_disk_fixture.h"

namespace {

using testing_support::Event;
using testing_support::EventHook;
using testing_support::Events;

constexpr char kDump[] = "VelkoraSDK_v1, 0, 0, 20-d-5130b0fa.dmp";
const std::vector<Event> kUndone = {{1, 0},  {0, 1}, {1, 20}, {0, 2},   {1, 40}, {0, 3},
                                    {1, 60}, {0, 4}, {0, 9},  {1, 100}, {0, 10}};

// Writes where no memory is, when the callback is called with this.
void CrashAt(Event event) {
  EventHook() = [event](Event told) {
    if (told != event) return;
    EventHook() = nullptr;
    static volatile std::uintptr_t address = 16;
    *reinterpret_cast<volatile int*>(address) = 1;
  };
}

class AccessViolation : public testing_support::GptDiskTest {
 protected:
  std::vector<std::byte> Table() { return testing_support::ReadBytes(disk_, 512, 33 * 512); }
};

class AccessViolationTowardsGpt : public testing_support::MbrDiskTest {
 protected:
  AccessViolationTowardsGpt() : MbrDiskTest(256) {}
  std::vector<std::byte> Table() { return testing_support::ReadBytes(disk_, 0, 512); }
};

TEST_F(AccessViolation, InAConversionEndsInARollback) {
  SetUpDisk(SpacedEntries(4));
  const std::vector<std::byte> before = Table();
  CrashAt({0, 4});
  EXPECT_FALSE(velkora::ConvertGptToMbr(converter_));
  EXPECT_EQ(Events(), kUndone);
  EXPECT_EQ(Table(), before);
  EXPECT_EQ(velkora::dump_written, 1);
  EXPECT_NE(LogsFileText(kDump), "");
}

TEST_F(AccessViolationTowardsGpt, InAConversionEndsInARollback) {
  SetUpDisk(SpacedEntries(4));
  const std::vector<std::byte> before = Table();
  CrashAt({0, 4});
  EXPECT_FALSE(velkora::ConvertMbrToGpt(converter_));
  EXPECT_EQ(Events(), kUndone);
  EXPECT_EQ(Table(), before);
  EXPECT_EQ(velkora::dump_written, 1);
  EXPECT_NE(LogsFileText(kDump), "");
}

}  // namespace
