// What a run tells: each behaviour in plain words, and at the end what differed.
#pragma once

#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace conformance {

// "DiskFat32", "MoveOfNoClustersIsError87" -> "disk FAT32: move of no clusters is error 87".
std::string PlainWords(std::string_view suite, std::string_view test);

class Report : public ::testing::EmptyTestEventListener {
 public:
  explicit Report(std::ostream& out) : out_(out) {}

  void OnTestPartResult(const ::testing::TestPartResult& result) override;
  void OnTestEnd(const ::testing::TestInfo& test) override;
  void OnTestProgramEnd(const ::testing::UnitTest& whole) override;

 private:
  std::ostream& out_;
  std::string details_;  // of the test that runs
  int confirmed_ = 0;
  std::vector<std::string> differing_;
};

}  // namespace conformance
