// Rescue files: what a conversion, a failure or a cut in the middle has changed is undone byte for
// byte, and no other image is touched.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "apps/velkora_image/conversion_run.h"
#include "apps/velkora_image/image_disk.h"
#include "apps/velkora_image/rescue.h"
#include "conversion/host_program_fixture.h"
#include "conversion/image_bytes.h"
#include "conversion/volumes.h"
#include "simulator/disk.h"

namespace conversion {
namespace {

using namespace ::testing;

const Partitions kTwo = {{2048, 75775, kBasicData}, {75776, 83967, kLinux}};

class HostProgramRescue : public HostProgram {
 protected:
  void MakeTwo(std::uint64_t size = 256 * kMib) {
    MakeDisk(kTwo, size);
    MakeFat32(kTwo[0]);
    before_ = Hash(Image());
  }
  // FAT32 to the last sector, so that towards GPT it gives room.
  void MakeFullMbr() {
    MakeMbrDisk("start=2048, size=129024, type=c\n", 64 * kMib);
    MakeFat32({2048, 131'071});
    before_ = Hash(Image());
  }

  void ExpectUndone() {
    EXPECT_NE(Hash(Image()), before_) << "nothing to undo";
    const Outcome undo = Run({"undo", "disk.img", "disk.rescue"});
    EXPECT_EQ(undo.status, 0) << undo.err;
    EXPECT_THAT(undo.out, AllOf(StartsWith("Undone: "),
                                EndsWith(" bytes of disk.img are as they were before.\n")));
    EXPECT_EQ(Hash(Image()), before_);
  }
  void ExpectRefused(const std::vector<std::string>& arguments, const std::string& reason) {
    const std::uint64_t hash = Hash(Image());
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.err, HasSubstr(reason));
    EXPECT_EQ(Hash(Image()), hash);
  }

  std::uint64_t before_ = 0;
};

TEST_F(HostProgramRescue, AConversionToMbrIsUndone) {
  MakeTwo();
  const Outcome outcome = Run(ToMbr({"--rescue", "disk.rescue"}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out,
              HasSubstr("Rescue file: disk.rescue, " +
                        std::to_string(TextOf(File("disk.rescue")).size()) + " bytes\n"));
  ExpectUndone();
}

TEST_F(HostProgramRescue, AConversionToGptWithAShrinkIsUndone) {
  MakeFullMbr();
  EXPECT_EQ(Run(ToGpt({"--rescue", "disk.rescue"})).status, 0);
  ExpectUndone();
}

// Boot files, the boot code of the volume and the new EFI system partition are changes, too.
TEST_F(HostProgramRescue, AConversionOfASystemDiskIsUndone) {
  MakeMbrDisk("start=2048, size=204800, type=c, bootable\n", 1024 * kMib);
  MakeFat32({2048, 206'847});
  before_ = Hash(Image());
  EXPECT_EQ(Run(ToGpt({"--system", "--rescue", "disk.rescue"})).status, 0);
  ExpectUndone();
}

// A rollback leaves so small a GPT disk without its protective record.
TEST_F(HostProgramRescue, WhatARollbackDoesNotBringBackIsUndone) {
  MakeTwo(64 * kMib);
  EXPECT_EQ(Run(ToMbr({"--fail", "DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX", "--rescue",
                       "disk.rescue"}))
                .status,
            1);
  ExpectUndone();
}

TEST_F(HostProgramRescue, AFailedRollbackIsUndone) {
  MakeTwo();
  EXPECT_EQ(Run(ToMbr({"--fail", "DeviceIoControl/IOCTL_DISK_CREATE_DISK", "--fail",
                       "CreateFileA/\\\\.\\PhysicalDrive1:3", "--fail",
                       "CreateFileA/\\\\.\\PhysicalDrive1:4", "--fail",
                       "CreateFileA/\\\\.\\PhysicalDrive1:5", "--rescue", "disk.rescue"}))
                .status,
            3);
  ExpectUndone();
}

TEST_F(HostProgramRescue, AFileThatExistsIsRefused) {
  MakeTwo();
  std::ofstream(File("disk.rescue")) << "mine";
  ExpectRefused(ToMbr({"--rescue", "disk.rescue"}),
                "velkora-image: --rescue: disk.rescue: cannot create: error 80");
  EXPECT_EQ(TextOf(File("disk.rescue")), "mine");
  ExpectRefused(ToMbr({"--rescue", "no/folder.rescue"}),
                "--rescue: no/folder.rescue: cannot create");
}

TEST_F(HostProgramRescue, ADamagedFileIsRefused) {
  MakeTwo();
  EXPECT_EQ(Run(ToMbr({"--rescue", "disk.rescue"})).status, 0);
  std::string text = TextOf(File("disk.rescue"));
  std::ofstream(File("cut.rescue")) << text.substr(0, 1000);
  text[1000] = static_cast<char>(text[1000] ^ 1);
  std::ofstream(File("bad.rescue")) << text;
  for (const std::string name : {"cut.rescue", "bad.rescue", "no.rescue"}) {
    ExpectRefused({"undo", "disk.img", name}, "velkora-image: " + name + ": ");
  }
}

TEST_F(HostProgramRescue, AnotherDisksFileIsRefused) {
  MakeTwo();
  EXPECT_EQ(Run(ToMbr({"--rescue", "disk.rescue"})).status, 0);
  MakeFullMbr();
  ExpectRefused({"undo", "disk.img", "disk.rescue"}, "disk.rescue: ");
}

// The run is cut before each write in turn: from there on nothing reaches the image.
class RescueCut : public HostProgramRescue {
 protected:
  // Returns whether the cut came before the end.
  bool RunCutBefore(std::size_t write, const std::string& target) {
    velkora_image::ConvertOptions options;
    options.image = Image();
    options.target = target;
    simulator::SimulatedMachine machine;
    machine.switches().fat32_writes_late = true;
    simulator::Disk& disk =
        velkora_image::AttachImage(machine, Image(), simulator::Access::kReadWrite);
    velkora_image::GiveLetters(machine, disk, {});
    machine.MapFolder(velkora_image::kLogsLetter, File(""));
    machine.MakeCurrent();
    velkora_image::ConversionRun run(machine, options, File(""));
    const velkora_image::Rescue rescue(machine, Image(), File("disk.rescue"));
    std::size_t writes = 0;
    disk.device().before_change = [&, keep = disk.device().before_change](std::uint64_t offset,
                                                                          std::uint64_t length) {
      return ++writes < write && keep(offset, length);
    };
    run.Run();
    return writes >= write;
  }

  // Returns the number of cuts.
  std::size_t CutEverywhere(const std::string& target) {
    const std::filesystem::path whole = File("whole.img");
    std::filesystem::copy_file(Image(), whole);
    for (std::size_t write = 1;; ++write) {
      std::filesystem::remove(File("disk.rescue"));
      std::filesystem::copy_file(whole, Image(), std::filesystem::copy_options::overwrite_existing);
      internal::CaptureStdout();
      const bool was_cut = RunCutBefore(write, target);
      EXPECT_EQ(velkora_image::Undo({Image(), File("disk.rescue")}), 0);
      internal::GetCapturedStdout();
      EXPECT_EQ(Hash(Image()), before_) << "cut before write " << write;
      if (!was_cut || HasFailure()) return write - 1;
    }
  }
};

TEST_F(RescueCut, BeforeEachWriteTowardsMbrIsUndone) {
  MakeDisk(EvenPartitions(5, 8, 1), 64 * kMib);  // two of them become logical
  before_ = Hash(Image());
  EXPECT_GT(CutEverywhere("mbr"), 4U);
}

TEST_F(RescueCut, BeforeEachWriteTowardsGptWithAShrinkIsUndone) {
  MakeFullMbr();
  EXPECT_GT(CutEverywhere("gpt"), 10U);
}

}  // namespace
}  // namespace conversion
