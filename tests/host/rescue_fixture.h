// A disk with bytes of its own, and a rescue file of it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/rescue_file.h"
#include "simulator/disk.h"
#include "support/machine_fixture.h"

namespace testing_support {

using Bytes = std::vector<std::byte>;
using velkora_host::ByteRange;

inline constexpr const char* kRescuePath = "X:\\disk.rescue";

// Nothing that zlib could make smaller, the same for the same seed.
Bytes RandomBytes(std::size_t length, std::uint32_t seed);

// What `action` throws as RescueError; "" if it throws nothing.
template <typename Action>
std::string RescueErrorOf(const Action& action) {
  try {
    action();
  } catch (const velkora_host::RescueError& error) {
    return error.what();
  }
  return "";
}

class RescueTest : public MachineTest {
 protected:
  // Attaches disk 1, full of random bytes, and opens it.
  void AttachRandomDisk(std::uint64_t size, std::uint32_t sector_size = 512);

  velkora_host::RescueDisk Target() const;
  Bytes DiskBytes() const;
  // Other bytes than any that were there.
  void Overwrite(const ByteRange& range);
  std::uint64_t Undo() const;  // the rescue file at kRescuePath

  // A sealed file of the first ranges, with the others saved later.
  void SaveSealed(const std::vector<ByteRange>& ranges, const std::vector<ByteRange>& later = {});

  std::string FileText() const;
  void SetFileText(std::string_view text) const;

  simulator::Disk* disk_ = nullptr;
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

}  // namespace testing_support
