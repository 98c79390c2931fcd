// The ground of tests that convert a disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/velkora.h"
#include "support/caller_record.h"
#include "support/machine_fixture.h"

namespace testing_support {

// A disk as number 1, its record, and a converter that has both. The machine's calls are counted
// from the end of ShowDisk on.
class DiskConversionTest : public MachineTest {
 protected:
  DiskConversionTest(DiskType type, std::uint64_t size);

  // Lets the machine see the table, adds the volumes at these offsets to the record if
  // `with_record`, and opens the disk for the converter.
  void ShowDisk(const std::vector<std::uint64_t>& offsets, bool with_record);

  // The path to the other style without the backup before the conversion and the rollback after it.
  bool ConvertUnprotected();

  // The disk of the running system, whose volume is the record's volume `volume`.
  void MarkAsSystemDisk(std::size_t volume);
  // Replaces a tool by one that ends with `exit_status`.
  void ScriptTool(std::string_view name, DWORD exit_status, std::string_view output = "");

  // Asks for a stop when `event` arrives.
  static void StopAt(Event event);
  void FailControl(const char* name, std::size_t occurrence, DWORD error);
  std::size_t CountControl(const char* name);

  // Control codes sent and tools run, in order.
  std::vector<std::string> DeviceSteps();
  // Lines that reached the shell, without those of diskpart.
  std::vector<std::string> ToolLines() const;
  // Log lines without the volume walk and the layout, whose numbers are told elsewhere.
  std::vector<std::string> Steps() const;
  std::string LastLine() const;

  simulator::Disk& disk_;
  CallerRecord record_;
  velkora::Velkora converter_;
};

}  // namespace testing_support
