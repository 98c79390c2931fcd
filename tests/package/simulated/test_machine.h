// What every test starts from: a machine with one disk, and the logs folder as drive X.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/simulated_machine.h"
#include "test_disk.h"

// Ends the test.
inline void Check(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error("does not hold: " + what);
}

// A callback for what needs none.
inline std::int32_t HearNothing(std::int32_t, std::int32_t) {
  return 0;
}

// A folder for the files of one test.
class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::filesystem::path operator/(const char* name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

inline constexpr std::uint32_t kDiskNumber = 1;
inline constexpr char kLogsFolder[] = "X:";

struct TestMachine {
  explicit TestMachine(const std::vector<TestPartition>& made);

  // Makes the disk the one that the machine runs from: Windows on its second volume, which is C.
  void RunFromDisk();
  std::string LettersAt(std::uint64_t offset);

  TempFolder folder;
  std::vector<TestPartition> partitions;
  std::filesystem::path image;
  std::filesystem::path logs;  // on the host
  simulator::SimulatedMachine machine;
};
