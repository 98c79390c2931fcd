#include "conformance/program/report.h"

#include <sstream>

namespace conformance {
namespace {

TEST(ConformanceReport, NamesBecomeWords) {
  EXPECT_EQ(PlainWords("DiskFat32", "MoveOfNoClustersIsError87"),
            "disk FAT32: move of no clusters is error 87");
  EXPECT_EQ(PlainWords("SeamShell", "ReturnsTheExitStatus"), "seam shell: returns the exit status");
  EXPECT_EQ(PlainWords("DiskMbrLayout", "StartThatDoesNotFit32BitsIsError87"),
            "disk MBR layout: start that does not fit 32 bits is error 87");
  EXPECT_EQ(PlainWords("DiskTransfer", "CleanZeroesTheFirstAndTheLastMiB"),
            "disk transfer: clean zeroes the first and the last MiB");
}

TEST(ConformanceReport, ConfirmedBehaviourIsOneLine) {
  std::ostringstream out;
  Report report(out);
  const ::testing::TestInfo& test = *::testing::UnitTest::GetInstance()->current_test_info();
  report.OnTestPartResult({::testing::TestPartResult::kSuccess, "file.cpp", 7, "all is well"});
  report.OnTestEnd(test);
  EXPECT_EQ(out.str(), "confirmed  conformance report: confirmed behaviour is one line\n");
}

TEST(ConformanceReport, DifferenceHasItsDetailsAndIsNamedAgainAtTheEnd) {
  std::ostringstream out;
  Report report(out);
  const ::testing::UnitTest& whole = *::testing::UnitTest::GetInstance();
  report.OnTestPartResult({::testing::TestPartResult::kNonFatalFailure, "file.cpp", 7, "1 is 2"});
  report.OnTestEnd(*whole.current_test_info());
  report.OnTestEnd(*whole.current_test_info());
  report.OnTestProgramEnd(whole);
  const std::string words =
      "conformance report: difference has its details and is named again at the end";
  EXPECT_EQ(out.str(),
            "DIFFERS    " + words + "\nfile.cpp:7\n1 is 2\n\nconfirmed  " + words +
                "\n\n1 of 2 behaviours confirmed.\nWhat differs:\n  " + words +
                "  (ConformanceReport.DifferenceHasItsDetailsAndIsNamedAgainAtTheEnd)\n");
}

TEST(ConformanceReport, FailureWithoutAPlaceIsToldToo) {
  std::ostringstream out;
  Report report(out);
  report.OnTestPartResult({::testing::TestPartResult::kFatalFailure, nullptr, -1, "no more"});
  report.OnTestEnd(*::testing::UnitTest::GetInstance()->current_test_info());
  EXPECT_NE(out.str().find("no more"), std::string::npos);
}

}  // namespace
}  // namespace conformance
