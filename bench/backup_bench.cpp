// A backup of a disk's metadata: what it reads and holds for one large FAT32 volume and for eight
// NTFS volumes, and a backup file beside a plain copy of the same bytes.
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "backup/backup.h"
#include "backup/backup_file.h"
#include "backup/restore.h"
#include "bench/bench_machine.h"
#include "frame/global_context.h"
#include "platform/win32.h"
#include "simulator/disk.h"

namespace {

using bench::Bench;
using bench::kGib;

constexpr char kDisk[] = "\\\\.\\PhysicalDrive1";
constexpr std::uint64_t kMib = std::uint64_t{1} << 20;

void Run(const std::string& line) {
  const std::string quiet = "PATH=$PATH:/usr/sbin:/sbin; " + line + " >/dev/null 2>&1";
  if (std::system(quiet.c_str()) != 0) throw std::runtime_error(line + ": failed");
}

// A line of the process's status, in MiB.
double StatusMib(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with(name)) return std::stod(line.substr(name.size())) / 1024;
  }
  return 0;
}

// Starts the peak again.
void ForgetPeak() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

// Backs up, over and over, and tells what one backup takes.
void BackUp(benchmark::State& state, Bench& ground, const std::vector<std::uint64_t>& offsets) {
  const simulator::BlockDevice& device = ground.disk().device();
  ForgetPeak();
  const double in_use_before = StatusMib("VmRSS:");
  const std::uint64_t read_before = device.bytes_read();
  std::size_t calls = 0;
  std::uint32_t blocks = 0;
  for (auto _ : state) {
    velkora::BackupStorage* storage = nullptr;
    const std::int32_t error = velkora::BackupDiskPartitionToStorage(
        kDisk, offsets.data(), static_cast<std::uint32_t>(offsets.size()), &storage);
    if (error != 0) {
      state.SkipWithError("no backup");
      return;
    }
    blocks = velkora::BlockCount(storage);
    velkora::ReleaseBackupData(storage);
    calls = ground.machine().calls().calls().size();
    ground.machine().calls().Clear();
  }
  const auto runs = static_cast<double>(state.iterations());
  state.counters["MiB_read"] =
      static_cast<double>(device.bytes_read() - read_before) / static_cast<double>(kMib) / runs;
  state.counters["calls"] = static_cast<double>(calls);
  state.counters["blocks"] = blocks;
  state.counters["peak_MiB"] = StatusMib("VmHWM:") - in_use_before;
}

// 8 KiB clusters make FATs of 16 MiB each.
void BackUpFat32Of32Gib(benchmark::State& state) {
  Bench ground(34 * kGib);
  ground.WriteGpt(1, 32 * kGib / kMib);
  Run("mkfs.fat -F 32 -s 16 --offset 2048 '" + ground.image().string() + "' 33554432");
  BackUp(state, ground, {kMib});
}
BENCHMARK(BackUpFat32Of32Gib)->Unit(benchmark::kMillisecond);

void BackUpEightNtfsVolumes(benchmark::State& state) {
  constexpr std::uint32_t kVolumes = 8;
  constexpr std::uint64_t kVolumeMib = 256;
  Bench ground(8 * kGib);
  ground.WriteGpt(kVolumes, kVolumeMib);
  const std::string volume = (ground.folder() / "ntfs.img").string();
  Run("truncate -s 256M '" + volume + "'");
  Run("mkntfs -F -Q -p 2048 -s 512 -H 255 -S 63 '" + volume + "'");
  std::vector<std::uint64_t> offsets;
  for (std::uint64_t i = 0; i < kVolumes; ++i) {
    const std::uint64_t place = 1 + i * (kVolumeMib + 2);
    Run("dd if='" + volume + "' of='" + ground.image().string() +
        "' bs=1M conv=sparse,notrunc seek=" + std::to_string(place));
    offsets.push_back(place * kMib);
  }
  BackUp(state, ground, offsets);
}
BENCHMARK(BackUpEightNtfsVolumes)->Unit(benchmark::kMillisecond);

// 64 blocks of 1 MiB.
velkora::BlockMap SampleBlocks() {
  velkora::BlockMap blocks;
  for (std::uint64_t i = 0; i < 64; ++i) {
    auto& block = velkora::SelectBlock(blocks, i * kGib, kMib);
    for (std::size_t k = 0; k < block.size(); ++k) block[k] = static_cast<std::byte>(k * i);
  }
  return blocks;
}

void SetRate(benchmark::State& state) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(64 * kMib));
}

void WriteBackupFileOf64Mib(benchmark::State& state) {
  Bench ground;
  const velkora::BlockMap blocks = SampleBlocks();
  for (auto _ : state) {
    std::FILE* file = win32::fopen("X:\\backup", "wb");
    velkora::WriteBackupFile(file, kDisk, blocks);
    win32::fclose(file);
  }
  SetRate(state);
}
BENCHMARK(WriteBackupFileOf64Mib)->Unit(benchmark::kMillisecond);

void LoadBackupFileOf64Mib(benchmark::State& state) {
  Bench ground;
  std::FILE* file = win32::fopen("X:\\backup", "wb");
  velkora::WriteBackupFile(file, kDisk, SampleBlocks());
  win32::fclose(file);
  for (auto _ : state) {
    file = win32::fopen("X:\\backup", "rb");
    velkora::BlockMap blocks;
    velkora::LoadBackupFile(file, blocks);
    benchmark::DoNotOptimize(blocks.size());
    win32::fclose(file);
  }
  SetRate(state);
}
BENCHMARK(LoadBackupFileOf64Mib)->Unit(benchmark::kMillisecond);

// The peer: the same bytes in one piece, to a file and from it.
void WritePlainFileOf64Mib(benchmark::State& state) {
  Bench ground;
  const std::vector<char> bytes(64 * kMib, 'v');
  for (auto _ : state) {
    std::ofstream file(ground.folder() / "plain", std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  SetRate(state);
}
BENCHMARK(WritePlainFileOf64Mib)->Unit(benchmark::kMillisecond);

void LoadPlainFileOf64Mib(benchmark::State& state) {
  Bench ground;
  std::vector<char> written(64 * kMib, 'v');
  std::ofstream(ground.folder() / "plain", std::ios::binary)
      .write(written.data(), static_cast<std::streamsize>(written.size()));
  for (auto _ : state) {
    std::ifstream file(ground.folder() / "plain", std::ios::binary);
    std::vector<char> bytes(64 * kMib);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    benchmark::DoNotOptimize(bytes.data());
  }
  SetRate(state);
}
BENCHMARK(LoadPlainFileOf64Mib)->Unit(benchmark::kMillisecond);

}  // namespace
