#include "shrink/ntfs_diskpart_shrink.h"

#include "disk/device_handle.h"
#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "tools/logs_path.h"
#include "tools/process_runner.h"
#include "tools/text_encoding.h"

namespace velkora {
namespace {

constexpr char kScriptName[] = "\\DISKPART_compress_cmd.log";

// Exit statuses of `diskpart /s`.
constexpr std::uint32_t kStatusSizeTooBig = 0x80042574;
constexpr std::uint32_t kStatusDamaged = 0x8004259A;
constexpr std::uint32_t kStatusSizeTooSmall = 0x80070057;

// chkdsk found errors and has mended them.
constexpr std::uint32_t kChkdskFixed = 1;

// Neither the open nor the write is tested. Without a new file diskpart fails for want of a script,
// or runs the one of an earlier call.
void WriteScript(std::uint32_t disk, std::uint32_t partition, std::uint32_t size_mib) {
  // The last line ends in a lone CR, which diskpart takes as its end.
  const std::string script = "sel disk " + std::to_string(disk) + "\r\nsel partition " +
                             std::to_string(partition) +
                             "\r\nshrink desired=" + std::to_string(size_mib) + "\r";
  std::FILE* file = nullptr;
  win32::_wfopen_s(&file, Utf8ToWide(LogsPath(kScriptName)).c_str(), WIDE("wb+"));
  if (file == nullptr) return;
  win32::fwrite(script.data(), 1, script.size(), file);
  win32::fclose(file);
}

// Runs a line by the route that the context selects. The system route takes every run in which the
// shell could be started for a success and leaves `status` at 0; the elevated one goes by the
// tool's exit status.
bool RunLine(const std::string& line, std::uint32_t& status) {
  if (GetGlobalContext().is_system != 0) return win32::system(line.c_str()) != -1;
  return RunElevatedAndWait("/c " + line, "cmd.exe", &status);
}

bool RunShrink(std::uint32_t& status) {
  return RunLine("diskpart /s " + Quoted(LogsPath(kScriptName)) + " >> " +
                     Quoted(LogsPath("\\DISKPART_compress_result.log")),
                 status);
}

bool ReportSuccess() {
  LogEx(kLogModule, kLogProgress, "Compress NTFS Success!");
  return true;
}

// Logs why the shrink failed, as far as `status` tells, and sets the error code. Always false.
bool ReportFailure(std::uint32_t status, std::uint32_t* error_code) {
  if (status == kStatusSizeTooBig) {
    LogEx(kLogModule, kLogError, "Compress Ntfs Partition Error: Compress Size Too Big!");
    *error_code = kShrinkTooBig;
  } else {
    LogEx(kLogModule, kLogError, "Compress Ntfs Partition Error! %x", status);
    *error_code = kShrinkFailed;
  }
  return false;
}

// Has chkdsk repair the volume and runs the script, which still stands, once more.
bool RepairAndShrink(const std::string& volume_path, std::uint32_t* error_code) {
  LogEx(kLogModule, kLogError, "Compress Ntfs Partition Error: Filesystem Damage!");
  LogEx(kLogModule, kLogProgress, "CHKDSK Begin...");
  std::uint32_t repair_status = 0;
  const std::string line =
      "chkdsk " + volume_path + " /x >> " + Quoted(LogsPath("\\CHKDSK_cmd.log"));
  if (!RunLine(line, repair_status) && repair_status != kChkdskFixed) {
    LogEx(kLogModule, kLogError, "Repair Part Error!");
    *error_code = kShrinkRepairFailed;
    return false;
  }
  std::uint32_t status = 0;
  // A failure is reported with chkdsk's status, 0 or 1, and not with that of this second run: its
  // reader learns how the repair ended, and diskpart's reason stays in the result log.
  if (!RunShrink(status)) return ReportFailure(repair_status, error_code);
  LogEx(kLogModule, kLogProgress, "CHKDSK Success!");
  return true;
}

}  // namespace

bool CompressNtfsWithDiskpart(std::uint32_t disk_number, std::uint32_t size_mib,
                              std::string volume_path, std::uint32_t* error_code,
                              bool retry_allowed) {
  LogEx(kLogModule, kLogProgress, "Compress NTFS Partition...");
  if (size_mib == 0) {
    LogEx(kLogModule, kLogProgress, "Compress Size : 0");
    LogEx(kLogModule, kLogProgress, "Compress NTFS Partition End!");
    return true;
  }
  std::uint32_t partition = 0;
  if (!GetDeviceIndex(volume_path, &partition, /*want_device=*/false)) {
    LogEx(kLogModule, kLogError, "GetDeviceIndex Failed!");
    return false;
  }
  WriteScript(disk_number, partition, size_mib);
  std::uint32_t status = 0;
  if (RunShrink(status)) return ReportSuccess();
  if (status == kStatusDamaged) {
    return RepairAndShrink(volume_path, error_code) && ReportSuccess();
  }
  if (status != kStatusSizeTooSmall || !retry_allowed) return ReportFailure(status, error_code);
  LogEx(kLogModule, kLogWarning,
        "Compress Ntfs Partition Error: Compress Size Too Small! Compress Size Plus One And "
        "Retry.");
  // The inner call ends with its own closing lines, and what it writes to `error_code` stays.
  if (CompressNtfsWithDiskpart(disk_number, size_mib + 1, volume_path, error_code,
                               /*retry_allowed=*/false)) {
    return ReportSuccess();
  }
  LogEx(kLogModule, kLogError, "Retry Compress Ntfs Partition Error! %x", status);
  return false;
}

}  // namespace velkora
