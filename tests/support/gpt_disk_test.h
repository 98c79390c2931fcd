// The ground of tests that convert a GPT data disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/velkora.h"
#include "support/caller_record.h"
#include "support/machine_test.h"

namespace testing_support {

// A disk of 256 MiB as number 1, its record, and a converter that has both and the disk open. The
// machine's calls are counted from the end of SetUpDisk on.
class GptDiskTest : public MachineTest {
 protected:
  static constexpr std::uint64_t kDiskSize = 256 << 20;

  GptDiskTest();

  // Writes the table and a small NTFS volume into each entry, lets the machine see them, and opens
  // the disk for the converter. With `with_record` each entry's volume is in the record too.
  void SetUpDisk(const std::vector<GptEntry>& entries, bool with_record = true);

  // `count` basic data entries of 16 MiB, 1 MiB apart, the first at 1 MiB.
  static std::vector<GptEntry> SpacedEntries(std::size_t count);
  static velkora::GptPartitionList Rows(const std::vector<GptEntry>& entries);

  // Control codes sent and tools run, in order.
  std::vector<std::string> DeviceSteps();
  std::string LastLine() const;

  simulator::Disk& disk_;
  CallerRecord record_;
  velkora::Velkora converter_;
};

}  // namespace testing_support
