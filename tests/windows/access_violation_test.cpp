// A real access violation in the middle of a conversion: the structured guard of Windows around the
// library, which runs on the simulated machine.
#include <cstdint>
#include <gtest/gtest.h>

#include "convert/gpt_to_mbr.h"
#include "frame/crash_reporting.h"
#include "support/gpt_disk_test.h"

namespace {

using testing_support::Event;
using testing_support::EventHook;
using testing_support::Events;

class AccessViolation : public testing_support::GptDiskTest {
 protected:
  // Writes where no memory is, when the callback hears this.
  static void CrashAt(Event event) {
    EventHook() = [event](Event heard) {
      if (heard != event) return;
      EventHook() = nullptr;
      static volatile std::uintptr_t address = 16;
      *reinterpret_cast<volatile int*>(address) = 1;
    };
  }
  std::vector<std::byte> Table() { return testing_support::ReadBytes(disk_, 512, 33 * 512); }
};

TEST_F(AccessViolation, InAConversionEndsInARollback) {
  SetUpDisk(SpacedEntries(4));
  const std::vector<std::byte> before = Table();
  CrashAt({0, 4});
  EXPECT_FALSE(velkora::ConvertGptToMbr(converter_));
  const std::vector<Event> expected = {{1, 0},  {0, 1}, {1, 20}, {0, 2},   {1, 40}, {0, 3},
                                       {1, 60}, {0, 4}, {0, 9},  {1, 100}, {0, 10}};
  EXPECT_EQ(Events(), expected);
  EXPECT_EQ(Table(), before);
  EXPECT_EQ(velkora::dump_written, 1);
  EXPECT_NE(LogsFileText("VelkoraSDK_v1, 0, 0, 20-d-5130b0fa.dmp"), "");
}

}  // namespace
