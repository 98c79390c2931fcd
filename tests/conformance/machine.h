// The machine that the suite runs on. Its source comes in two kinds, like the seam's: machine.cpp
// for the simulated machine, windows/machine.cpp for Windows itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace conformance {

class Machine {
 public:
  Machine();
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // An empty folder, without a trailing separator and without a blank in its path. It goes with
  // the machine.
  const std::string& folder() const;

  // Makes a folder in it.
  void MakeFolder(const std::string& name) const;

  // The drive that a path without a letter leads to.
  char current_drive() const;

  // What the machine's clock shows, by another way than the seam. Seconds since 1970.
  std::int64_t Now() const;

  // A program with a blank in its path. Run as `<program> /c exit N` it ends with status N.
  std::string ProgramWithBlank() const;

  // The disk that the disk tests wipe, again and again. At least 256 MiB in sectors of 512 bytes.
  std::uint32_t spare_disk() const;

  // Puts a new file of `size` bytes on a FAT32 volume; a folder in `name` is made.
  void PutFile(const std::string& volume_root, const std::string& name, std::size_t size) const;

  // Makes the spare disk's first partition, whose volume is at `offset`, an empty NTFS volume.
  void FormatAsNtfs(std::uint64_t offset) const;

  // Wine stands in for Windows, and in places answers otherwise than Windows is documented to. What
  // it gets wrong is left out there, each time with the reason, and holds everywhere else.
  static bool IsWine();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace conformance
