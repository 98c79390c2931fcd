// Each call of a writer fails, once and from then on.
#include <functional>
#include <gmock/gmock.h>

#include "host/rescue_file.h"
#include "host/rescue_fixture.h"
#include "host/undo.h"

namespace testing_support {
namespace {

using velkora_host::RescueWriter;
using Ranges = std::vector<ByteRange>;

constexpr std::uint64_t kDiskSize = 16 * 512;

class RescueFaultsTest : public RescueTest {
 protected:
  RescueFaultsTest() { AttachRandomDisk(kDiskSize); }

  // The whole life of a writer. `repeats`: a step that fails is done once more.
  void Run(bool repeats, const std::string& path = kRescuePath) {
    const auto step = [repeats](const std::function<void()>& action) {
      try {
        action();
      } catch (const velkora_host::RescueError&) {
        if (!repeats) throw;
        action();
      }
    };
    std::unique_ptr<RescueWriter> writer;
    step([&] { writer = std::make_unique<RescueWriter>(path, Target()); });
    // The second is shorter than what a failure may have left.
    const Ranges ranges{{0, 1536}, {4096, 512}};
    step([&] { writer->Save(ranges); });
    step([&] { writer->Seal(); });
    step([&] { writer->SaveMore({2048, 1024}); });
    step([&] { writer->SaveMore({7168, 512}); });
  }

  // Saves and changes the disk step by step, and ends at the first failure.
  void SaveAndWrite(const std::string& path) {
    const velkora_host::RawFile disk(handle_, "the disk");
    const Bytes changed(1536, std::byte{0xEE});
    RescueWriter writer(path, Target());
    const Ranges ranges{{0, changed.size()}};
    writer.Save(ranges);
    writer.Seal();
    disk.Write(0, changed);
    const std::uint64_t offsets[] = {4096, 7168, 512, 5120};
    for (const std::uint64_t offset : offsets) {
      writer.SaveMore({offset, 512});
      disk.Write(offset, std::span(changed).first(512));
    }
  }

  std::size_t CallsOfARun() {
    machine_.calls().Clear();
    Run(false);
    const std::size_t count = machine_.calls().calls().size();
    std::filesystem::remove(folder_.path() / "disk.rescue");
    return count;
  }
};

TEST_F(RescueFaultsTest, EveryFailureFromThenOnIsToldAndLeavesTheDisk) {
  const Bytes before = DiskBytes();
  const std::size_t count = CallsOfARun();
  std::size_t told = 0;
  for (std::size_t number = 1; number <= count; ++number) {
    machine_.calls().Clear();
    machine_.calls().FailNumber(number, ERROR_DISK_FULL, simulator::Repeat::kFromThenOn);
    // The file cannot be closed, so that each run has one of its own.
    const std::string path = "X:\\disk" + std::to_string(number) + ".rescue";
    if (!RescueErrorOf([&] { Run(false, path); }).empty()) ++told;
    machine_.calls().ClearFailures();
    EXPECT_EQ(DiskBytes(), before) << number;
  }
  // The last call closes the file.
  EXPECT_EQ(told, count - 1);
  EXPECT_EQ(disk_->device().bytes_written(), kDiskSize);
}

TEST_F(RescueFaultsTest, FailedStepIsRepeatedAndTheFileRestoresAll) {
  const Bytes before = DiskBytes();
  const std::size_t count = CallsOfARun();
  for (std::size_t number = 1; number < count; ++number) {
    machine_.calls().Clear();
    machine_.calls().FailNumber(number, ERROR_GEN_FAILURE);
    Run(true);
    EXPECT_EQ(velkora_host::ReadRescueFile(kRescuePath).torn_bytes, 0u) << number;
    for (const ByteRange& range : Ranges{{0, 1536}, {4096, 512}, {2048, 1024}, {7168, 512}}) {
      Overwrite(range);
    }
    EXPECT_EQ(Undo(), 3584u) << number;
    EXPECT_EQ(DiskBytes(), before) << number;
    std::filesystem::remove(folder_.path() / "disk.rescue");
  }
}

TEST_F(RescueFaultsTest, DiskIsRestoredWhereverSavingAndWritingEnds) {
  const Bytes before = DiskBytes();
  machine_.calls().Clear();
  SaveAndWrite("X:\\whole.rescue");
  const std::size_t count = machine_.calls().calls().size();
  ASSERT_GT(velkora_host::Undo("X:\\whole.rescue", handle_, kDiskSize), 0u);
  std::size_t restored = 0;
  for (std::size_t number = 1; number <= count; ++number) {
    machine_.calls().Clear();
    machine_.calls().FailNumber(number, ERROR_GEN_FAILURE, simulator::Repeat::kFromThenOn);
    const std::string path = "X:\\disk" + std::to_string(number) + ".rescue";
    RescueErrorOf([&] { SaveAndWrite(path); });
    machine_.calls().ClearFailures();
    if (DiskBytes() != before) {
      velkora_host::Undo(path, handle_, kDiskSize);
      ++restored;
    }
    ASSERT_EQ(DiskBytes(), before) << number;
  }
  EXPECT_GT(restored, count / 3);
  EXPECT_LT(restored, count);
}

// The long piece is torn, and a short one is written over its start.
TEST_F(RescueFaultsTest, RestOfALongerTornPieceIsPassedOver) {
  {
    RescueWriter writer(kRescuePath, Target());
    writer.Seal();
    machine_.calls().FailOn("FlushFileBuffers");
    EXPECT_NE(RescueErrorOf([&] { writer.SaveMore({0, 2048}); }), "");
    writer.SaveMore({4096, 512});
  }
  const auto contents = velkora_host::ReadRescueFile(kRescuePath);
  ASSERT_EQ(contents.pieces.size(), 1u);
  EXPECT_EQ(contents.pieces[0].range, (ByteRange{4096, 512}));
  EXPECT_EQ(contents.torn_bytes, 1536u);
}

}  // namespace
}  // namespace testing_support
