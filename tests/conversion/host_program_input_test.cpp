// Bad usage and bad input: status 2, one line that says what is wrong, nothing touched.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "conversion/host_program_fixture.h"
#include "conversion/image_bytes.h"

namespace conversion {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct BadRun {
  std::string name;
  std::vector<std::string> arguments;
  std::string line;  // on standard error, behind the program's name
};

void PrintTo(const BadRun& run, std::ostream* out) {
  *out << run.name;
}

class BadInput : public HostProgram, public ::testing::WithParamInterface<BadRun> {};

TEST_P(BadInput, EndsWithStatusTwoAndOneLineAndTouchesNothing) {
  MakeDisk({{2048, 100000, kBasicData}, {100352, 133119, kReserved}, {133120, 137215, kBasicData}});
  MakeFat32({2048, 100000});
  CreateImage(File("raw.img"), kMib);
  CreateImage(File("odd.img"), 1000);
  CreateImage(File("empty.img"), 0);
  const std::uint64_t hash = Hash(Image());
  const auto time = fs::last_write_time(Image());
  const Outcome outcome = Run(GetParam().arguments);
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.out, IsEmpty());
  EXPECT_EQ(outcome.err, "velkora-image: " + GetParam().line + "\n");
  EXPECT_EQ(Hash(Image()), hash);
  EXPECT_EQ(fs::last_write_time(Image()), time);
  EXPECT_TRUE(fs::is_empty(File("tmp")));
}

const BadRun kBadRuns[] = {
    {"NoCommand", {}, "A subcommand is required"},
    {"UnknownCommand", {"frobnicate"}, "there is no command 'frobnicate'"},
    {"NoImage", {"show"}, "IMAGE is required"},
    {"MissingFile", {"show", "none.img"}, "none.img: no such file"},
    {"MissingFileToConvert", {"convert", "none.img", "--to", "mbr"}, "none.img: no such file"},
    {"Folder", {"show", "."}, ".: not an ordinary file"},
    {"OddSize", {"show", "odd.img"}, "odd.img: size 1000 is not a multiple of 512"},
    {"OddSizeToConvert",
     {"convert", "odd.img", "--to", "mbr"},
     "odd.img: size 1000 is not a multiple of 512"},
    {"EmptyFile", {"show", "empty.img"}, "empty.img: size 0 is no disk"},
    {"NoTable", {"convert", "raw.img", "--to", "mbr"}, "raw.img: no partition table"},
    {"NoStyle", {"convert", "disk.img"}, "--to is required"},
    {"UnknownStyle", {"convert", "disk.img", "--to", "apm"}, "--to: 'apm' is neither mbr nor gpt"},
    {"SameStyle", {"convert", "disk.img", "--to", "gpt"}, "--to: disk.img is GPT already"},
    {"UnknownOption", ToMbr({"--bogus"}), "The following argument was not expected: --bogus"},
    {"BadSystemLetter", ToMbr({"--system=7"}), "--system: '7' is not a drive letter"},
    {"SystemWithoutVolume", ToMbr({"--system=D"}), "--system: disk.img has no volume at D:"},
    {"SystemAtTheLogs", ToMbr({"--system=x"}), "--system: disk.img has no volume at X:"},
    {"SystemOnLinux", ToMbr({"--system=L", "--letter", "3=L"}),
     "--system: disk.img has no volume that Windows reads at L:"},
    {"SystemMovedAway", ToMbr({"--system", "--letter", "1=E"}),
     "--system: disk.img has no volume at C:"},
    {"LetterWithoutNumber", ToMbr({"--letter", "D"}), "--letter D: expected NUMBER=LETTER"},
    {"LetterBadNumber", ToMbr({"--letter", "x=D"}), "--letter x=D: 'x' is not a partition number"},
    {"LetterBadLetter", ToMbr({"--letter", "1=DE"}), "--letter 1=DE: 'DE' is not a drive letter"},
    {"LetterNoPartition", ToMbr({"--letter", "4=D"}), "--letter 4=D: disk.img has no partition 4"},
    {"LetterNoVolume", ToMbr({"--letter", "2=D"}),
     "--letter 2=D: disk.img has no volume in partition 2"},
    {"LetterTwice", ToMbr({"--letter", "1=D", "--letter", "1=E"}),
     "--letter 1=E: partition 1 has a letter already"},
    {"LetterOfLogs", ToMbr({"--letter", "1=x"}),
     "--letter 1=X: X is kept for the folder of the logs"},
    {"FailUnknownCall", ToMbr({"--fail", "Frobnicate"}),
     "--fail Frobnicate: there is no call 'Frobnicate'"},
    {"FailBadNumber", ToMbr({"--fail", "ReadFile:x"}), "--fail ReadFile:x: 'x' is not a number"},
    {"FailOccurrenceZero", ToMbr({"--fail", "ReadFile:0"}),
     "--fail ReadFile:0: occurrences are counted from 1"},
    {"StopAtBadStatus", ToMbr({"--stop-at", "12"}), "--stop-at: '12' is not a status from 1 to 11"},
    {"LogsIsAFile", ToMbr({"--logs", "raw.img"}), "--logs: raw.img: Not a directory"},
    {"EventsNowhere", ToMbr({"--events", "none/events"}),
     "--events: none/events: No such file or directory"},
    {"EventsIsTheImage", ToMbr({"--events", "./disk.img"}),
     "--events: ./disk.img is the image itself"},
};

INSTANTIATE_TEST_SUITE_P(HostProgram, BadInput, ::testing::ValuesIn(kBadRuns),
                         [](const auto& run) { return run.param.name; });

TEST_F(HostProgram, RefusesAGptWithoutASoundHeader) {
  MakeDisk({{2048, 4095, kBasicData}});
  {
    const ImageFile image(Image());
    image.WriteSector(1, {});
    image.WriteSector(image.sector_count() - 1, {});
  }
  const Outcome outcome = Run(ToMbr({}));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err,
            "velkora-image: disk.img: the partition table cannot be read (both GPT headers are "
            "damaged)\n");
}

TEST_F(HostProgram, TellsItsUsage) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--help"}, {"convert", "--help"}}) {
    const Outcome outcome = Run(arguments);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("Usage: velkora-image"));
    EXPECT_THAT(outcome.err, IsEmpty());
  }
}

}  // namespace
}  // namespace conversion
