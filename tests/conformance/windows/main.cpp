// velkora-conformance: the suite as a program for a person who has Windows, and a disk to spare.
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <string>
#include <vector>
#include <windows.h>

#include "conformance/machine.h"
#include "conformance/program/command_line.h"
#include "conformance/program/disk_check.h"
#include "conformance/program/report.h"
#include "conformance/windows/spare_disk.h"

namespace conformance {
namespace {

constexpr int kConfirmed = 0;
constexpr int kDiffers = 1;
constexpr int kBadUsage = 2;

std::string BuildNumber() {
  char text[64] = {};
  DWORD size = sizeof text;
  RegGetValueA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion",
               "CurrentBuildNumber", RRF_RT_REG_SZ, nullptr, text, &size);
  return text;
}

std::string ProgramPath() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH - 1);
  return path;
}

int Fail(const std::string& reason) {
  std::cerr << "velkora-conformance: " << reason << std::endl;
  return kBadUsage;
}

// The disk tests run on a disk alone that was given up.
void SelectTests(const CommandLine& line) {
  if (line.disk) SetSpareDisk(*line.disk);
  GTEST_FLAG_SET(filter, line.disk ? "*" : "-Disk*");
  ::testing::TestEventListeners& listeners = ::testing::UnitTest::GetInstance()->listeners();
  delete listeners.Release(listeners.default_result_printer());
  listeners.Append(new Report(std::cout));  // the list owns it
}

int Run(const std::vector<std::string>& arguments) {
  const CommandLine line = ParseCommandLine(arguments);
  if (!line.error.empty()) return Fail(line.error);
  if (line.help) {
    std::cout << kUsage;
    return kConfirmed;
  }
  if (line.disk) {
    const std::string reason =
        ReasonToKeep(*line.disk, {ProgramPath(), std::filesystem::temp_directory_path().string()});
    if (!reason.empty()) return Fail("--disk " + std::to_string(*line.disk) + ": " + reason);
  }
  SelectTests(line);
  std::cout << (Machine::IsWine() ? "Wine as Windows build " : "Windows build ") << BuildNumber()
            << "\n"
            << std::endl;
  return RUN_ALL_TESTS() == 0 ? kConfirmed : kDiffers;
}

}  // namespace
}  // namespace conformance

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  int own = 1;  // the suite's own arguments are not gtest's
  ::testing::InitGoogleTest(&own, argv);
  return conformance::Run(arguments);
}
