#include "support/disk_conversion_fixture.h"

#include "convert/gpt_to_mbr.h"
#include "convert/mbr_to_gpt.h"
#include "convert/partition_reader.h"
#include "convert/partition_types.h"
#include "frame/global_context.h"
#include "platform/win32.h"
#include "simulator/volume.h"

namespace testing_support {

DiskConversionTest::DiskConversionTest(DiskType type, std::uint64_t size)
    : disk_(NewDisk(1, size)), record_(type, 1, size) {
  converter_.disk_info = &record_.disk();
  converter_.callback = &RecordEvent;
}

void DiskConversionTest::ShowDisk(const std::vector<std::uint64_t>& offsets, bool with_record) {
  machine_.UpdateProperties(disk_);
  for (const std::uint64_t offset : offsets) {
    const simulator::Volume* volume = machine_.FindVolumeAt(1, offset);
    if (!with_record || volume == nullptr) continue;
    SetText(record_.Add(offset).volume_id, volume->path);
  }
  converter_.disk_handle =
      win32::CreateFileA(record_.disk().id, GENERIC_READ | GENERIC_WRITE,
                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  machine_.calls().Clear();
}

bool DiskConversionTest::ConvertUnprotected() {
  if (record_.disk().disk_type == DiskType::kMbr) {
    velkora::MbrPartitionList rows;
    if (!velkora::ReadMbrPartitions(converter_.disk_handle, rows)) return false;
    converter_.partition_offsets = velkora::MbrPartitionOffsets(rows);
    return velkora::MBR2GPT(converter_, rows);
  }
  velkora::GptPartitionList rows;
  if (!velkora::ReadGptPartitions(converter_.disk_handle, rows)) return false;
  velkora::FilterGptPartitions(rows);
  converter_.partition_offsets = velkora::GptPartitionOffsets(rows);
  return velkora::GPT2MBR(converter_, rows);
}

void DiskConversionTest::MarkAsSystemDisk(std::size_t volume) {
  record_.disk().is_system = 1;
  velkora::GetGlobalContext().is_system = 1;
  record_.volume(volume).is_system = 1;
}

void DiskConversionTest::ScriptTool(std::string_view name, DWORD exit_status,
                                    std::string_view output) {
  const simulator::CommandResult result{exit_status, std::string(output)};
  machine_.SetCommand(name, [result](auto&, const std::vector<std::string>&) { return result; });
}

void DiskConversionTest::StopAt(Event event) {
  EventHook() = [event](Event arrived) {
    if (arrived == event) velkora::GetGlobalContext().stop_requested = 1;
  };
}

void DiskConversionTest::FailControl(const char* name, std::size_t occurrence, DWORD error) {
  machine_.calls().FailOn(std::string("DeviceIoControl/") + name, occurrence, error);
}

std::size_t DiskConversionTest::CountControl(const char* name) {
  return machine_.calls().Count(std::string("DeviceIoControl/") + name);
}

std::vector<std::string> DiskConversionTest::DeviceSteps() {
  std::vector<std::string> steps;
  for (const simulator::Call& call : machine_.calls().calls()) {
    if (call.name == "DeviceIoControl" || call.name == "command") steps.push_back(call.detail);
  }
  return steps;
}

std::vector<std::string> DiskConversionTest::ToolLines() const {
  std::vector<std::string> lines;
  for (const std::string& line : shell_lines_) {
    if (line.find("diskpart") == std::string::npos) lines.push_back(line);
  }
  return lines;
}

std::vector<std::string> DiskConversionTest::Steps() const {
  std::vector<std::string> steps;
  for (const std::string& line : AllLines()) {
    if (line.starts_with("1 [part]") || line.starts_with("1 volume_path")) continue;
    if (line.starts_with("1 Restore Letter") || line.starts_with("1 Remove Letter")) continue;
    steps.push_back(line);
  }
  return steps;
}

std::string DiskConversionTest::LastLine() const {
  return log_.empty() ? "" : AllLines().back();
}

}  // namespace testing_support
