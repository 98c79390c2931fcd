// No C++ exception leaves the library, wherever it is thrown; faults and the abort of a test do.
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

#include "convert/partition_row.h"
#include "frame/crash_reporting.h"
#include "frame/global_context.h"
#include "frame/velkora.h"
#include "platform/guard.h"
#include "simulator/crash_sender.h"
#include "support/caller_record.h"
#include "support/leaks_on_purpose.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using testing_support::CallerRecord;
using testing_support::Event;
using testing_support::EventHook;
using testing_support::Events;
using testing_support::MachineTest;
using testing_support::RecordEvent;

using Strings = std::vector<std::string>;

constexpr std::uint64_t kDiskSize = 64 << 20;

class Border : public MachineTest {
 protected:
  Border() : disk_(NewDisk(1, kDiskSize)) {}
  ~Border() override { machine_.calls().on_call = nullptr; }

  void MakeMbrDisk() {
    testing_support::WriteMbr(disk_, {{7, 2048, 2048}, {5, 8192, 16384}},
                              {{7, 10240, 2048}, {7, 16384, 2048}});
    Settle();
  }
  void MakeGptDisk() {
    testing_support::WriteGpt(disk_, {{testing_support::kBasicDataGuid, 2048, 10239, 1}});
    Settle();
  }

  std::int32_t Run(DiskType type) {
    CallerRecord record(type, 1, kDiskSize);
    log_.clear();
    Events().clear();
    machine_.calls().Clear();
    return converter_.Convert(&record.disk(), &RecordEvent);
  }

  // Runs `action` when the conversion makes its `number`-th call.
  void AtCall(std::size_t number, std::function<void()> action) {
    machine_.calls().on_call = [number, action = std::move(action)](std::size_t made) {
      if (made == number) action();
    };
  }
  // The same for the first call of `name`.
  void AtCall(std::string_view name, std::function<void()> action) {
    machine_.calls().on_call = [this, name, action = std::move(action)](std::size_t) {
      if (machine_.calls().calls().back().name == name) action();
    };
  }

  Strings LinesAfterRecord() const {
    const Strings lines = AllLines();
    return {lines.begin() + 3, lines.end()};
  }

  simulator::Disk& disk_;
  Velkora converter_;

 private:
  void Settle() { machine_.UpdateProperties(disk_); }
};

void ThrowBadAlloc() {
  throw std::bad_alloc();
}

// ---- Convert ------------------------------------------------------------------------------------

TEST_F(Border, ChainOfBootRecordsThatComesBackToItselfIsAFailedRead) {
  MakeMbrDisk();
  // The second record of the chain, one row of which leads back to the first.
  testing_support::Sector second = testing_support::ReadSector(disk_, 14336);
  second[446 + 16 + 4] = 5;
  testing_support::WriteSector(disk_, 14336, second);
  EXPECT_EQ(Run(DiskType::kMbr), 1);
  EXPECT_EQ(LinesAfterRecord(),
            (Strings{"1 test code 1", "1 test code 1", "1 test code 1", "3 Get partitions fail!"}));
  EXPECT_TRUE(Events().empty());
  EXPECT_EQ(converter_.disk_handle, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Border, ExceptionInTheFirstReadIsAFailedRead) {
  const auto expect_failed_read = [this](DiskType type) {
    AtCall("ReadFile", &ThrowBadAlloc);
    EXPECT_EQ(Run(type), 1);
    EXPECT_EQ(LinesAfterRecord(), (Strings{"3 Get partitions fail!"}));
    EXPECT_TRUE(Events().empty());
    EXPECT_TRUE(machine_.handles().Open().empty());
  };
  MakeMbrDisk();
  expect_failed_read(DiskType::kMbr);
  MakeGptDisk();
  expect_failed_read(DiskType::kGpt);
}

// Up to the backup, whose own guard takes the exception (status 8).
TEST_F(Border, ExceptionInAnyCallBeforeTheConversionFailsAndClosesTheDisk) {
  const testing_support::LeaksOnPurpose backup_of_the_last_run;
  MakeGptDisk();
  std::size_t number = 0;
  do {
    SCOPED_TRACE(++number);
    AtCall(number, &ThrowBadAlloc);
    EXPECT_EQ(Run(DiskType::kGpt), 1);
    EXPECT_TRUE(machine_.handles().Open().empty());
    EXPECT_EQ(converter_.disk_handle, INVALID_HANDLE_VALUE);
    ASSERT_LT(number, 1000U);
  } while (Events().empty());
  EXPECT_GT(number, 5U) << "open, style, and the reads of the table";
}

TEST_F(Border, ExceptionInTheRollbackThatFollowsAFaultFailsAndClosesTheDisk) {
  const testing_support::LeaksOnPurpose backup;
  MakeGptDisk();
  EventHook() = [](Event event) {
    if (event == Event{0, 2}) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
    if (event == Event{0, 9}) throw std::bad_alloc();
  };
  EXPECT_EQ(Run(DiskType::kGpt), 1);
  EXPECT_EQ(Events().back(), (Event{0, 9}));
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Border, FaultBeforeTheConversionReachesTheApplication) {
  MakeGptDisk();
  AtCall("ReadFile", [] { win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION); });
  EXPECT_THROW(Run(DiskType::kGpt), win32::Fault);
}

TEST_F(Border, CallWithoutAMachineReachesTheTest) {
  CallerRecord record(DiskType::kGpt, 1, kDiskSize);
  {
    simulator::SimulatedMachine other;
    other.MakeCurrent();
  }  // none is current from here on
  EXPECT_THROW(InitVelkoraSDK(nullptr, "X:\\logs", nullptr, nullptr), simulator::NoCurrentMachine);
  EXPECT_THROW(converter_.Convert(&record.disk(), &RecordEvent), simulator::NoCurrentMachine);
  machine_.MakeCurrent();
}

TEST_F(Border, EndOfTheBudgetReachesTheTest) {
  MakeGptDisk();
  machine_.calls().SetBudget(3);
  EXPECT_THROW(Run(DiskType::kGpt), simulator::CallBudgetSpent);
}

// ---- The crash sender's thread ------------------------------------------------------------------

TEST_F(Border, CrashSenderGetsNoExceptionOfItsCallback) {
  InitCrashReporting("base", "program", "1.2");
  std::ofstream(LogsFile("a.log")) << "text";
  for (const char* call : {"FindFirstFileW", "FindNextFileW", "sendAdditionalFile"}) {
    SCOPED_TRACE(call);
    bool thrown = false;
    AtCall(call, [&thrown] {
      thrown = true;
      throw std::bad_alloc();
    });
    EXPECT_FALSE(OnCrashEvent(80, nullptr, nullptr));
    EXPECT_TRUE(thrown);
    EXPECT_TRUE(machine_.handles().Open().empty());
  }
  EXPECT_TRUE(machine_.crash_sender.attachments.empty());
}

}  // namespace
}  // namespace velkora
