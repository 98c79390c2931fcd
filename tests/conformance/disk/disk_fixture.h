// The ground of the tests that wipe a disk. Each begins with one that diskpart has cleaned.
//
// Volumes come and go a while after the table has changed, so what has to be there is waited for.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "conformance/conformance_fixture.h"
#include "conformance/disk/drive_layout.h"

namespace conformance {

inline constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;

// What a control code or a transfer has answered. `bytes` are those that it returned.
struct Answer {
  DWORD error = ERROR_SUCCESS;
  Bytes bytes;
};

class DiskTest : public ConformanceTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Whether it holds within half a minute; looked at again and again.
  static bool WaitUntil(const std::function<bool()>& holds);

  // ---- Handles and control codes ---------------------------------------------------------------

  File OpenDisk(DWORD access = kReadWrite) const;
  // By its root; also waits until no one else has it locked.
  static File OpenVolume(const std::string& root, DWORD access = kReadWrite);
  // A file or, with a folder's name, a folder.
  static File OpenOn(const std::string& root, const std::string& name);

  static Answer Ask(const File& device, DWORD code, Bytes in = {}, std::size_t room = 0);
  // Tries for a while, since others may have the volume open for a moment.
  static DWORD Lock(const File& volume);

  // ---- Sectors ---------------------------------------------------------------------------------

  static Answer Read(const File& device, std::uint64_t offset, std::size_t length);
  static DWORD Write(const File& device, std::uint64_t offset, const Bytes& bytes);
  // Writes what is there already: the rules decide, and nothing changes.
  static DWORD Rewrite(const File& device, std::uint64_t offset, std::size_t length);
  Bytes Sectors(std::uint64_t first, std::size_t count = 1) const;
  void SetSectors(std::uint64_t first, const Bytes& bytes) const;

  // ---- Tables ----------------------------------------------------------------------------------

  DWORD CreateMbr(DWORD signature = kSignature) const;
  DWORD CreateGpt() const;
  DWORD SetLayout(const DriveLayout& layout) const;
  DriveLayout GetLayout() const;
  void UpdateProperties() const;
  // An empty disk of the style with these rows; a test failure if either is refused.
  void MakeMbr(const std::vector<PARTITION_INFORMATION_EX>& rows) const;
  void MakeGpt(const std::vector<PARTITION_INFORMATION_EX>& rows) const;

  // ---- Volumes ---------------------------------------------------------------------------------

  // The root of the volume that begins at `offset` of the disk, or "".
  std::string FindVolume(std::uint64_t offset) const;
  // The same, with patience: for it to come, or to go; a test failure when it does not.
  std::string WaitForVolume(std::uint64_t offset) const;
  void WaitUntilGone(std::uint64_t offset) const;
  // "Q", "" for none, nothing when they cannot be asked for.
  static std::optional<std::string> LettersOf(const std::string& root);
  static char WaitForLetter(const std::string& root);
  static char FreeLetter();

  // An MBR disk with one FAT32 volume of 100 MiB at 1 MiB; its root.
  std::string MakeFat32() const;

  // ---- Tools -----------------------------------------------------------------------------------

  // Runs diskpart on these lines behind "select disk"; its exit status.
  DWORD Diskpart(std::string_view lines) const;
  DWORD RunDiskpartScript(std::string_view script) const;

  std::uint64_t sector_count_ = 0;
};

}  // namespace conformance
