#include "tools/diskpart.h"

#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "tools/logs_path.h"
#include "tools/process_runner.h"
#include "tools/text_encoding.h"

namespace velkora {
namespace {

constexpr char kLineEnd[] = "\r\n";

std::string SelectDisk(std::uint32_t disk) {
  return "select disk " + std::to_string(disk) + kLineEnd;
}

std::string SelectPart(std::uint32_t partition) {
  return "select part " + std::to_string(partition) + kLineEnd;
}

// One verb: `name` stands in front of each of its messages.
bool RunVerb(const char* name, const std::string& script, bool log_script = false) {
  LogEx(kLogModule, kLogProgress, "%s Begin...", name);
  if (log_script) LogEx(kLogModule, kLogProgress, "cmd: %s", script.c_str());
  const bool succeeded = DISKPART_RunScript(script);
  if (succeeded) {
    LogEx(kLogModule, kLogProgress, "%s Success!", name);
  } else {
    LogEx(kLogModule, kLogError, "%s Failed!", name);
  }
  return succeeded;
}

}  // namespace

bool DISKPART_RunScript(std::string script) {
  const std::string script_path = LogsPath("\\DISKPART_cmd.log");
  const std::string result_path = LogsPath("\\DISKPART_result.log");
  std::FILE* file = nullptr;
  if (win32::_wfopen_s(&file, Utf8ToWide(script_path).c_str(), WIDE("wb+")) != 0) {
    LogEx(kLogModule, kLogError, "File not open: %s", script_path.c_str());
    return false;
  }
  win32::fwrite(script.data(), 1, script.size(), file);
  win32::fclose(file);
  const std::string line = "diskpart /s " + Quoted(script_path) + " >> " + Quoted(result_path);
  if (GetGlobalContext().is_system != 0) return win32::system(line.c_str()) == 0;
  return RunElevatedAndWait("/c " + line, "cmd.exe", nullptr);
}

bool DISKPART_Active(std::uint32_t disk, std::uint32_t partition) {
  return RunVerb("DISKPART_Active", SelectDisk(disk) + SelectPart(partition) + "active\r\n");
}

bool DISKPART_Assign(std::uint32_t disk, std::uint32_t partition, std::string letter) {
  // "list part" changes nothing; it shows a reader of the result file what was there.
  return RunVerb("DISKPART_Assign",
                 SelectDisk(disk) + "list part\r\n" + SelectPart(partition) +
                     "assign letter=" + letter + kLineEnd,
                 /*log_script=*/true);
}

bool DISKPART_Clean(std::uint32_t disk) {
  return RunVerb("DISKPART_Clean", SelectDisk(disk) + "clean\r\n");
}

bool DISKPART_Convert(std::uint32_t disk, const char* style) {
  return RunVerb("DISKPART_Convert", SelectDisk(disk) + "convert " + style + kLineEnd);
}

bool DISKPART_CreateEFI(std::uint32_t disk, std::uint64_t size) {
  return RunVerb("DISKPART_CreateEFI",
                 SelectDisk(disk) + "create part efi size=" + std::to_string(size) + kLineEnd);
}

bool DISKPART_Format(std::uint32_t disk, std::uint32_t partition, std::string file_system,
                     bool quick) {
  return RunVerb("DISKPART_Format", SelectDisk(disk) + SelectPart(partition) + "format fs=" +
                                        file_system + (quick ? " quick" : "") + " override\r\n");
}

bool DISKPART_Remove(std::uint32_t disk, std::uint32_t partition, std::string letter) {
  return RunVerb("DISKPART_Remove",
                 SelectDisk(disk) + SelectPart(partition) + "remove letter=" + letter + kLineEnd);
}

bool DISKPART_Rescan() {
  return RunVerb("DISKPART_Rescan", "rescan\r\n");
}

bool DISKPART_offlinedisk(std::uint32_t disk) {
  return RunVerb("DISKPART_offlinedisk", SelectDisk(disk) + "offline disk\r\n");
}

bool DISKPART_onlinedisk(std::uint32_t disk) {
  return RunVerb("DISKPART_onlinedisk", SelectDisk(disk) + "online disk\r\n");
}

}  // namespace velkora
