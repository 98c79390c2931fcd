// Transfers of whole sectors, with the Windows error that a failure gives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"

namespace simulator {

// `buffer` holds whole sectors. ERROR_SECTOR_NOT_FOUND when a sector lies behind the end of the
// disk, ERROR_READ_FAULT or ERROR_WRITE_FAULT when the host refuses the transfer.
[[nodiscard]] DWORD ReadSectors(BlockDevice& device, std::uint64_t sector,
                                std::span<std::byte> buffer);
[[nodiscard]] DWORD WriteSectors(BlockDevice& device, std::uint64_t sector,
                                 std::span<const std::byte> data);

}  // namespace simulator
