// A machine with a FAT32 volume that the tools of the host made, as letter F.
#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "platform/win32.h"
#include "simulator/simulated_machine.h"
#include "simulator/volume.h"
#include "simulator/wide_text.h"
#include "support/sizes.h"
#include "support/temp_folder.h"
#include "support/tools/fat32_disk.h"

namespace testing_support {

class HostMadeVolumeTest : public ::testing::Test {
 protected:
  // To be called when the volume is filled.
  void Attach(const Fat32Disk& disk) {
    machine_.AttachDisk(1, disk.image());
    machine_.SetLetter(1, disk.offset(), 'F');
    machine_.MakeCurrent();
    path_ = machine_.FindVolumeByLetter('F')->path;
  }

  static HANDLE Open(const std::string& path, DWORD flags = 0) {
    return win32::CreateFileW(simulator::Utf8ToUtf16(path).c_str(), GENERIC_READ | GENERIC_WRITE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, flags,
                              nullptr);
  }
  HANDLE OpenVolume() const { return Open(path_); }

  // ERROR_SUCCESS, or the last error.
  static DWORD Move(HANDLE volume, HANDLE file, std::int64_t vcn, std::int64_t lcn, DWORD count) {
    MOVE_FILE_DATA request{};
    request.FileHandle = file;
    request.StartingVcn.QuadPart = vcn;
    request.StartingLcn.QuadPart = lcn;
    request.ClusterCount = count;
    DWORD returned = 0;
    const BOOL done = win32::DeviceIoControl(volume, FSCTL_MOVE_FILE, &request, sizeof request,
                                             nullptr, 0, &returned, nullptr);
    return done != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  // The runs that FSCTL_GET_RETRIEVAL_POINTERS tells, in the table's numbers. `room` is the number
  // of extents asked for at once.
  static ClusterRuns Pointers(HANDLE file, std::size_t room = 51) {
    ClusterRuns runs;
    std::vector<std::uint64_t> answer(2 + 2 * room);
    STARTING_VCN_INPUT_BUFFER start{};
    for (;;) {
      DWORD returned = 0;
      const BOOL whole = win32::DeviceIoControl(
          file, FSCTL_GET_RETRIEVAL_POINTERS, &start, sizeof start, answer.data(),
          static_cast<DWORD>(answer.size() * sizeof answer[0]), &returned, nullptr);
      if (whole == FALSE && win32::GetLastError() != ERROR_MORE_DATA) return runs;
      const std::uint64_t count = answer[0] & 0xFFFFFFFF;
      EXPECT_EQ(returned, 16 + 16 * count);
      std::uint64_t vcn = answer[1];
      for (std::size_t i = 0; i < count; ++i) {
        runs.push_back({answer[3 + 2 * i] + 2, answer[2 + 2 * i] - vcn});
        vcn = answer[2 + 2 * i];
      }
      if (whole != FALSE) return runs;
      start.StartingVcn.QuadPart = static_cast<LONGLONG>(vcn);
    }
  }

  // One byte for each data cluster, not 0 where it is in use.
  static std::vector<std::uint8_t> Usage(HANDLE volume) {
    STARTING_LCN_INPUT_BUFFER start{};
    VOLUME_BITMAP_BUFFER head{};
    DWORD returned = 0;
    win32::DeviceIoControl(volume, FSCTL_GET_VOLUME_BITMAP, &start, sizeof start, &head,
                           sizeof head, &returned, nullptr);
    const auto count = static_cast<std::size_t>(head.BitmapSize.QuadPart);
    std::vector<std::uint8_t> answer(16 + (count + 7) / 8 + 8);
    EXPECT_TRUE(win32::DeviceIoControl(volume, FSCTL_GET_VOLUME_BITMAP, &start, sizeof start,
                                       answer.data(), static_cast<DWORD>(answer.size()), &returned,
                                       nullptr));
    std::vector<std::uint8_t> usage(count);
    for (std::size_t i = 0; i < count; ++i) usage[i] = answer[16 + i / 8] >> (i % 8) & 1;
    return usage;
  }

  TempFolder folder_;
  simulator::SimulatedMachine machine_;
  std::string path_;  // of the volume
};

}  // namespace testing_support
