#include "simulator/call_log.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace simulator {
namespace {

TEST(CallLog, KeepsTheCallsInOrder) {
  CallLog log;
  log.Note("time");
  log.Note("CreateFileA", "X:\\a", "access 0x1");
  log.Note("DeviceIoControl", "IOCTL_DISK_CREATE_DISK");
  EXPECT_EQ(log.Lines(), (std::vector<std::string>{"time", "CreateFileA/X:\\a access 0x1",
                                                   "DeviceIoControl/IOCTL_DISK_CREATE_DISK"}));
}

TEST(CallLog, CountsByNameAndByDetail) {
  CallLog log;
  log.Note("DeviceIoControl", "A");
  log.Note("DeviceIoControl", "B");
  log.Note("DeviceIoControlX", "A");
  EXPECT_EQ(log.Count("DeviceIoControl"), 2u);
  EXPECT_EQ(log.Count("DeviceIoControl/B"), 1u);
  EXPECT_EQ(log.Count("DeviceIoControl/C"), 0u);
}

TEST(CallLog, CallsThatAreNotKeptAreCountedAndFail) {
  CallLog log;
  log.keeps_calls = false;
  std::size_t last = 0;
  log.on_call = [&last](std::size_t number) { last = number; };
  log.FailNumber(2, ERROR_READ_FAULT);
  EXPECT_EQ(log.Note("ReadFile"), ERROR_SUCCESS);
  EXPECT_EQ(log.Note("ReadFile"), ERROR_READ_FAULT);
  EXPECT_EQ(last, 2u);
  EXPECT_TRUE(log.calls().empty());
}

TEST(CallLog, ADetailMayHoldASlash) {
  CallLog log;
  log.Note("CreateFileA", "X:/a");
  EXPECT_EQ(log.Count("CreateFileA/X:/a"), 1u);
}

TEST(CallLog, FailsTheNthMatchingCallOnce) {
  CallLog log;
  log.Note("ReadFile");
  log.FailOn("ReadFile", 2, ERROR_READ_FAULT);
  EXPECT_EQ(log.Note("ReadFile"), ERROR_SUCCESS);
  EXPECT_EQ(log.Note("WriteFile"), ERROR_SUCCESS);
  EXPECT_EQ(log.Note("ReadFile"), ERROR_READ_FAULT);
  EXPECT_EQ(log.Note("ReadFile"), ERROR_SUCCESS);
  EXPECT_TRUE(log.calls()[3].failed_on_demand);
  EXPECT_FALSE(log.calls()[4].failed_on_demand);
}

TEST(CallLog, FailsFromTheNthMatchingCallOn) {
  CallLog log;
  log.FailOn("command/diskpart", 2, 3, Repeat::kFromThenOn);
  EXPECT_EQ(log.Note("command", "diskpart"), ERROR_SUCCESS);
  EXPECT_EQ(log.Note("command", "chkdsk"), ERROR_SUCCESS);
  EXPECT_EQ(log.Note("command", "diskpart"), 3u);
  EXPECT_EQ(log.Note("command", "diskpart"), 3u);
}

TEST(CallLog, RefusesOccurrenceZero) {
  CallLog log;
  EXPECT_THROW(log.FailOn("ReadFile", 0), std::invalid_argument);
}

TEST(CallLog, FailsTheCallWithAnOverallNumber) {
  CallLog log;
  log.Note("a");
  log.FailNumber(3, 9);
  EXPECT_EQ(log.Note("b"), ERROR_SUCCESS);
  EXPECT_EQ(log.Note("c"), 9u);
  EXPECT_EQ(log.Note("d"), ERROR_SUCCESS);
}

TEST(CallLog, ANumberThatHasPassedFailsOnlyFromThenOn) {
  CallLog log;
  log.Note("a");
  log.FailNumber(1, 9);
  EXPECT_EQ(log.Note("b"), ERROR_SUCCESS);
  log.FailNumber(1, 9, Repeat::kFromThenOn);
  EXPECT_EQ(log.Note("c"), 9u);
  log.ClearFailures();
  EXPECT_EQ(log.Note("d"), ERROR_SUCCESS);
}

TEST(CallLog, TwoFailuresCountEachForItself) {
  CallLog log;
  log.FailOn("a", 1, 5);
  log.FailOn("a", 2, 6);
  EXPECT_EQ(log.Note("a"), 5u);
  EXPECT_EQ(log.Note("a"), 6u);
}

TEST(CallLog, ThrowsWhenTheBudgetIsSpent) {
  CallLog log;
  log.SetBudget(2);
  log.Note("a");
  log.Note("b");
  EXPECT_THROW(log.Note("c"), CallBudgetSpent);
  EXPECT_THROW(log.Note("d"), CallBudgetSpent);
  EXPECT_EQ(log.calls().size(), 2u);
}

TEST(CallLog, ClearForgetsCallsAndKeepsFailures) {
  CallLog log;
  log.FailOn("a", 2, 5);
  log.Note("a");
  log.Clear();
  EXPECT_TRUE(log.calls().empty());
  EXPECT_EQ(log.Note("a"), 5u);
}

}  // namespace
}  // namespace simulator
